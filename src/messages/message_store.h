#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/data_folder.h"
#include "base/two_digit_indicator.h"

namespace corvel {

// Voice messages are wave files in the data folder, "1-<slot>-<caller>.wav" while new and
// "2-<slot>-<caller>.wav" once heard. Slots run from 1 to 98 without gaps; counting stops at
// the first empty slot.
class MessageStore {
public:
    enum class Kind { New = 1, Old = 2 };
    static constexpr int slotCount = 98;

    MessageStore(const DataFolder& folder, const TwoDigitIndicator& indicator);

    // The file in a slot, if any.
    std::optional<std::string> fileInSlot(Kind kind, int slot) const;
    // The unbroken run of filled slots from 1.
    int count(Kind kind) const;
    // The lowest empty slot, or none when all are taken.
    std::optional<int> freeSlot(Kind kind) const;
    // The file name for a message in `slot` from `caller`.
    static std::string fileName(Kind kind, int slot, std::string_view caller);
    // The caller of a message: its name after the second "-", up to the next ".".
    static std::string callerOf(std::string_view fileName);

    // Counts both kinds and redraws new1/new2 and old1/old2.
    void checkmessages() const;

    // Moves the messages of `kind` down into an unbroken run from slot 1, keeping their order;
    // how many moved. Filing a heard message leaves such a gap at its slot.
    int closeGap(Kind kind) const;
    // Moves a message just filed in `slot` down into the lowest free slot below it, if there is
    // one; its name now. A message played while this one was recorded leaves such a gap.
    std::string settle(Kind kind, int slot, const std::string& name) const;
    // The same as closeGap for both kinds, logging what moved: Corvel ending between two renames of the
    // slots would otherwise hide every message above the gap for good.
    void closeGaps() const;

private:
    const DataFolder& folder_;
    const TwoDigitIndicator& indicator_;
};

} // namespace corvel

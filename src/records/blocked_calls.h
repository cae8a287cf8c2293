#pragma once

#include <string_view>

#include "base/data_folder.h"
#include "base/two_digit_indicator.h"
#include "records/call_log.h"

namespace corvel {

// The calls turned away as blocked: kept in "blocked.txt" as the call log would have kept
// them (the caller text, then ", on <date>, at <time>"), never in the call log itself, and
// counted since start on the indicator blocked1/blocked2.
class BlockedCalls {
public:
    static constexpr std::string_view fileName = "blocked.txt";

    BlockedCalls(const DataFolder& folder, const CallLog& log, const TwoDigitIndicator& indicator)
        : folder_(folder), log_(log), indicator_(indicator)
    {
    }

    void record(std::string_view callerText);
    void reset();
    void show() const { indicator_.show("blocked1", "blocked2", count_); }
    int count() const { return count_; }

private:
    const DataFolder& folder_;
    const CallLog& log_;
    const TwoDigitIndicator& indicator_;
    int count_ = 0;
};

} // namespace corvel

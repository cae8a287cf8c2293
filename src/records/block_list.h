#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/data_folder.h"
#include "records/typed_number.h"

namespace corvel {

// The callers the user never wants to hear from: "blocklist.txt", one entry a line, a number
// without "-", " " and "," ("01234567890"), or a prefix ending in "*" ("0870*"), optionally
// followed by "," and a note of the user's. The file is read at each use, so an edit by hand
// counts at the next call.
class BlockList {
public:
    static constexpr std::string_view fileName = "blocklist.txt";
    static constexpr std::size_t maxNumberBytes = maxTypedNumberBytes;
    static constexpr std::size_t maxNoteBytes = 200;

    struct Entry {
        std::string number; // without the "*" of a prefix
        bool prefix = false;
        std::string note;
        bool operator==(const Entry&) const = default;
    };

    explicit BlockList(const DataFolder& folder);

    // One line of the file; nothing for a line that holds no usable entry (empty, "*" alone,
    // a "*" inside the number, text that is not fit to be a number).
    static std::optional<Entry> parse(std::string_view line);
    // An entry as a line of the file.
    static std::string format(const Entry& entry);

    // The entries in file order; lines that hold none are logged and passed over.
    std::vector<Entry> entries() const;
    // Whether a caller with this number (as the line delivers it) is blocked.
    bool blocks(std::string_view number) const;

    // Adds a number or prefix as the user typed it; an entry already there is not repeated.
    // False when the text is no usable number.
    bool add(std::string_view typed, std::string_view note = {});
    // Removes the entry for this number or prefix; false when there was none.
    bool remove(std::string_view typed);
    // Adds the entries of a plain text file in the same form; how many were new.
    std::size_t importFrom(const std::filesystem::path& file);
    // Writes the entries to a plain text file, replacing it whole.
    bool exportTo(const std::filesystem::path& file) const;

private:
    std::vector<Entry> parseAll(const std::vector<std::string>& lines, std::string_view from) const;
    bool rewrite(const std::vector<Entry>& entries) const;

    const DataFolder& folder_;
};

} // namespace corvel

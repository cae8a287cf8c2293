#include "records/block_list.h"

#include <algorithm>
#include <fstream>

#include "base/log.h"
#include "base/text.h"
#include "records/typed_number.h"

namespace corvel {
namespace {

std::string numberKey(std::string_view number) { return text::lower(compactNumber(number)); }

bool matches(const BlockList::Entry& entry, const std::string& caller)
{
    const std::string number = text::lower(entry.number);
    return entry.prefix ? caller.starts_with(number) : caller == number;
}

// The same number or prefix, whatever the notes say.
bool sameEntry(const BlockList::Entry& one, const BlockList::Entry& other)
{
    return one.prefix == other.prefix && numberKey(one.number) == numberKey(other.number);
}

} // namespace

BlockList::BlockList(const DataFolder& folder) : folder_(folder) {}

std::optional<BlockList::Entry> BlockList::parse(std::string_view line)
{
    const std::string_view trimmed = text::trim(line);
    const auto comma = trimmed.find(',');
    Entry entry;
    entry.number = compactNumber(trimmed.substr(0, comma));
    // Trimmed again once the controls are gone, so that a rewritten file reads as the same entry.
    if (comma != std::string_view::npos)
        entry.note = text::trim(text::fromLine(text::trim(trimmed.substr(comma + 1)), maxNoteBytes));
    if (entry.number.ends_with('*')) {
        entry.prefix = true;
        entry.number.pop_back();
    }
    // An empty prefix would block every caller, and a number that a caller's line could never
    // deliver (controls, broken text, a "*" inside) is a typing slip, not an entry.
    if (!fitNumber(entry.number) || entry.number.find('*') != std::string::npos) return std::nullopt;
    return entry;
}

std::string BlockList::format(const Entry& entry)
{
    std::string line = entry.number + (entry.prefix ? "*" : "");
    if (!entry.note.empty()) line += "," + entry.note;
    return line;
}

std::vector<BlockList::Entry> BlockList::parseAll(const std::vector<std::string>& lines, std::string_view from) const
{
    std::vector<Entry> entries;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (text::trim(lines[i]).empty()) continue;
        if (auto entry = parse(lines[i])) entries.push_back(std::move(*entry));
        else log::warning("passed over line " + std::to_string(i + 1) + " of " + std::string(from) + ": no number to block");
    }
    return entries;
}

std::vector<BlockList::Entry> BlockList::entries() const { return parseAll(folder_.readLines(fileName), fileName); }

bool BlockList::blocks(std::string_view number) const
{
    const std::string caller = numberKey(number);
    if (caller.empty()) return false;
    const auto all = entries();
    return std::any_of(all.begin(), all.end(), [&](const Entry& entry) { return matches(entry, caller); });
}

bool BlockList::rewrite(const std::vector<Entry>& entries) const
{
    std::vector<std::string> lines;
    for (const Entry& entry : entries) lines.push_back(format(entry));
    if (folder_.rewriteLines(fileName, lines)) return true;
    log::warning("the block list was not changed");
    return false;
}

bool BlockList::add(std::string_view typed, std::string_view note)
{
    auto entry = parse(typed);
    if (!entry) {
        log::warning("not blocked: \"" + text::fromLine(typed, maxNumberBytes) + "\" is no telephone number");
        return false;
    }
    // Trimmed as a read trims it, so that the note written is the note read back.
    entry->note = std::string(text::trim(text::fromLine(text::removeAll(note, ','), maxNoteBytes)));
    auto all = entries();
    if (std::any_of(all.begin(), all.end(), [&](const Entry& other) { return sameEntry(other, *entry); })) return true;
    all.push_back(std::move(*entry));
    return rewrite(all);
}

bool BlockList::remove(std::string_view typed)
{
    const auto entry = parse(typed);
    if (!entry) return false;
    auto all = entries();
    const auto gone = std::remove_if(all.begin(), all.end(), [&](const Entry& other) { return sameEntry(other, *entry); });
    if (gone == all.end()) return false;
    all.erase(gone, all.end());
    return rewrite(all);
}

std::size_t BlockList::importFrom(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        log::warning("cannot read the block list to import from " + file.string());
        return 0;
    }
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(std::move(line));
    auto all = entries();
    std::size_t added = 0;
    for (Entry& entry : parseAll(lines, file.filename().string())) {
        if (std::any_of(all.begin(), all.end(), [&](const Entry& other) { return sameEntry(other, entry); })) continue;
        all.push_back(std::move(entry));
        ++added;
    }
    if (added > 0 && !rewrite(all)) return 0;
    return added;
}

bool BlockList::exportTo(const std::filesystem::path& file) const
{
    std::string content;
    for (const Entry& entry : entries()) (content += format(entry)) += "\r\n";
    if (replaceFile(file, content)) return true;
    log::warning("the block list could not be exported to " + file.string());
    return false;
}

} // namespace corvel

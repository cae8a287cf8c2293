#include "records/directory.h"

#include <algorithm>
#include <utility>

#include "base/log.h"
#include "base/text.h"
#include "records/typed_number.h"

namespace corvel {
namespace {

struct Entry {
    std::string_view number;
    std::optional<std::string_view> name; // none on a line without a ","
};

Entry split(std::string_view line)
{
    const auto comma = line.find(',');
    if (comma == std::string_view::npos) return {line, std::nullopt};
    return {line.substr(0, comma), line.substr(comma + 1)};
}

constexpr std::size_t maxNameBytes = 200;

bool isEntryFor(std::string_view line, std::string_view number)
{
    return text::lower(split(line).number) == text::lower(number);
}

} // namespace

Directory::Directory(const DataFolder& folder, View& view, CharacterSpeech& speech)
    : folder_(folder), view_(view), speech_(speech)
{
}

void Directory::loadcontacts()
{
    std::vector<std::string> items;
    for (const std::string& line : folder_.readLines(fileName)) {
        const Entry entry = split(line);
        items.push_back("Number: " + std::string(entry.number) + ", Name: " + std::string(entry.name.value_or("")));
    }
    view_.setListItems("contacts", items);
}

void Directory::addContact()
{
    const std::string typed = view_.inputBox("Please enter the full telephone number of your new contact",
                                             "Telephone number");
    if (typed.size() < 2) return;
    const std::string number = compactNumber(typed);
    const std::string name =
        view_.inputBox("Please enter the name you wish to hear when " + number + " calls you.", "Enter name");
    // One entry a line: a line break typed into the name would make a second one.
    folder_.appendLine(fileName, number + "," + text::fromLine(name, maxNameBytes));
    loadcontacts();
    speech_.say("Done");
}

void Directory::deleteContact()
{
    const std::string item = view_.selectedItem("contacts");
    if (item.size() < 2) {
        view_.messageBox(MessageIcon::Information, applicationTitle,
                         "You must HIGHLIGHT an entry from your contacts list before you can delete it");
        return;
    }
    const auto blank = item.find(' ');
    const std::string_view afterBlank = std::string_view(item).substr(blank == std::string::npos ? item.size() : blank + 1);
    const std::string number(afterBlank.substr(0, afterBlank.find(',')));
    // An entry without a number is matched by its empty number, not by every line.
    drop([&](const std::string& line) { return number.empty() ? line.starts_with(',') : text::containsNoCase(line, number); });
    speech_.say("Deleted");
    loadcontacts();
}

std::optional<std::string> Directory::entryNumber(std::string_view typed)
{
    std::string number = compactNumber(typed);
    if (!fitNumber(number)) return std::nullopt;
    return number;
}

bool Directory::set(std::string_view typed, std::string_view name)
{
    const auto number = entryNumber(typed);
    if (!number) {
        log::warning("no directory entry for \"" + text::fromLine(typed, maxTypedNumberBytes) + "\": no telephone number");
        return false;
    }
    // One entry a line: a line break in the name would make a second one.
    const std::string entry = *number + "," + text::fromLine(name, maxNameBytes);
    if (!holds(*number)) return folder_.appendLine(fileName, entry);
    std::vector<std::string> lines;
    bool placed = false;
    for (std::string& line : folder_.readLines(fileName)) {
        if (!isEntryFor(line, *number)) lines.push_back(std::move(line));
        else if (!std::exchange(placed, true)) lines.push_back(entry);
    }
    if (folder_.rewriteLines(fileName, lines, scratchName)) return true;
    log::warning("the directory entry for " + *number + " was not changed");
    return false;
}

bool Directory::remove(std::string_view typed)
{
    const auto number = entryNumber(typed);
    if (!number) return false;
    return drop([&](const std::string& line) { return isEntryFor(line, *number); });
}

bool Directory::drop(const std::function<bool(const std::string&)>& dropped) const
{
    std::vector<std::string> lines = folder_.readLines(fileName);
    if (std::erase_if(lines, dropped) == 0) return false;
    if (folder_.rewriteLines(fileName, lines, scratchName)) return true;
    log::warning("the directory entry was not deleted");
    return false;
}

std::optional<std::string> Directory::lookup(std::string_view number) const
{
    for (const std::string& line : folder_.readLines(fileName)) {
        if (!text::containsNoCase(line, number)) continue;
        if (const Entry entry = split(line); entry.name) return std::string(*entry.name);
    }
    return std::nullopt;
}

bool Directory::holds(std::string_view number) const
{
    if (number.empty()) return false;
    const auto lines = folder_.readLines(fileName);
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) { return isEntryFor(line, number); });
}

} // namespace corvel

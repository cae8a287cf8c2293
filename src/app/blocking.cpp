#include "app/blocking.h"

#include "base/text.h"

namespace corvel {

std::optional<std::string> Blocking::callerOf(std::string_view logLine)
{
    const auto when = logLine.rfind(", on ");
    const std::string caller(text::trim(logLine.substr(0, when)));
    // A keyed-digits line continues the one above it, and a caller with no number cannot be
    // told apart from the next one.
    if (logLine.starts_with(' ') || caller.empty() || caller == "Withheld" || caller == "Unavailable") return std::nullopt;
    if (!BlockList::parse(caller)) return std::nullopt;
    return caller;
}

bool Blocking::block(std::string_view number, std::string_view note)
{
    const bool done = list_.add(number, note);
    loadList();
    return done;
}

bool Blocking::unblock(std::string_view number)
{
    const bool done = list_.remove(number);
    loadList();
    return done;
}

bool Blocking::blockLastCaller()
{
    const auto lines = folder_.readLines(CallLog::fileName);
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (line->starts_with(' ')) continue;
        if (const auto caller = callerOf(*line); caller && block(*caller)) {
            speech_.say("Blocked");
            return true;
        }
        break;
    }
    cannotBlock();
    return false;
}

void Blocking::cannotBlock()
{
    view_.messageBox(MessageIcon::Information, applicationTitle,
                     "There is no caller's number to block: the caller withheld it, or there is no call yet.");
}

void Blocking::loadList()
{
    std::vector<std::string> items;
    for (const BlockList::Entry& entry : list_.entries()) items.push_back(BlockList::format(entry));
    view_.setListItems("lst_blocked", items);
}

void Blocking::blockSelectedCall()
{
    const auto caller = callerOf(view_.selectedItem("txt_reccalls"));
    if (!caller) return cannotBlock();
    if (block(*caller)) speech_.say("Blocked");
}

void Blocking::unblockSelectedCall()
{
    const auto caller = callerOf(view_.selectedItem("txt_reccalls"));
    if (caller && unblock(*caller)) speech_.say("Unblocked");
}

void Blocking::addClicked()
{
    const std::string typed =
        view_.inputBox("Please enter the telephone number to block, or the start of the numbers to block followed by *",
                       "Block a number");
    if (typed.size() < 2) return;
    const std::string note = view_.inputBox("A note for yourself about this number (you may leave it empty).", "Note");
    if (block(typed, note)) speech_.say("Done");
    else view_.messageBox(MessageIcon::Information, applicationTitle, "That is not a telephone number I can block.");
}

void Blocking::removeClicked()
{
    const std::string item = view_.selectedItem("lst_blocked");
    if (item.empty()) {
        view_.messageBox(MessageIcon::Information, applicationTitle,
                         "You must HIGHLIGHT an entry from your blocked numbers before you can remove it");
        return;
    }
    if (unblock(item.substr(0, item.find(',')))) speech_.say("Deleted");
}

void Blocking::importClicked()
{
    const std::string file = view_.openFileDialog("Text files (*.txt)|*.txt", {});
    if (file.size() < 2) return;
    const std::size_t added = list_.importFrom(file);
    loadList();
    speech_.say(std::to_string(added) + " numbers added");
}

void Blocking::exportClicked()
{
    const std::string file = view_.saveFileDialog("Text files (*.txt)|*.txt", "blocklist.txt");
    if (file.size() < 2) return;
    if (list_.exportTo(file)) speech_.say("Done");
}

} // namespace corvel

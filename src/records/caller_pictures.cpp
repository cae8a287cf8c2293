#include "records/caller_pictures.h"

#include <algorithm>

#include "base/log.h"
#include "base/text.h"
#include "records/typed_number.h"

namespace corvel {
namespace {

constexpr std::string_view noNumber = "You didn`t enter a telephone number. Please do this first";

bool isListed(std::string_view line, std::string_view number) { return text::lower(line) == text::lower(number); }

} // namespace

CallerPictures::CallerPictures(const DataFolder& folder, View& view, CharacterSpeech& speech,
                               CallerDisplay& display)
    : folder_(folder), view_(view), speech_(speech), display_(display)
{
}

std::string CallerPictures::typedNumber()
{
    const std::string number = text::removeAll(view_.text("txt_phone"), '-');
    view_.setText("txt_phone", number);
    return number;
}

void CallerPictures::add()
{
    if (view_.text("txt_phone").empty()) {
        speech_.say("Please enter a telephone number!");
        view_.messageBox(MessageIcon::Stop, applicationTitle, noNumber);
        return;
    }
    const std::string number = typedNumber();
    const auto lines = folder_.readLines(listName);
    if (std::any_of(lines.begin(), lines.end(), [&](const std::string& line) { return text::containsNoCase(line, number); })) {
        speech_.say("There is already an association to this number!");
        view_.messageBox(MessageIcon::Information, applicationTitle,
                         "The phone number you entered already has a picture associated with it. Please DELETE "
                         "this picture using the Delete button before you add a new one.");
        return;
    }
    const std::string chosen = view_.openFileDialog("Picture files (*.gif)|*.gif", {});
    if (chosen.size() < 2) {
        speech_.say("You did not select a file!");
        view_.messageBox(MessageIcon::Information, applicationTitle, "You didn`t select a file. Please try again!");
        return;
    }
    if (!set(number, chosen)) return;
    display_.loadPhoto(number + ".gif");
    display_.setLabel("Preview");
    display_.show();
}

std::optional<std::string> CallerPictures::listedNumber(std::string_view typed)
{
    std::string number = text::removeAll(typed, '-');
    // The number names its picture file, so it must be one plain file name as it is.
    if (!fitNumber(number) || text::fileNamePart(number, maxTypedNumberBytes) != number) return std::nullopt;
    return number;
}

bool CallerPictures::set(std::string_view typed, const std::filesystem::path& picture)
{
    const auto number = listedNumber(typed);
    if (!number) {
        log::warning("no picture for \"" + text::fromLine(typed, maxTypedNumberBytes) + "\": no telephone number");
        return false;
    }
    if (!folder_.copyIn(picture, *number + ".gif")) return false;
    const auto lines = folder_.readLines(listName);
    if (std::any_of(lines.begin(), lines.end(), [&](const std::string& line) { return isListed(line, *number); })) return true;
    return folder_.appendLine(listName, *number);
}

bool CallerPictures::remove(std::string_view typed)
{
    const auto number = listedNumber(typed);
    if (!number) return false;
    const auto lines = folder_.readLines(listName);
    const auto listed = [&](const std::string& line) { return isListed(line, *number); };
    if (std::none_of(lines.begin(), lines.end(), listed) || !unlist(listed, false)) return false;
    folder_.remove(*number + ".gif");
    return true;
}

bool CallerPictures::unlist(const std::function<bool(const std::string&)>& unlisted, bool keepStaleScratch)
{
    std::vector<std::string> lines = folder_.readLines(listName);
    std::erase_if(lines, unlisted);
    std::string kept;
    for (const std::string& line : lines) (kept += line) += "\r\n";
    // The window's delete appends to whatever an earlier, interrupted delete left in the scratch
    // file, as it always has; a scripted one writes it afresh.
    const bool written = keepStaleScratch ? folder_.writeFile(scratchName, kept, true) && folder_.replaceWith(scratchName, listName)
                                          : folder_.rewriteLines(listName, lines, scratchName);
    if (written) return true;
    log::warning("the picture association was not deleted");
    return false;
}

void CallerPictures::remove()
{
    const auto missing = [&] {
        speech_.say("The number you entered does not have a picture associated with it!");
        view_.messageBox(MessageIcon::Information, applicationTitle,
                         "The number you entered doesn`t have a picture associated with it, sorry");
    };
    if (view_.text("txt_phone").empty()) {
        speech_.say("You did not enter a telephone number. Please try again!");
        view_.messageBox(MessageIcon::Stop, applicationTitle, noNumber);
        return;
    }
    const std::string number = typedNumber();
    const auto lines = folder_.readLines(listName);
    const auto matches = [&](const std::string& line) { return text::containsNoCase(line, number); };
    if (std::none_of(lines.begin(), lines.end(), matches)) {
        missing();
        return;
    }
    if (!unlist(matches, true)) return;
    if (folder_.exists(number + ".gif")) folder_.remove(number + ".gif");
    view_.beep();
}

void CallerPictures::next()
{
    const auto lines = folder_.readLines(listName);
    if (lines.empty()) return;
    const std::string number = text::removeAll(view_.text("txt_phone"), '-');
    const auto match = std::find_if(lines.begin(), lines.end(),
                                    [&](const std::string& line) { return text::containsNoCase(line, number); });
    const bool following = match != lines.end() && std::next(match) != lines.end();
    showEntry(following ? *std::next(match) : lines.front());
}

void CallerPictures::previous()
{
    const auto lines = folder_.readLines(listName);
    if (lines.empty()) return;
    const std::string number = text::removeAll(view_.text("txt_phone"), '-');
    const auto match = std::find_if(lines.begin(), lines.end(),
                                    [&](const std::string& line) { return text::containsNoCase(line, number); });
    // From the first entry, or from a number not in the list, round to the last.
    showEntry(match == lines.end() || match == lines.begin() ? lines.back() : *std::prev(match));
}

void CallerPictures::showEntry(std::string_view line)
{
    const std::string number = text::removeAll(line, '-');
    view_.setText("txt_phone", number);
    display_.loadPhoto(number + ".gif");
    display_.setLabel(number);
    display_.show();
}

} // namespace corvel

#include "app/headless_view.h"

#include "base/log.h"

namespace corvel {

std::string HeadlessView::text(std::string_view control) const
{
    const auto found = texts_.find(control);
    return found == texts_.end() ? std::string() : found->second;
}

bool HeadlessView::isChecked(std::string_view box) const
{
    const auto found = checked_.find(box);
    return found != checked_.end() && found->second;
}

void HeadlessView::moveMainWindow(double left, double top)
{
    placement_.left = left;
    placement_.top = top;
}

void HeadlessView::showPickup()
{
    log::info("a caller waits to be put through: \"corvel --pick-up\" takes the call");
}

void HeadlessView::showDesktopCall(std::string_view caller)
{
    log::info("on the computer's microphone and speaker with " + (caller.empty() ? std::string("the caller") : std::string(caller)) +
              ": \"corvel --hang-up\" ends the call");
}

void HeadlessView::closeDesktopCall() { log::info("the call on the computer's microphone and speaker is over"); }

void HeadlessView::messageBox(MessageIcon, std::string_view title, std::string_view text)
{
    log::info("message box \"" + std::string(title) + "\": " + std::string(text));
}

bool HeadlessView::askYesNo(std::string_view title, std::string_view text)
{
    log::info("question \"" + std::string(title) + "\": " + std::string(text) + " (answered No: nobody is here to agree)");
    return false;
}

std::string HeadlessView::inputBox(std::string_view prompt, std::string_view title)
{
    log::info("input box \"" + std::string(title) + "\": " + std::string(prompt) + " (cancelled)");
    return {};
}

std::string HeadlessView::openFileDialog(std::string_view filter, const std::filesystem::path&)
{
    log::info("file dialog " + std::string(filter) + " (cancelled)");
    return {};
}

void HeadlessView::endProgram()
{
    log::info("Corvel ends");
    quit_();
}

} // namespace corvel

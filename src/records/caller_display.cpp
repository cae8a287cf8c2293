#include "records/caller_display.h"

#include <algorithm>
#include <string>

namespace corvel {

DisplayLayout displayLayout(double pictureWidth, double pictureHeight, double labelHeight)
{
    const double width = std::max(pictureWidth, CallerDisplay::minimumWidth);
    return {width, pictureHeight, pictureHeight, pictureHeight + labelHeight};
}

CallerDisplay::CallerDisplay(EventLoop& loop, View& view, const DataFolder& folder)
    : view_(view), folder_(folder),
      closeTimer_(loop.createTimer([this] { unload(); }, TimerKind::SingleShot))
{
    closeTimer_->setInterval(Milliseconds{15000});
}

bool CallerDisplay::loadPhoto(std::string_view name)
{
    const auto path = folder_.file(name);
    if (!path || !view_.loadPicture("photo", *path)) return false;
    picture_ = *path;
    return true;
}

void CallerDisplay::loadPhotoOrDefault(std::string_view name)
{
    if (!loadPhoto(std::string(name) + ".gif")) loadPhoto("default.gif");
}

void CallerDisplay::setLabel(std::string_view text) { view_.setText("lab_number", text); }

void CallerDisplay::show()
{
    view_.showCallerPicture();
    closeTimer_->restart();
}

void CallerDisplay::unload()
{
    closeTimer_->setEnabled(false);
    view_.unloadCallerPicture();
}

} // namespace corvel

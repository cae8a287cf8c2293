#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "base/data_folder.h"
#include "base/event_loop.h"
#include "base/view.h"

namespace corvel {

// How frm_display lays out a picture with its label beneath, in twips.
struct DisplayLayout {
    double width = 0;       // of the window, the picture box and the label
    double photoHeight = 0;
    double labelTop = 0;
    double height = 0;      // of the window's inside
};

// The label stands right under the picture and the window holds both; a narrow picture does
// not make the window narrower than `minimumWidth`.
DisplayLayout displayLayout(double pictureWidth, double pictureHeight, double labelHeight);

// frm_display: a caller's picture and a line of text beneath it. It closes itself 15 seconds
// after it was last shown, or when it is clicked.
class CallerDisplay {
public:
    static constexpr double minimumWidth = 2895;

    CallerDisplay(EventLoop& loop, View& view, const DataFolder& folder);

    // Shows the picture file `name` of the data folder; false when there is none to show.
    bool loadPhoto(std::string_view name);
    // `name` + ".gif", or "default.gif" when that cannot be shown.
    void loadPhotoOrDefault(std::string_view name);
    void setLabel(std::string_view text);
    // The picture file last shown; empty before any.
    const std::filesystem::path& picture() const { return picture_; }
    void show();
    void unload();
    void clicked() { unload(); } // on the picture or on the label

private:
    View& view_;
    const DataFolder& folder_;
    std::unique_ptr<Timer> closeTimer_;
    std::filesystem::path picture_;
};

} // namespace corvel

#pragma once

#include <string>
#include <string_view>

#include "base/call_events.h"
#include "base/data_folder.h"
#include "base/view.h"

namespace corvel {

// The digit pictures "digits/<d>.gif" shown by the two-place counters on the main window.
class TwoDigitIndicator {
public:
    TwoDigitIndicator(View& view, const DataFolder& folder, CallEvents& events)
        : view_(view), folder_(folder), events_(events)
    {
    }

    // Below 10 a "0" then the count; otherwise the first two characters of its decimal
    // text, so 100 shows "10". Followers of the calls hear that a count was drawn.
    void show(std::string_view tens, std::string_view units, int count) const;
    // Loads the picture of `digit` (a digit's text) into `control`; a picture that fails to
    // load leaves the control as it was.
    void showDigit(std::string_view control, std::string_view digit) const;

private:
    View& view_;
    const DataFolder& folder_;
    CallEvents& events_;
};

} // namespace corvel

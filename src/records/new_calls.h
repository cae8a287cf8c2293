#pragma once

#include <cstdint>

#include "base/two_digit_indicator.h"

namespace corvel {

// The count of calls since the user last looked, on the two-place indicator newcall1/newcall2.
class NewCalls {
public:
    explicit NewCalls(const TwoDigitIndicator& indicator) : indicator_(indicator) {}

    void count();  // a new call has rung
    void reset();  // Label19, and playing a message
    void show() const { indicator_.show("newcall1", "newcall2", newCallCount_); }
    std::int16_t newCallCount() const { return newCallCount_; }

private:

    const TwoDigitIndicator& indicator_;
    std::int16_t newCallCount_ = 0;
};

} // namespace corvel

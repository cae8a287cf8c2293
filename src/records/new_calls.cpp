#include "records/new_calls.h"

#include <limits>

namespace corvel {

void NewCalls::count()
{
    // A 16-bit count: it stops at its top rather than running over.
    if (newCallCount_ < std::numeric_limits<std::int16_t>::max()) ++newCallCount_;
    show();
}

void NewCalls::reset()
{
    newCallCount_ = 0;
    show();
}

} // namespace corvel

#include "records/blocked_calls.h"

#include <limits>

namespace corvel {

void BlockedCalls::record(std::string_view callerText)
{
    folder_.appendLine(fileName, log_.stamped(callerText));
    if (count_ < std::numeric_limits<int>::max()) ++count_;
    show();
}

void BlockedCalls::reset()
{
    count_ = 0;
    show();
}

} // namespace corvel

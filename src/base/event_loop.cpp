#include "base/event_loop.h"

namespace corvel {

double Clock::secondsSinceMidnight() const
{
    const LocalTime local = localNow();
    const auto sinceMidnight = local - std::chrono::floor<std::chrono::days>(local);
    return std::chrono::duration<double>(sinceMidnight).count();
}

} // namespace corvel

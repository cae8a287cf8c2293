#include "base/locale_texts.h"

#include <cstdio>

namespace corvel {

std::string timeWithDesignator(std::chrono::hh_mm_ss<std::chrono::seconds> time, const LocaleTexts& locale)
{
    const auto hour = static_cast<int>(time.hours().count());
    const int twelveHour = hour % 12 == 0 ? 12 : hour % 12;
    char clock[16];
    std::snprintf(clock, sizeof clock, "%d:%02d:%02d ", twelveHour, static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return clock + (hour < 12 ? locale.amText() : locale.pmText());
}

} // namespace corvel

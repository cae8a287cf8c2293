#pragma once

#include <chrono>
#include <string>

namespace corvel {

// Dates and times as the user's locale (LC_TIME) writes them.
class LocaleTexts {
public:
    virtual ~LocaleTexts() = default;
    virtual std::string longDate(std::chrono::year_month_day date) const = 0;
    // The locale's designators, or "AM" and "PM" where it has none.
    virtual std::string amText() const = 0;
    virtual std::string pmText() const = 0;
};

// The time as "h:mm:ss AMPM": 12-hour clock, no leading zero on the hour.
std::string timeWithDesignator(std::chrono::hh_mm_ss<std::chrono::seconds> time, const LocaleTexts& locale);

} // namespace corvel

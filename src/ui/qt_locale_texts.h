#pragma once

#include "base/locale_texts.h"

namespace corvel {

// The user's locale as Qt reads it from the environment (LC_ALL, LC_TIME, LANG).
class QtLocaleTexts final : public LocaleTexts {
public:
    std::string longDate(std::chrono::year_month_day date) const override;
    std::string amText() const override;
    std::string pmText() const override;
};

} // namespace corvel

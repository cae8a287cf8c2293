#include "base/two_digit_indicator.h"

namespace corvel {

void TwoDigitIndicator::show(std::string_view tens, std::string_view units, int count) const
{
    const std::string digits = count < 10 ? "0" + std::to_string(count) : std::to_string(count);
    showDigit(tens, digits.substr(0, 1));
    showDigit(units, digits.substr(1, 1));
    events_.countsChanged();
}

void TwoDigitIndicator::showDigit(std::string_view control, std::string_view digit) const
{
    view_.loadPicture(control, folder_.root() / "digits" / (std::string(digit) + ".gif"));
}

} // namespace corvel

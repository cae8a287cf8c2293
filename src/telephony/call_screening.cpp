#include "telephony/call_screening.h"

#include <chrono>

#include "base/log.h"
#include "base/text.h"

namespace corvel {

std::optional<int> CallScreening::minuteOfDay(std::string_view text)
{
    text = text::trim(text);
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon > 2 || text.size() != colon + 3) return std::nullopt;
    int hours = 0, minutes = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i == colon) continue;
        if (text[i] < '0' || text[i] > '9') return std::nullopt;
        int& part = i < colon ? hours : minutes;
        part = part * 10 + (text[i] - '0');
    }
    if (hours > 23 || minutes > 59) return std::nullopt;
    return hours * 60 + minutes;
}

bool CallScreening::within(int minute, int from, int to)
{
    if (from <= to) return minute >= from && minute < to;
    return minute >= from || minute < to;
}

bool CallScreening::quietHours() const
{
    if (!settings::dataFlag(with_.settings, "quiet", "False")) return false;
    const std::string fromText = settings::readData(with_.settings, "quietfrom", "22:00");
    const std::string toText = settings::readData(with_.settings, "quietto", "07:00");
    const auto from = minuteOfDay(fromText), to = minuteOfDay(toText);
    if (!from || !to) {
        log::warning("quiet hours from \"" + text::fromLine(fromText, 16) + "\" to \"" + text::fromLine(toText, 16) +
                     "\" are no times of day (hh:mm); they are not kept");
        return false;
    }
    const auto now = std::chrono::floor<std::chrono::minutes>(with_.clock.localNow());
    const auto minute = (now - std::chrono::floor<std::chrono::days>(now)).count();
    return within(static_cast<int>(minute), *from, *to);
}

CallScreen CallScreening::judge(std::string_view number, bool withheld, bool unavailable) const
{
    if (withheld && settings::dataFlag(with_.settings, "blockwithheld", "False")) return CallScreen::Blocked;
    if (unavailable && settings::dataFlag(with_.settings, "blockunavailable", "False")) return CallScreen::Blocked;
    const bool delivered = !withheld && !unavailable;
    const std::string digitsOnly = text::removeAll(number, '-');
    if (delivered && with_.blockList.blocks(digitsOnly)) return CallScreen::Blocked;
    if (delivered && settings::dataFlag(with_.settings, "trusted", "False") && with_.directory.holds(digitsOnly))
        return CallScreen::Trusted;
    return quietHours() ? CallScreen::Quiet : CallScreen::Ordinary;
}

} // namespace corvel

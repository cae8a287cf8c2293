#include "messages/message_hook.h"

#include <chrono>
#include <cstdio>

#include "base/exec_line.h"
#include "base/log.h"
#include "base/text.h"

namespace corvel {

std::string MessageHook::callerArgument(std::string_view caller)
{
    std::string text = text::fromLine(caller, 64);
    const auto first = text.find_first_not_of("- ");
    text.erase(0, first == std::string::npos ? text.size() : first);
    return text.empty() ? "Unknown" : text;
}

std::string MessageHook::timeText() const
{
    using namespace std::chrono;
    const auto now = floor<seconds>(clock_.localNow());
    const auto day = floor<days>(now);
    const year_month_day date(day);
    const hh_mm_ss<seconds> time(now - day);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return text;
}

void MessageHook::messageRecorded(const std::filesystem::path& message, std::string_view caller)
{
    const std::string command = settings::readData(settings_, "messagecommand", "");
    if (text::trim(command).empty()) return;
    auto arguments = splitExecLine(command);
    if (!arguments) {
        log::warning("the message command \"" + text::fromLine(command, 200) + "\" has an open quote; not started");
        return;
    }
    const std::string callerText = callerArgument(caller), time = timeText();
    // The file's path is absolute, so it cannot pass for an option either.
    const std::string file = std::filesystem::absolute(message).string();
    arguments->insert(arguments->end(), {file, callerText, time});
    shell_.startCommand(*arguments, {{"CORVEL_MESSAGE", file}, {"CORVEL_CALLER", callerText}, {"CORVEL_TIME", time}});
}

} // namespace corvel

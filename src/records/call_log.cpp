#include "records/call_log.h"

#include "base/text.h"

namespace corvel {
namespace {

// Generous for any real record; a longer one is cut rather than trusted.
constexpr std::size_t maxRecordBytes = 1024;

} // namespace

CallLog::CallLog(const DataFolder& folder, const Clock& clock, const LocaleTexts& locale, View& view,
                 CharacterSpeech& speech)
    : folder_(folder), clock_(clock), locale_(locale), view_(view), speech_(speech)
{
}

std::string CallLog::tail() const
{
    using namespace std::chrono;
    const auto now = floor<seconds>(clock_.localNow());
    const auto day = floor<days>(now);
    return ", on " + locale_.longDate(year_month_day(day)) + ", at " +
           timeWithDesignator(hh_mm_ss<seconds>(now - day), locale_);
}

std::string CallLog::stamped(std::string_view record) const { return text::fromLine(record, maxRecordBytes) + tail(); }

void CallLog::append(std::string_view record) { folder_.appendLine(fileName, stamped(record)); }

std::string CallLog::recentCalls() const
{
    if (!folder_.exists(fileName)) return "No call data";
    const auto lines = folder_.readLines(fileName);
    std::size_t size = 0;
    for (const auto& line : lines) size += line.size() + 2;
    std::string text;
    text.reserve(size);
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) (text += *line) += "\r\n";
    return text;
}

void CallLog::rebuild() { view_.setText("txt_reccalls", recentCalls()); }

void CallLog::reset()
{
    speech_.say("Are you sure about this?");
    if (view_.askYesNo("Warning!", "Are you sure you want to delete this information?")) folder_.remove(fileName);
    rebuild();
}

} // namespace corvel

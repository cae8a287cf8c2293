#include "telephony/testline/caller_audio.h"

#include <algorithm>

namespace corvel {

CallerAudio::CallerAudio(const std::filesystem::path& speech, Milliseconds speechAt)
    : speechAt_(speechAt)
{
    if (speech.empty()) return;
    if (auto samples = readLineAudio(speech)) speech_ = std::move(*samples);
}

std::vector<std::int16_t> CallerAudio::samples(Milliseconds from, Milliseconds to) const
{
    if (to <= from) return {};
    const std::int64_t first = from.count() * lineSamplesPerMillisecond;
    std::vector<std::int16_t> out(static_cast<std::size_t>((to - from).count() * lineSamplesPerMillisecond));
    // The stretch of the speech that falls between `from` and `to`.
    const std::int64_t speechStart = speechAt_.count() * lineSamplesPerMillisecond;
    const std::int64_t begin = std::max(first, speechStart);
    const std::int64_t end = std::min(first + static_cast<std::int64_t>(out.size()),
                                      speechStart + static_cast<std::int64_t>(speech_.size()));
    if (begin < end) {
        std::copy(speech_.begin() + (begin - speechStart), speech_.begin() + (end - speechStart),
                  out.begin() + (begin - first));
    }
    return out;
}

} // namespace corvel

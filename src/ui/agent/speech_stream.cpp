#include "ui/agent/speech_stream.h"

#include <algorithm>

namespace corvel {

void SpeechStream::append(const std::int16_t* samples, std::size_t count)
{
    std::lock_guard lock(mutex_);
    samples_.insert(samples_.end(), samples, samples + count);
    produced_ += static_cast<std::int64_t>(count);
}

void SpeechStream::appendSilence(std::size_t count)
{
    std::lock_guard lock(mutex_);
    samples_.insert(samples_.end(), count, 0);
    produced_ += static_cast<std::int64_t>(count);
}

void SpeechStream::mark(Mark mark)
{
    std::lock_guard lock(mutex_);
    marks_.push_back(mark);
}

void SpeechStream::finish()
{
    std::lock_guard lock(mutex_);
    finished_ = true;
}

std::int64_t SpeechStream::produced() const
{
    std::lock_guard lock(mutex_);
    return produced_;
}

std::size_t SpeechStream::read(std::int16_t* out, std::size_t count)
{
    std::lock_guard lock(mutex_);
    const std::size_t n = std::min(count, samples_.size());
    std::copy_n(samples_.begin(), n, out);
    samples_.erase(samples_.begin(), samples_.begin() + static_cast<std::ptrdiff_t>(n));
    played_ += static_cast<std::int64_t>(n);
    if (n > 0 && !firstPlayed_) firstPlayed_ = std::chrono::steady_clock::now();
    return n;
}

void SpeechStream::skipTo(std::int64_t sample)
{
    std::lock_guard lock(mutex_);
    const auto n = static_cast<std::size_t>(std::clamp<std::int64_t>(sample - played_, 0, static_cast<std::int64_t>(samples_.size())));
    samples_.erase(samples_.begin(), samples_.begin() + static_cast<std::ptrdiff_t>(n));
    played_ += static_cast<std::int64_t>(n);
    if (n > 0 && !firstPlayed_) firstPlayed_ = std::chrono::steady_clock::now();
}

std::optional<std::chrono::steady_clock::time_point> SpeechStream::firstPlayed() const
{
    std::lock_guard lock(mutex_);
    return firstPlayed_;
}

std::int64_t SpeechStream::played() const
{
    std::lock_guard lock(mutex_);
    return played_;
}

bool SpeechStream::finished() const
{
    std::lock_guard lock(mutex_);
    return finished_;
}

bool SpeechStream::done() const
{
    std::lock_guard lock(mutex_);
    return finished_ && samples_.empty();
}

std::vector<SpeechStream::Mark> SpeechStream::dueMarks()
{
    std::lock_guard lock(mutex_);
    std::vector<Mark> due;
    while (!marks_.empty() && marks_.front().sample <= played_) {
        due.push_back(marks_.front());
        marks_.pop_front();
    }
    return due;
}

} // namespace corvel

#include "ui/agent/agent_audio.h"

#include <sndfile.h>

#include <QAudioDevice>
#include <QAudioSink>
#include <QBuffer>
#include <QIODevice>
#include <QMediaDevices>
#include <algorithm>
#include <cstring>
#include <optional>

#include "base/log.h"

namespace corvel {
namespace {

// Hands the stream's samples to the audio sink as it asks for them.
class StreamSource final : public QIODevice {
public:
    explicit StreamSource(std::shared_ptr<SpeechStream> stream) : stream_(std::move(stream)) {}
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return stream_->done() ? 0 : 1 << 16; }

protected:
    qint64 readData(char* data, qint64 size) override
    {
        const std::size_t samples = stream_->read(reinterpret_cast<std::int16_t*>(data), static_cast<std::size_t>(size / 2));
        return static_cast<qint64>(samples * 2);
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    std::shared_ptr<SpeechStream> stream_;
};

// libsndfile reading from memory.
struct Memory {
    const std::vector<std::uint8_t>* bytes;
    sf_count_t at = 0;
};

sf_count_t memoryLength(void* user) { return static_cast<sf_count_t>(static_cast<Memory*>(user)->bytes->size()); }
sf_count_t memorySeek(sf_count_t offset, int whence, void* user)
{
    auto* m = static_cast<Memory*>(user);
    const sf_count_t size = static_cast<sf_count_t>(m->bytes->size());
    sf_count_t to = whence == SEEK_SET ? offset : whence == SEEK_CUR ? m->at + offset : size + offset;
    m->at = std::clamp<sf_count_t>(to, 0, size);
    return m->at;
}
sf_count_t memoryRead(void* out, sf_count_t count, void* user)
{
    auto* m = static_cast<Memory*>(user);
    const sf_count_t n = std::clamp<sf_count_t>(static_cast<sf_count_t>(m->bytes->size()) - m->at, 0, count);
    std::memcpy(out, m->bytes->data() + m->at, static_cast<std::size_t>(n));
    m->at += n;
    return n;
}
sf_count_t memoryWrite(const void*, sf_count_t, void*) { return 0; }
sf_count_t memoryTell(void* user) { return static_cast<Memory*>(user)->at; }

} // namespace

bool audioOutputPresent()
{
    static bool warned = false;
    const bool present = !QMediaDevices::defaultAudioOutput().isNull();
    if (!present && !warned) {
        warned = true;
        log::info("no audio output: the character speaks silently");
    }
    return present;
}

// ---- speech

SpeechPlayer::SpeechPlayer(QObject* parent) : QObject(parent) {}

SpeechPlayer::~SpeechPlayer() { stop(); }

void SpeechPlayer::play(std::shared_ptr<SpeechStream> stream)
{
    stop();
    stream_ = std::move(stream);
    clock_.start();
    silent_ = true;
    startSink();
}

void SpeechPlayer::startSink()
{
    if (!audioOutputPresent()) return;
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    QAudioFormat format;
    format.setSampleRate(stream_->sampleRate());
    format.setChannelCount(1);
    format.setSampleFormat(QAudioFormat::Int16);
    if (!device.isFormatSupported(format)) {
        static bool warned = false;
        if (!warned) log::info("the audio output cannot play speech as it is made: the character speaks silently");
        warned = true;
        return;
    }
    sink_ = std::make_unique<QAudioSink>(device, format);
    // Short, for the words to start soon after they are asked for.
    sink_->setBufferSize(format.bytesForDuration(80'000));
    source_ = std::make_unique<StreamSource>(stream_);
    source_->open(QIODevice::ReadOnly);
    sink_->start(source_.get());
    if (sink_->error() != QAudio::NoError) {
        sink_.reset();
        source_.reset();
        return;
    }
    silent_ = false;
}

void SpeechPlayer::stop()
{
    if (stream_) stream_->cancel();
    if (sink_) sink_->stop();
    sink_.reset();
    source_.reset();
    stream_.reset();
}

void SpeechPlayer::tick()
{
    if (!stream_) return;
    if (sink_ && sink_->error() != QAudio::NoError && sink_->error() != QAudio::UnderrunError) {
        // The device went away mid-speech: the rest plays on the clock from where it stopped.
        log::info("the audio output failed: the character goes on silently");
        sink_->stop();
        sink_.reset();
        source_.reset();
        silent_ = true;
        clock_.restart();
    }
    if (silent_) {
        const qint64 nanoseconds = clock_.nsecsElapsed();
        clock_.restart();
        stream_->skipTo(stream_->played() + nanoseconds * stream_->sampleRate() / 1'000'000'000);
    }
}

// ---- sound effects

std::optional<SoundEffects::Sound> decodeWave(const std::vector<std::uint8_t>& wave)
{
    Memory memory{&wave};
    SF_VIRTUAL_IO io{memoryLength, memorySeek, memoryRead, memoryWrite, memoryTell};
    SF_INFO info{};
    SNDFILE* file = sf_open_virtual(&io, SFM_READ, &info, &memory);
    if (!file) return std::nullopt;
    SoundEffects::Sound sound;
    if (info.channels < 1 || info.channels > 8 || info.frames < 0 || info.frames > 48000 * 600 || info.samplerate <= 0) {
        sf_close(file);
        return std::nullopt;
    }
    sound.samples.resize(static_cast<std::size_t>(info.frames) * static_cast<std::size_t>(info.channels));
    const sf_count_t read = sf_readf_short(file, sound.samples.data(), info.frames);
    sf_close(file);
    sound.samples.resize(static_cast<std::size_t>(std::max<sf_count_t>(read, 0)) * static_cast<std::size_t>(info.channels));
    sound.format.setSampleRate(info.samplerate);
    sound.format.setChannelCount(info.channels);
    sound.format.setSampleFormat(QAudioFormat::Int16);
    return sound;
}

SoundEffects::SoundEffects(QObject* parent) : QObject(parent) {}

SoundEffects::~SoundEffects() { stop(); }

void SoundEffects::load(const std::vector<std::vector<std::uint8_t>>& waves)
{
    clear();
    for (const auto& wave : waves) {
        auto sound = decodeWave(wave);
        sounds_.push_back(sound ? std::move(*sound) : Sound{});
    }
}

void SoundEffects::clear()
{
    stop();
    sounds_.clear();
}

void SoundEffects::play(int index)
{
    if (!enabled_ || index < 0 || static_cast<std::size_t>(index) >= sounds_.size()) return;
    const Sound& sound = sounds_[static_cast<std::size_t>(index)];
    if (sound.samples.empty()) return;
    const auto length = std::chrono::microseconds(
        static_cast<std::int64_t>(sound.samples.size() / static_cast<std::size_t>(sound.format.channelCount())) * 1'000'000 /
        sound.format.sampleRate());
    busyUntil_ = std::max(busyUntil_, std::chrono::steady_clock::now() + length);
    // Sinks that have finished are let go.
    std::erase_if(playing_, [](const std::unique_ptr<QAudioSink>& s) {
        return s->state() == QAudio::IdleState || s->state() == QAudio::StoppedState;
    });
    if (!audioOutputPresent()) return;
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    if (!device.isFormatSupported(sound.format)) return;
    auto sink = std::make_unique<QAudioSink>(device, sound.format);
    auto* buffer = new QBuffer(sink.get());
    buffer->setData(reinterpret_cast<const char*>(sound.samples.data()),
                    static_cast<qsizetype>(sound.samples.size() * sizeof(std::int16_t)));
    buffer->open(QIODevice::ReadOnly);
    sink->start(buffer);
    playing_.push_back(std::move(sink));
}

void SoundEffects::stop()
{
    for (auto& sink : playing_) sink->stop();
    playing_.clear();
    busyUntil_ = {};
}

} // namespace corvel

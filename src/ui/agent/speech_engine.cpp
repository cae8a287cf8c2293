#include "ui/agent/speech_engine.h"

#include <espeak-ng/speak_lib.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "base/log.h"

namespace corvel {
namespace {

// What the callback writes into: the stream of the part being made, and where the part's
// samples and its balloon text begin.
struct Making {
    SpeechStream* stream = nullptr;
    std::int64_t partStart = 0;
    const SpeechPart* part = nullptr;
    std::size_t shownStart = 0;
    int rate = 22050;
};
thread_local Making* making = nullptr;

// The byte offset of character `characters` of UTF-8 `text`.
std::size_t byteOffset(const std::string& text, int characters)
{
    std::size_t at = 0;
    for (int seen = 0; at < text.size(); ++at) {
        if ((static_cast<unsigned char>(text[at]) & 0xC0) != 0x80) {
            if (seen == characters) return at;
            ++seen;
        }
    }
    return text.size();
}

int synthesised(short* wav, int count, espeak_EVENT* events)
{
    Making* m = making;
    if (!m || !m->stream) return 1;
    for (espeak_EVENT* e = events; e && e->type != espeakEVENT_LIST_TERMINATED; ++e) {
        const std::int64_t at = m->partStart + static_cast<std::int64_t>(e->audio_position) * m->rate / 1000;
        if (e->type == espeakEVENT_WORD && m->part->spoken == m->part->shown) {
            const std::size_t end = byteOffset(m->part->shown, e->text_position - 1 + e->length);
            m->stream->mark({at, SpeechStream::Mark::Kind::Word, static_cast<int>(m->shownStart + end)});
        } else if (e->type == espeakEVENT_PHONEME) {
            const std::string name(e->id.string, strnlen(e->id.string, sizeof e->id.string));
            m->stream->mark({at, SpeechStream::Mark::Kind::Mouth, visemeForPhoneme(name)});
        }
    }
    if (wav && count > 0) m->stream->append(reinterpret_cast<const std::int16_t*>(wav), static_cast<std::size_t>(count));
    return m->stream->cancelled() ? 1 : 0;
}

} // namespace

SpeechEngine& SpeechEngine::instance()
{
    // Never destroyed: espeak-ng cannot be shut down and started again in one process, and its
    // thread may be mid-speech when the process ends.
    static SpeechEngine* engine = new SpeechEngine;
    return *engine;
}

SpeechEngine::SpeechEngine() : ready_(readyPromise_.get_future().share())
{
    thread_ = std::thread([this] { run(); });
    thread_.detach();
    post([this] { start(); });
}

bool SpeechEngine::waitReady() { return ready_.get(); }

void SpeechEngine::post(std::function<void()> job)
{
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    wake_.notify_one();
}

void SpeechEngine::run()
{
    while (true) {
        std::function<void()> job;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return !jobs_.empty(); });
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
    }
}

void SpeechEngine::start()
{
    const int rate = espeak_Initialize(AUDIO_OUTPUT_SYNCHRONOUS, 40, nullptr,
                                       espeakINITIALIZE_PHONEME_EVENTS | espeakINITIALIZE_DONT_EXIT);
    if (rate <= 0) {
        log::warning("the character cannot speak: espeak-ng did not start (is espeak-ng-data installed?)");
        readyPromise_.set_value(false);
        return;
    }
    rate_ = rate;
    espeak_SetSynthCallback(synthesised);
    readyPromise_.set_value(true);
}

std::shared_ptr<SpeechStream> SpeechEngine::speak(std::vector<SpeechPart> parts, EngineVoice voice, int gender)
{
    auto stream = std::make_shared<SpeechStream>(rate_);
    post([this, stream, parts = std::move(parts), voice = std::move(voice), gender] {
        if (ready_.get() && !stream->cancelled()) make(parts, voice, gender, *stream);
        stream->finish();
    });
    return stream;
}

std::future<std::string> SpeechEngine::phonemes(std::string word)
{
    auto promise = std::make_shared<std::promise<std::string>>();
    auto result = promise->get_future();
    post([this, promise, word = std::move(word)] {
        std::string out;
        if (ready_.get() && espeak_SetVoiceByName("en-us") == EE_OK) {
            const void* text = word.c_str();
            while (text) {
                const char* p = espeak_TextToPhonemes(&text, espeakCHARS_UTF8, ' ' << 8);
                if (p) out += (out.empty() ? "" : " ") + std::string(p);
            }
        }
        promise->set_value(out);
    });
    return result;
}

void SpeechEngine::make(const std::vector<SpeechPart>& parts, const EngineVoice& voice, int gender, SpeechStream& stream)
{
    if (espeak_SetVoiceByName(voice.name.c_str()) != EE_OK && espeak_SetVoiceByName("en-us") != EE_OK) return;
    Making m;
    m.stream = &stream;
    m.rate = rate_;
    making = &m;
    std::size_t shown = 0;
    for (const SpeechPart& part : parts) {
        if (stream.cancelled()) break;
        m.partStart = stream.produced();
        m.part = &part;
        m.shownStart = shown;
        if (part.pause > 0) {
            stream.appendSilence(static_cast<std::size_t>(part.pause) * static_cast<std::size_t>(rate_) / 1000);
        } else if (!part.spoken.empty()) {
            int rate = part.voice.speed ? engineRate(*part.voice.speed) : voice.rate;
            int pitch = part.voice.pitch ? enginePitch(*part.voice.pitch, gender) : voice.pitch;
            int volume = part.voice.volume ? engineVolume(*part.voice.volume) : 100;
            if (part.emphasis) { // stressed: higher, louder, a little slower
                pitch = std::min(100, pitch + 15);
                volume = std::min(200, volume * 5 / 4);
                rate = engineRate(rate * 9 / 10);
            }
            espeak_SetParameter(espeakRATE, rate, 0);
            espeak_SetParameter(espeakPITCH, pitch, 0);
            espeak_SetParameter(espeakVOLUME, volume, 0);
            // A text said in place of another shows the other as it starts.
            if (part.spoken != part.shown)
                stream.mark({m.partStart, SpeechStream::Mark::Kind::Word, static_cast<int>(shown + part.shown.size())});
            espeak_Synth(part.spoken.c_str(), part.spoken.size() + 1, 0, POS_CHARACTER, 0, espeakCHARS_UTF8, nullptr,
                         nullptr);
        } else if (!part.shown.empty()) {
            stream.mark({m.partStart, SpeechStream::Mark::Kind::Word, static_cast<int>(shown + part.shown.size())});
        }
        shown += part.shown.size();
        // The whole part shows once it is said, its punctuation too; the mouth closes between parts.
        stream.mark({stream.produced(), SpeechStream::Mark::Kind::Word, static_cast<int>(shown)});
        stream.mark({stream.produced(), SpeechStream::Mark::Kind::Mouth, 0});
    }
    making = nullptr;
}

} // namespace corvel

#include "ui/agent/voice_commands.h"

#include <pocketsphinx.h>

#include <QAudioDevice>
#include <QAudioFormat>
#include <QAudioSource>
#include <QGuiApplication>
#include <QMediaDevices>
#include <QtGui/qguiapplication_platform.h>

#include "base/log.h"
#include "character/voice_grammar.h"
#include "character/voice_hints.h"
#include "ui/agent/speech_engine.h"
#include "ui/agent/x11_keys.h"

namespace corvel {
namespace {

constexpr int recogniserRate = 16000;
constexpr int maxSeconds = 15; // a key held longer is heard no further

enum State { Loading = 0, Ready = 1, Off = 2 };

} // namespace

VoiceCommands::VoiceCommands(SpeechEngine& engine, std::filesystem::path model, QObject* parent)
    : QObject(parent), engine_(engine), worker_(std::make_unique<JobThread>())
{
    worker_->post([this, model] { load(model); });

    // The key is watched on the X display, whichever window has the focus.
    if (QGuiApplication::platformName() == "xcb") {
        if (auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()) {
            display_ = x11->display();
            keycode_ = x11::scrollLockKey(display_);
        }
    }
    keyPoll_.setInterval(40);
    connect(&keyPoll_, &QTimer::timeout, this, &VoiceCommands::poll);
    if (display_ && keycode_) keyPoll_.start();
}

VoiceCommands::~VoiceCommands()
{
    keyPoll_.stop();
    if (microphone_) microphone_->stop();
    worker_.reset(); // joins: nothing runs on the decoder any more
    if (decoder_) ps_free(decoder_);
}

QString VoiceCommands::status() const
{
    switch (state_.load()) {
    case Ready:
        if (!display_ || !keycode_) return "off: the push-to-talk key can only be watched on an X display";
        return "ready";
    case Off: {
        std::lock_guard lock(grammarMutex_);
        return "off: " + offReason_;
    }
    default: return "loading";
    }
}

std::string VoiceCommands::grammar() const
{
    std::lock_guard lock(grammarMutex_);
    return grammar_;
}

void VoiceCommands::load(std::filesystem::path model)
{
    const std::filesystem::path hmm = model / "en-us";
    const std::filesystem::path dictionary = model / "cmudict-en-us.dict";
    std::error_code error;
    if (!std::filesystem::is_directory(hmm, error) || !std::filesystem::is_regular_file(dictionary, error)) {
        log::info("voice commands are off: no recogniser data in " + model.string() +
                  " (the pocketsphinx-en-us package has it)");
        std::lock_guard lock(grammarMutex_);
        offReason_ = "the recogniser's data is missing";
        state_ = Off;
        return;
    }
    cmd_ln_t* config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.c_str(), "-dict", dictionary.c_str(), "-logfn",
                                   "/dev/null", nullptr);
    decoder_ = config ? ps_init(config) : nullptr;
    if (config) cmd_ln_free_r(config);
    if (!decoder_) {
        log::info("voice commands are off: the recogniser did not start with the data in " + model.string());
        std::lock_guard lock(grammarMutex_);
        offReason_ = "the recogniser did not start";
        state_ = Off;
        return;
    }
    state_ = Ready;
}

void VoiceCommands::setCommands(const std::vector<AgentCommand>& commands)
{
    worker_->post([this, commands] { applyGrammar(commands); });
}

void VoiceCommands::applyGrammar(std::vector<AgentCommand> commands)
{
    if (!decoder_) return;
    std::vector<VoiceGrammar> grammars;
    for (const AgentCommand& command : commands) {
        if (command.voice.empty()) continue;
        if (auto grammar = VoiceGrammar::parse(command.voice)) grammars.push_back(std::move(*grammar));
        else log::info("the voice command \"" + command.voice + "\" cannot be heard: its grammar does not parse");
    }
    // Words the dictionary lacks are pronounced as the speech engine would say them.
    for (const VoiceGrammar& grammar : grammars)
        for (const std::string& word : grammar.words()) {
            char* known = ps_lookup_word(decoder_, word.c_str());
            if (known) {
                ckd_free(known);
                continue;
            }
            const std::string phones = arpabetFromEspeak(engine_.phonemes(word).get());
            if (phones.empty() || ps_add_word(decoder_, word.c_str(), phones.c_str(), TRUE) < 0)
                log::info("the voice command word \"" + word + "\" cannot be heard: no pronunciation for it");
        }
    const std::string jsgf = compileJsgf(grammars);
    if (grammars.empty() || ps_set_jsgf_string(decoder_, "commands", jsgf.c_str()) != 0 ||
        ps_set_search(decoder_, "commands") != 0) {
        if (!grammars.empty()) log::info("voice commands are not heard: the recogniser refused their grammar");
        return;
    }
    std::lock_guard lock(grammarMutex_);
    grammar_ = jsgf;
}

void VoiceCommands::poll()
{
    const bool down = x11::keyDown(display_, keycode_);
    if (down != held_) pushToTalk(down);
}

void VoiceCommands::pushToTalk(bool down)
{
    if (down == held_) return;
    held_ = down;
    if (state_ != Ready || grammar().empty()) return;
    if (down) {
        const QAudioDevice device = QMediaDevices::defaultAudioInput();
        if (device.isNull()) {
            static bool told = false;
            if (!told) log::info("voice commands are off: there is no microphone");
            told = true;
            return;
        }
        QAudioFormat format;
        format.setSampleRate(recogniserRate);
        format.setChannelCount(1);
        format.setSampleFormat(QAudioFormat::Int16);
        microphone_ = std::make_unique<QAudioSource>(device, format);
        heardSamples_.clear();
        input_ = microphone_->start();
        if (!input_) {
            microphone_.reset();
            return;
        }
        connect(input_, &QIODevice::readyRead, this, &VoiceCommands::captured);
        emit listening(true);
    } else if (microphone_) {
        captured();
        microphone_->stop();
        microphone_.reset();
        input_ = nullptr;
        emit listening(false);
        recognise(std::move(heardSamples_));
        heardSamples_.clear();
    }
}

void VoiceCommands::captured()
{
    if (!input_) return;
    const QByteArray more = input_->readAll();
    if (heardSamples_.size() < recogniserRate * 2 * maxSeconds) heardSamples_ += more;
}

void VoiceCommands::recognise(QByteArray samples)
{
    worker_->post([this, samples = std::move(samples)] {
        if (!decoder_) return;
        QString words;
        if (ps_start_utt(decoder_) == 0) {
            ps_process_raw(decoder_, reinterpret_cast<const int16*>(samples.constData()),
                           static_cast<size_t>(samples.size() / 2), FALSE, TRUE);
            ps_end_utt(decoder_);
            std::int32_t score = 0;
            if (const char* hyp = ps_get_hyp(decoder_, &score)) words = QString::fromUtf8(hyp);
        }
        QMetaObject::invokeMethod(this, [this, words] { emit heard(words); }, Qt::QueuedConnection);
    });
}

} // namespace corvel

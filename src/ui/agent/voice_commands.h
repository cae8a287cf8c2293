#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>

#include "character/agent.h"
#include "ui/agent/job_thread.h"

class QAudioSource;
class QIODevice;
struct ps_decoder_s;

namespace corvel {

class SpeechEngine;

// Voice commands: while the user holds the push-to-talk key (Scroll Lock), the microphone is
// heard; when it is let go, pocketsphinx recognises what was said against the commands'
// grammars. Loading the recogniser and recognising happen on a thread of their own. Without
// the recogniser's data, a microphone or an X display to watch the key on, voice commands are
// off, said once in the log.
class VoiceCommands final : public QObject {
    Q_OBJECT

public:
    static constexpr const char* defaultModel = "/usr/share/pocketsphinx/model/en-us";

    // `model` holds the acoustic model folder "en-us" and the dictionary "cmudict-en-us.dict".
    // `engine` says how words missing from the dictionary are pronounced.
    VoiceCommands(SpeechEngine& engine, std::filesystem::path model = defaultModel, QObject* parent = nullptr);
    ~VoiceCommands() override;

    void setCommands(const std::vector<AgentCommand>& commands);

    QString keyName() const { return "Scroll Lock"; }
    // "ready", "loading", or why voice commands are off.
    QString status() const;
    // The grammar the recogniser listens with, once set (for the property sheet and tests).
    std::string grammar() const;

    // What the key does, for a key that is not watched on X: held down, then let go.
    void pushToTalk(bool down);
    // Recognises 16 kHz mono 16-bit speech, as if heard between press and release.
    void recognise(QByteArray samples);

signals:
    void listening(bool on);
    // The words recognised; empty when nothing matched.
    void heard(QString words);

private:
    void load(std::filesystem::path model);
    void applyGrammar(std::vector<AgentCommand> commands);
    void poll();
    void captured();

    SpeechEngine& engine_;
    std::unique_ptr<JobThread> worker_;
    ps_decoder_s* decoder_ = nullptr; // used on the worker only
    std::atomic<int> state_{0};       // 0 loading, 1 ready, 2 off
    QString offReason_;
    mutable std::mutex grammarMutex_;
    std::string grammar_;

    QTimer keyPoll_;
    void* display_ = nullptr; // the X display the key is watched on
    int keycode_ = 0;
    bool held_ = false;
    std::unique_ptr<QAudioSource> microphone_;
    QIODevice* input_ = nullptr;
    QByteArray heardSamples_;
};

} // namespace corvel

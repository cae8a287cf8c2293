#pragma once

#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QElapsedTimer>
#include <QObject>
#include <QPoint>
#include <QTimer>

#include "character/acs/animation_player.h"
#include "character/acs/character.h"
#include "character/agent.h"
#include "character/speech_tags.h"
#include "character/voice_hints.h"

class QMenu;

namespace corvel {

class CharacterWindow;
class PropertySheet;
class SoundEffects;
class SpeechEngine;
class SpeechPlayer;
class SpeechStream;
class VoiceCommands;
class WordBalloon;

// The speaking character on the desktop, from its `.acs` file: it shows and hides itself with
// its own animations, walks to where it is sent, speaks through espeak-ng with its mouth moving
// and its words in a balloon, plays its sound effects, and hears its commands from its menu or,
// while the push-to-talk key is held, by voice. Requests run one after another, each reported
// complete as it ends.
//
// Without a display it works unseen; without an audio output it speaks silently, taking as
// long as the words would (said once in the log). Nothing it does waits on the speech engine or
// the recogniser: both run on threads of their own.
class QtAgent final : public QObject, public Agent {
    Q_OBJECT

public:
    struct Options {
        std::vector<std::filesystem::path> characterFolders;
        bool voiceCommands = true;
        std::filesystem::path recogniserModel = "/usr/share/pocketsphinx/model/en-us";
        std::optional<std::uint32_t> seed; // of the animations' chances; random when none
    };

    explicit QtAgent(Options options);
    ~QtAgent() override;

    bool load(std::string_view name) override;
    void unload(std::string_view name) override;
    std::string description() const override;
    void addCommand(const AgentCommand& command) override;
    void showPropertySheet() override;

    void setBalloonStyle(std::uint32_t style) override;
    void stop() override;
    void show() override;
    AgentRequest speak(std::string_view text) override;
    AgentRequest play(std::string_view animation) override;
    int height() const override;
    int width() const override;
    AgentRequest moveTo(int x, int y) override;
    void hide() override;
    void setSoundEffects(bool on) override;

    // What it is doing, for those who watch it (tests, the screenshot).
    const acs::Character* character() const { return character_.get(); }
    CharacterWindow* window() const { return window_.get(); }
    WordBalloon* balloon() const { return balloon_.get(); }
    bool visible() const;
    bool speaking() const { return speech_ != nullptr; }
    std::optional<acs::MouthShape> mouth() const { return mouth_; }
    std::size_t queued() const { return queue_.size() + (current_ ? 1 : 0); }
    const std::vector<AgentCommand>& commands() const { return commands_; }
    // The speech playing now, if any.
    std::shared_ptr<SpeechStream> currentSpeech() const { return speech_; }
    SpeechEngine& speechEngine() { return *engine_; }
    VoiceCommands* voiceCommands() const { return voice_.get(); }
    PropertySheet* propertySheet() const { return sheet_.get(); }
    // The balloon's style now: on, size to text, auto-hide, auto-pace (1, 2, 4, 8).
    std::uint32_t balloonStyle() const;

    // Chooses a command, as its menu entry or its words would.
    void choose(std::string_view command);
    // The user said `words` with the push-to-talk key held.
    void heard(const QString& words);

private:
    enum class Kind { Show, Hide, Speak, Play, Move };
    struct Request {
        AgentRequest id = 0;
        Kind kind = Kind::Show;
        std::string text;
        QPoint to;
    };
    enum class Step { None, Animating, Preparing, Waiting, Speaking, Moving, Leaving };

    AgentRequest enqueue(Request request);
    void next();
    void begin();
    void finish();
    void becomeIdle();
    void startSpeech();
    void speechTick();
    void endSpeech();
    void moveTick();
    void onRest();
    void advance();
    void schedule();
    void render();
    acs::AnimationPlayer::Time now() const;
    QPoint defaultPosition() const;
    // Where the character is drawn on the screen: the opaque part of its window.
    QRect standing() const;
    void showMenu(QPoint at);
    void listen(bool on);

    Options options_;
    SpeechEngine* engine_; // the process's one
    std::unique_ptr<SpeechPlayer> speaker_;
    std::unique_ptr<SoundEffects> effects_;
    std::unique_ptr<VoiceCommands> voice_;
    std::unique_ptr<PropertySheet> sheet_;

    std::string name_;
    std::unique_ptr<acs::Character> character_;
    std::unique_ptr<acs::AnimationPlayer> player_;
    std::unique_ptr<CharacterWindow> window_;
    std::unique_ptr<WordBalloon> balloon_;
    std::unique_ptr<QMenu> menu_;
    std::vector<AgentCommand> commands_;
    EngineVoice engineVoice_;
    int gender_ = 0;
    bool placed_ = false;

    std::deque<Request> queue_;
    std::optional<Request> current_;
    Step step_ = Step::None;
    AgentRequest lastId_ = 0;

    QElapsedTimer clock_;
    QTimer animationTimer_;
    QTimer speechTimer_;
    QTimer moveTimer_;
    QTimer balloonHide_;
    QTimer effectsWait_;
    std::shared_ptr<SpeechStream> speech_;
    std::string speechShown_;
    std::optional<acs::MouthShape> mouth_;
    std::optional<std::uint32_t> balloonStyle_;
    QPoint moveFrom_, moveTo_;
    QElapsedTimer moveClock_;
    bool listening_ = false;
};

} // namespace corvel

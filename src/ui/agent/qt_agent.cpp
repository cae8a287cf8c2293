#include "ui/agent/qt_agent.h"

#include <QGuiApplication>
#include <QMenu>
#include <QScreen>

#include <cmath>
#include <random>

#include "base/log.h"
#include "character/acs/compositor.h"
#include "character/acs/reader.h"
#include "character/character_loading.h"
#include "character/voice_grammar.h"
#include "ui/agent/agent_audio.h"
#include "ui/agent/character_window.h"
#include "ui/agent/property_sheet.h"
#include "ui/agent/speech_engine.h"
#include "ui/agent/speech_stream.h"
#include "ui/agent/voice_commands.h"
#include "ui/agent/word_balloon.h"

namespace corvel {
namespace {

using namespace std::chrono_literals;

// Balloon style bits as the programming interface has them.
constexpr std::uint32_t balloonOnBit = 1, sizeToTextBit = 2, autoHideBit = 4, autoPaceBit = 8;
constexpr int moveMilliseconds = 1000; // the default speed of MoveTo
constexpr int balloonHideDelay = 2000; // auto-hide, after the speech ends

} // namespace

QtAgent::QtAgent(Options options)
    : options_(std::move(options)), engine_(&SpeechEngine::instance()),
      speaker_(std::make_unique<SpeechPlayer>()), effects_(std::make_unique<SoundEffects>())
{
    clock_.start();
    animationTimer_.setSingleShot(true);
    connect(&animationTimer_, &QTimer::timeout, this, &QtAgent::advance);
    speechTimer_.setInterval(15);
    connect(&speechTimer_, &QTimer::timeout, this, &QtAgent::speechTick);
    moveTimer_.setInterval(15);
    connect(&moveTimer_, &QTimer::timeout, this, &QtAgent::moveTick);
    balloonHide_.setSingleShot(true);
    balloonHide_.setInterval(balloonHideDelay);
    connect(&balloonHide_, &QTimer::timeout, this, [this] {
        if (balloon_) balloon_->hide();
    });
    effectsWait_.setSingleShot(true);
    connect(&effectsWait_, &QTimer::timeout, this, &QtAgent::startSpeech);
    if (options_.voiceCommands) {
        voice_ = std::make_unique<VoiceCommands>(*engine_, options_.recogniserModel);
        connect(voice_.get(), &VoiceCommands::listening, this, &QtAgent::listen);
        connect(voice_.get(), &VoiceCommands::heard, this, &QtAgent::heard);
    }
}

QtAgent::~QtAgent()
{
    animationTimer_.stop();
    speechTimer_.stop();
    moveTimer_.stop();
    speaker_->stop();
    effects_->stop();
    menu_.reset();
    balloon_.reset();
    window_.reset();
    player_.reset();
}

acs::AnimationPlayer::Time QtAgent::now() const { return acs::AnimationPlayer::Time(clock_.elapsed()); }

bool QtAgent::visible() const { return window_ && window_->isVisible(); }

// ---- the character collection

bool QtAgent::load(std::string_view name)
{
    const auto file = findCharacterFile(options_.characterFolders, name);
    if (!file) {
        log::warning("the character \"" + std::string(name) + "\" cannot be loaded: there is no " + std::string(name) +
                     ".acs in the characters folders");
        return false;
    }
    std::unique_ptr<acs::Character> loaded;
    try {
        loaded = std::make_unique<acs::Character>(acs::readCharacterFile(*file));
    } catch (const std::exception& error) {
        log::warning("the character \"" + std::string(name) + "\" cannot be loaded: " + error.what());
        return false;
    }
    if (character_) unload(name_);
    character_ = std::move(loaded);
    name_ = name;
    const std::uint32_t seed = options_.seed ? *options_.seed : std::random_device{}();
    player_ = std::make_unique<acs::AnimationPlayer>(*character_, acs::seededRandom(seed));

    window_ = std::make_unique<CharacterWindow>(QSize(character_->width, character_->height));
    connect(window_.get(), &CharacterWindow::menuRequested, this, &QtAgent::showMenu);
    connect(window_.get(), &CharacterWindow::dragged, this, [this] {
        placed_ = true;
        if (balloon_ && balloon_->isVisible())
            balloon_->placeBeside(standing(), window_->screen()->availableGeometry());
    });
    window_->move(defaultPosition());
    balloon_ = std::make_unique<WordBalloon>();
    if (character_->balloon) balloon_->setLook(balloonLook(*character_->balloon, character_->styleFlags));
    effects_->load(character_->sounds);

    VoiceHints hints;
    if (character_->voice) {
        hints.pitch = character_->voice->pitch;
        hints.speed = character_->voice->speed;
        if (character_->voice->details) {
            hints.language = character_->voice->details->language;
            hints.gender = static_cast<int>(character_->voice->details->gender);
        }
    }
    engineVoice_ = chooseVoice(hints);
    gender_ = hints.gender;
    commands_.clear();
    placed_ = false;
    log::info("character " + name_ + " loaded from " + file->string());
    return true;
}

void QtAgent::unload(std::string_view name)
{
    if (!character_ || !acs::sameName(name, name_)) return;
    stop();
    if (sheet_) sheet_->hide();
    menu_.reset();
    balloon_.reset();
    window_.reset();
    player_.reset();
    effects_->clear();
    character_.reset();
    commands_.clear();
    if (voice_) voice_->setCommands({});
    name_.clear();
}

std::string QtAgent::description() const { return character_ ? character_->description() : std::string(); }

void QtAgent::addCommand(const AgentCommand& command)
{
    if (!character_) return;
    commands_.push_back(command);
    if (voice_) voice_->setCommands(commands_);
}

void QtAgent::showPropertySheet()
{
    if (!character_) return;
    if (!sheet_) sheet_ = std::make_unique<PropertySheet>();
    CharacterProperties p;
    p.name = QString::fromStdString(character_->name());
    p.description = QString::fromStdString(character_->description());
    p.voice = QString::fromStdString(engineVoice_.name) + " (espeak-ng)";
    p.rate = engineVoice_.rate;
    p.pitch = engineVoice_.pitch;
    if (character_->balloon) {
        const acs::Balloon& b = *character_->balloon;
        p.balloon = QString("%1 lines of %2 characters, %3 %4 px")
                        .arg(b.lines)
                        .arg(b.charsPerLine)
                        .arg(QString::fromStdString(b.fontName))
                        .arg(std::abs(b.fontHeight));
    } else {
        p.balloon = "none";
    }
    p.pushToTalk = voice_ ? voice_->keyName() : "Scroll Lock";
    p.listening = voice_ ? voice_->status() : "off";
    for (const AgentCommand& c : commands_)
        p.commands << QString::fromStdString(c.caption + ": " + c.voice);
    sheet_->show(p);
}

// ---- settings

void QtAgent::setBalloonStyle(std::uint32_t style) { balloonStyle_ = style; }

std::uint32_t QtAgent::balloonStyle() const
{
    if (balloonStyle_) return *balloonStyle_ & 0xF;
    if (!character_) return 0;
    const std::uint32_t flags = character_->styleFlags;
    std::uint32_t style = 0;
    if (character_->balloon && !(flags & acs::style::balloonDisabled)) style |= balloonOnBit;
    if (flags & acs::style::balloonSizeToText) style |= sizeToTextBit;
    if (!(flags & acs::style::balloonNoAutoHide)) style |= autoHideBit;
    if (!(flags & acs::style::balloonNoAutoPace)) style |= autoPaceBit;
    return style;
}

void QtAgent::setSoundEffects(bool on)
{
    effects_->setEnabled(on);
    if (!on) effects_->stop();
}

int QtAgent::height() const { return character_ ? character_->height : 0; }
int QtAgent::width() const { return character_ ? character_->width : 0; }

// ---- requests

void QtAgent::show() { enqueue({0, Kind::Show, {}, {}}); }
void QtAgent::hide() { enqueue({0, Kind::Hide, {}, {}}); }
AgentRequest QtAgent::speak(std::string_view text) { return enqueue({0, Kind::Speak, std::string(text), {}}); }
AgentRequest QtAgent::play(std::string_view animation) { return enqueue({0, Kind::Play, std::string(animation), {}}); }
AgentRequest QtAgent::moveTo(int x, int y)
{
    // Out of sight, or not yet placed, the character is simply put there, at once: it appears
    // where it is sent rather than walking there from a corner.
    if (character_ && (!placed_ || !visible())) {
        window_->move(x, y);
        placed_ = true;
        const AgentRequest id = ++lastId_;
        QMetaObject::invokeMethod(this, [this, id] { notifyRequestComplete(id); }, Qt::QueuedConnection);
        return id;
    }
    return enqueue({0, Kind::Move, {}, QPoint(x, y)});
}

AgentRequest QtAgent::enqueue(Request request)
{
    request.id = ++lastId_;
    const AgentRequest id = request.id;
    if (!character_) { // nothing to do it: over at once
        QMetaObject::invokeMethod(this, [this, id] { notifyRequestComplete(id); }, Qt::QueuedConnection);
        return id;
    }
    queue_.push_back(std::move(request));
    if (!current_) next();
    return id;
}

void QtAgent::next()
{
    while (!current_ && !queue_.empty()) {
        current_ = std::move(queue_.front());
        queue_.pop_front();
        begin();
    }
    if (!current_ && queue_.empty()) becomeIdle();
}

void QtAgent::finish()
{
    if (!current_) return;
    const AgentRequest id = current_->id;
    current_.reset();
    step_ = Step::None;
    QMetaObject::invokeMethod(this, [this, id] { notifyRequestComplete(id); }, Qt::QueuedConnection);
    next();
}

void QtAgent::stop()
{
    std::vector<AgentRequest> dropped;
    if (current_) dropped.push_back(current_->id);
    for (const Request& r : queue_) dropped.push_back(r.id);
    queue_.clear();
    current_.reset();
    step_ = Step::None;
    speechTimer_.stop();
    moveTimer_.stop();
    effectsWait_.stop();
    balloonHide_.stop();
    speaker_->stop();
    speech_.reset();
    effects_->stop();
    if (balloon_) balloon_->hide();
    if (player_) {
        player_->stop();
        mouth_.reset();
        render();
        if (visible()) player_->setIdle(true, now());
        schedule();
    }
    for (const AgentRequest id : dropped)
        QMetaObject::invokeMethod(this, [this, id] { notifyRequestComplete(id); }, Qt::QueuedConnection);
}

void QtAgent::becomeIdle()
{
    if (!player_ || !visible()) return;
    player_->exit(now()); // a gesture held walks back to rest
    player_->setIdle(true, now());
    advance();
}

void QtAgent::begin()
{
    const Request& r = *current_;
    player_->setIdle(false, now());
    switch (r.kind) {
    case Kind::Show:
        if (visible()) return finish();
        if (!placed_) window_->move(defaultPosition());
        if (player_->playState("Showing", now())) {
            step_ = Step::Animating;
            window_->show();
            advance();
        } else {
            player_->play("RestPose", now());
            window_->show();
            advance();
            finish();
        }
        return;
    case Kind::Hide:
        if (!visible()) return finish();
        if (balloon_) balloon_->hide();
        if (player_->playState("Hiding", now())) {
            step_ = Step::Animating;
            advance();
        } else {
            window_->hide();
            finish();
        }
        return;
    case Kind::Play:
        if (!player_->play(r.text, now())) return finish(); // no such animation: skipped
        step_ = Step::Animating;
        advance();
        return;
    case Kind::Move: {
        if (!visible()) { // hidden since it was asked
            window_->move(r.to);
            placed_ = true;
            return finish();
        }
        if (r.to == window_->pos()) return finish();
        if (balloon_) balloon_->hide();
        const QPoint way = r.to - window_->pos();
        const char* state = std::abs(way.x()) >= std::abs(way.y()) ? (way.x() > 0 ? "MovingRight" : "MovingLeft")
                                                                   : (way.y() > 0 ? "MovingDown" : "MovingUp");
        step_ = Step::Moving;
        moveFrom_ = window_->pos();
        moveTo_ = r.to;
        moveClock_.start();
        moveTimer_.start();
        if (player_->playState(state, now())) advance();
        return;
    }
    case Kind::Speak: {
        const acs::Frame* frame = player_->frame();
        if (frame && !frame->mouths.empty() && player_->phase() == acs::AnimationPlayer::Phase::Resting) {
            startSpeech(); // the mouth can move where it stands
        } else if (player_->playState("Speaking", now()) || player_->play("RestPose", now()) ||
                   player_->play("Explain", now())) {
            step_ = Step::Preparing;
            advance();
        } else {
            startSpeech();
        }
        return;
    }
    }
}

void QtAgent::onRest()
{
    if (!current_) return;
    switch (step_) {
    case Step::Animating:
        if (current_->kind == Kind::Hide) {
            window_->hide();
            player_->stop();
        }
        finish();
        return;
    case Step::Preparing: startSpeech(); return;
    case Step::Leaving: finish(); return;
    default: return; // a moving animation loops on; idling ends by itself
    }
}

// ---- speaking

void QtAgent::startSpeech()
{
    if (!current_ || current_->kind != Kind::Speak) return;
    // Speech waits for a sound effect to end.
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(effects_->busyUntil() -
                                                                            std::chrono::steady_clock::now());
    if (wait > 0ms) {
        step_ = Step::Waiting;
        effectsWait_.start(static_cast<int>(wait.count()) + 1);
        return;
    }
    const std::vector<SpeechPart> parts = parseSpeech(current_->text);
    speechShown_ = shownText(parts);
    speech_ = engine_->speak(parts, engineVoice_, gender_);
    speaker_->play(speech_);
    const std::uint32_t style = balloonStyle();
    if ((style & balloonOnBit) && character_->balloon && !speechShown_.empty()) {
        balloonHide_.stop();
        BalloonLook look = balloon_->look();
        look.sizeToText = style & sizeToTextBit;
        balloon_->setLook(look);
        balloon_->setText(QString::fromStdString(speechShown_), style & autoPaceBit);
        balloon_->placeBeside(standing(), window_->screen()->availableGeometry());
        if (visible()) {
            balloon_->show();
            if (shapedWindows()) balloon_->raise(); // the offscreen platform has no stacking
        }
    } else if (balloon_) {
        balloon_->hide();
    }
    step_ = Step::Speaking;
    speechTimer_.start();
}

void QtAgent::speechTick()
{
    speaker_->tick();
    if (!speech_) return;
    bool redraw = false;
    for (const SpeechStream::Mark& mark : speech_->dueMarks()) {
        if (mark.kind == SpeechStream::Mark::Kind::Word) {
            const auto bytes = std::min<std::size_t>(static_cast<std::size_t>(mark.value), speechShown_.size());
            if (balloon_) balloon_->reveal(static_cast<int>(QString::fromUtf8(speechShown_.data(), static_cast<qsizetype>(bytes)).size()));
        } else {
            const acs::MouthShape shape = acs::mouthShapeForViseme(mark.value);
            if (mouth_ != shape) {
                mouth_ = shape;
                redraw = true;
            }
        }
    }
    if (redraw) render();
    if (speech_->done()) endSpeech();
}

void QtAgent::endSpeech()
{
    speechTimer_.stop();
    speaker_->stop();
    speech_.reset();
    mouth_.reset();
    render();
    if (balloon_ && balloon_->isVisible()) {
        balloon_->reveal(static_cast<int>(balloon_->text().size()));
        if (balloonStyle() & autoHideBit) balloonHide_.start();
    }
    finish();
}

// ---- moving

void QtAgent::moveTick()
{
    if (!current_ || step_ != Step::Moving) {
        moveTimer_.stop();
        return;
    }
    const double t = std::min(1.0, moveClock_.elapsed() / double(moveMilliseconds));
    const QPoint at(static_cast<int>(std::lround(moveFrom_.x() + (moveTo_.x() - moveFrom_.x()) * t)),
                    static_cast<int>(std::lround(moveFrom_.y() + (moveTo_.y() - moveFrom_.y()) * t)));
    window_->move(at);
    if (t < 1.0) return;
    moveTimer_.stop();
    // The moving animation walks back to rest before the move counts as done.
    const AgentRequest id = current_->id;
    step_ = Step::Leaving;
    player_->exit(now());
    advance();
    if (current_ && current_->id == id && step_ == Step::Leaving && !player_->nextChange()) finish();
}

// ---- the animation clock

void QtAgent::advance()
{
    if (!player_) return;
    const acs::AnimationPlayer::Update update = player_->advance(now());
    for (const std::int16_t sound : update.sounds) effects_->play(sound);
    if (update.frameChanged) render();
    schedule();
    if (update.cameToRest) onRest();
}

void QtAgent::schedule()
{
    const auto due = player_ ? player_->nextChange() : std::nullopt;
    if (!due) {
        animationTimer_.stop();
        return;
    }
    animationTimer_.start(static_cast<int>(std::max<std::int64_t>(0, (*due - now()).count())));
}

void QtAgent::render()
{
    if (!window_ || !player_) return;
    const acs::Frame* frame = player_->frame();
    QImage image(character_->width, character_->height, QImage::Format_RGBA8888);
    if (frame) {
        const acs::RgbaImage rgba = acs::composeFrame(*character_, *frame, mouth_);
        image = QImage(rgba.pixels.data(), rgba.width, rgba.height, rgba.width * 4, QImage::Format_RGBA8888).copy();
    } else {
        image.fill(Qt::transparent);
    }
    window_->setFrame(image);
}

QRect QtAgent::standing() const
{
    const QRect drawn = window_->shape().boundingRect();
    return (drawn.isEmpty() ? window_->rect() : drawn).translated(window_->pos());
}

QPoint QtAgent::defaultPosition() const
{
    const QScreen* screen = QGuiApplication::primaryScreen();
    const QRect area = screen ? screen->availableGeometry() : QRect(0, 0, 1024, 768);
    return area.bottomRight() - QPoint(width() + 40, height() + 40);
}

// ---- commands

void QtAgent::showMenu(QPoint at)
{
    if (commands_.empty()) return;
    if (!menu_) menu_ = std::make_unique<QMenu>();
    menu_->clear();
    for (const AgentCommand& command : commands_) {
        QAction* action = menu_->addAction(QString::fromStdString(command.caption));
        connect(action, &QAction::triggered, this, [this, name = command.name] { choose(name); });
    }
    menu_->popup(at);
}

void QtAgent::choose(std::string_view command) { notifyCommand(command); }

void QtAgent::heard(const QString& words)
{
    if (words.isEmpty()) return;
    for (const AgentCommand& command : commands_) {
        const auto grammar = VoiceGrammar::parse(command.voice);
        if (grammar && grammar->matches(words.toStdString())) {
            log::info("heard \"" + words.toStdString() + "\": " + command.name);
            choose(command.name);
            return;
        }
    }
    log::info("heard \"" + words.toStdString() + "\": no command");
}

void QtAgent::listen(bool on)
{
    listening_ = on;
    if (!player_ || current_ || !visible()) return;
    if (on) player_->playState("Listening", now());
    else player_->exit(now());
    advance();
}

} // namespace corvel

#include "character/character_speech.h"

#include <array>
#include <cmath>
#include <string>
#include <utility>

namespace corvel {
namespace {

constexpr Milliseconds autoHidePeriod{10000};

// Twips between the window and the character, and the margin that decides the side; the two
// differ on purpose.
constexpr double characterGap = 100;
constexpr double rightSideMargin = 500;

// Screen coordinates are rounded half to even.
int toPixels(double value) { return static_cast<int>(std::nearbyint(value)); }

} // namespace

CharacterSpeech::CharacterSpeech(Agent& agent, const SettingsStore& settings, EventLoop& loop,
                                 const View& view)
    : agent_(agent), settings_(settings), view_(view),
      timer3_(loop.createTimer([this] { timer3Tick(); }))
{
    agent_.addListener(this);
}

CharacterSpeech::~CharacterSpeech() { agent_.removeListener(this); }

std::string_view CharacterSpeech::volumeTag(std::string_view vol)
{
    // The steps are uneven at the quiet end on purpose.
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 10> table{{
        {"10", "65535"}, {"9", "55535"}, {"8", "45535"}, {"7", "35535"}, {"6", "25535"},
        {"5", "15535"},  {"4", "9000"},  {"3", "6000"},  {"2", "4000"},  {"1", "1000"},
    }};
    for (const auto& [step, value] : table) {
        if (vol == step) return value;
    }
    return {};
}

bool CharacterSpeech::characterOff() const { return settings::dataFlag(settings_, "noagent", "False"); }

void CharacterSpeech::say(std::string_view speech)
{
    static constexpr std::array<std::string_view, 6> gestures{
        "", "Acknowledge", "Announce", "Congratulate", "GestureDown", "GestureUp"};

    if (characterOff()) return;
    agent_.setBalloonStyle(settings::dataFlag(settings_, "balloon", "True") ? balloonOn : balloonOff);
    const std::string volume(volumeTag(settings::readData(settings_, "vol", "10")));
    agent_.stop();
    agent_.show();
    requestdone_ = false;
    lastrequest_ = agent_.speak("\\Vol=" + volume + "\\" + std::string(speech));
    if (gesturecount_ > 0) agent_.play(gestures[static_cast<std::size_t>(gesturecount_)]);
    if (++gesturecount_ >= 6) gesturecount_ = 1;

    timer3_->setInterval(Milliseconds{0});
    timer3_->setEnabled(false);
    timer3_->setInterval(autoHidePeriod);
    timer3_->setEnabled(true);
}

void CharacterSpeech::geniemove()
{
    if (characterOff()) return;
    const WindowPlacement window = view_.mainWindowPlacement();
    const double t = window.twipsPerPixel;
    const double characterWidth = agent_.width();
    const double characterHeight = agent_.height();

    const double y = ((window.top + window.height) - characterHeight * t) / t;
    const bool roomOnRight =
        window.left + window.width + rightSideMargin + characterWidth * t <= window.screenWidth;
    const double x = roomOnRight ? (window.left + window.width + characterGap) / t
                                 : (window.left - characterGap) / t - characterWidth;
    lastrequest_ = agent_.moveTo(toPixels(x), toPixels(y));
}

void CharacterSpeech::requestComplete(AgentRequest) { requestdone_ = true; }

void CharacterSpeech::timer3Tick()
{
    if (settings::dataFlag(settings_, "charhide", "False")) agent_.hide();
    // Otherwise the ticks have nothing to do until the next say arms the timer again, and
    // ticking "charhide" on the options page says "Okay!", which does: an idle Corvel sleeps.
    else timer3_->setEnabled(false);
}

} // namespace corvel

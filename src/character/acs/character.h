#pragma once

// A speaking character as an `.acs` file holds it: plain values, no behaviour beyond look-ups.
// readCharacter (reader.h) fills one from a file and writeCharacter (writer.h) turns one back into
// a file; composeFrame (compositor.h) draws a frame and AnimationPlayer (animation_player.h) runs
// the animations.
//
// Indices (image, sound, frame, branch target) are positions in the vectors below. A Character
// read from a file has every index checked; one built by hand is checked when written, and the
// compositor and the player skip what does not fit rather than fail.

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace corvel::acs {

// A damaged or unsupported character file, or a Character that cannot be written. The message
// says what is wrong and where, for people: "animation 'Wave' frame 3: image 912 does not
// exist (the file has 40 images)".
class AcsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Guid {
    std::uint32_t data1 = 0;
    std::uint16_t data2 = 0, data3 = 0;
    std::array<std::uint8_t, 8> data4{};
    bool operator==(const Guid&) const = default;
};

struct Rgb {
    std::uint8_t r = 0, g = 0, b = 0;
    bool operator==(const Rgb&) const = default;
};

// Style flags of the character info block. The voice and balloon bits are kept in step with
// Character::voice and Character::balloon by the writer.
namespace style {
inline constexpr std::uint32_t voiceDisabled = 0x10;
inline constexpr std::uint32_t voiceEnabled = 0x20;       // Character::voice present
inline constexpr std::uint32_t balloonDisabled = 0x100;
inline constexpr std::uint32_t balloonEnabled = 0x200;    // Character::balloon present
inline constexpr std::uint32_t balloonSizeToText = 0x10000;
inline constexpr std::uint32_t balloonNoAutoHide = 0x20000;
inline constexpr std::uint32_t balloonNoAutoPace = 0x40000;
inline constexpr std::uint32_t standardAnimationSet = 0x100000;
} // namespace style

enum class Gender : std::uint16_t { Neutral = 0, Female = 1, Male = 2 };

// Hints for choosing a speech voice. Only gender, pitch and speed matter on Linux.
struct Voice {
    static constexpr std::uint32_t defaultSpeed = 0xFFFFFFFF;

    Guid engine, mode;
    std::uint32_t speed = defaultSpeed;
    std::uint16_t pitch = 0; // Hz
    struct Details {
        std::uint16_t language = 0x409;
        std::string dialect;
        Gender gender = Gender::Neutral;
        std::uint16_t age = 30;
        std::string style;
        bool operator==(const Details&) const = default;
    };
    std::optional<Details> details;
    bool operator==(const Voice&) const = default;
};

struct Balloon {
    std::uint8_t lines = 2;
    std::uint8_t charsPerLine = 32;
    Rgb text{0, 0, 0}, background{0xFF, 0xFF, 0xE1}, border{0, 0, 0};
    std::string fontName;
    std::int32_t fontHeight = -13; // negative: character height in pixels
    std::uint32_t fontWeight = 400;
    bool italic = false;
    bool operator==(const Balloon&) const = default;
};

// The 16 x 16 tray icon, as two device-independent bitmaps (mask and colour), kept as stored.
struct TrayIcon {
    std::vector<std::uint8_t> mask, colour;
    bool operator==(const TrayIcon&) const = default;
};

// A state ("Showing", "IdlingLevel1" ...) and the animations it may play, one at random.
struct State {
    std::string name;
    std::vector<std::string> animations;
    bool operator==(const State&) const = default;
};

struct LocalizedInfo {
    std::uint16_t language = 0x409;
    std::string name, description, extraData;
    bool operator==(const LocalizedInfo&) const = default;
};

// One rectangle of an image's region, right and bottom exclusive, top-down in the image.
struct RegionRect {
    std::int32_t left = 0, top = 0, right = 0, bottom = 0;
    bool operator==(const RegionRect&) const = default;
};

// An 8-bit palette image, rows top to bottom without padding (width x height indices).
// Pixels equal to Character::transparentIndex are transparent. An image with no pixels is
// the file's "empty image".
struct Image {
    std::uint16_t width = 0, height = 0;
    std::vector<std::uint8_t> pixels;
    std::vector<RegionRect> region; // the opaque area; empty when the file stores none
    bool empty() const { return width == 0 || height == 0; }
    std::uint8_t at(int x, int y) const { return pixels[static_cast<std::size_t>(y) * width + x]; }
    bool operator==(const Image&) const = default;
};

// The mouth shapes of lip-sync, in the file's numbering.
enum class MouthShape : std::uint8_t { Closed, Wide1, Wide2, Wide3, Wide4, Medium, Narrow };
inline constexpr int mouthShapeCount = 7;

struct MouthOverlay {
    MouthShape shape = MouthShape::Closed;
    bool replacesFirstImage = false; // draw instead of the frame's first image
    std::uint16_t image = 0;
    std::int16_t x = 0, y = 0;
    std::uint16_t centreX = 0, centreY = 0; // centre of the closed mouth, frame coordinates
    std::optional<std::vector<std::uint8_t>> regionData; // kept as stored; unused in practice
    bool operator==(const MouthOverlay&) const = default;
};

// An image placed in a frame: (x, y) is its top-left, down and right from the frame's.
struct FrameImage {
    std::uint32_t image = 0;
    std::int16_t x = 0, y = 0;
    bool operator==(const FrameImage&) const = default;
};

struct Branch {
    std::uint16_t frame = 0;
    std::uint16_t probability = 0; // per cent
    bool operator==(const Branch&) const = default;
};

struct Frame {
    static constexpr std::int16_t noSound = -1;
    static constexpr std::int16_t exitEnds = -1;     // leaving the animation ends here
    static constexpr std::int16_t exitContinues = -2; // leaving goes on as in normal play

    std::vector<FrameImage> images; // the first is on top
    std::int16_t sound = noSound;
    std::uint16_t duration = 10; // hundredths of a second; 0: never shown
    std::int16_t exitFrame = exitContinues;
    std::vector<Branch> branches;
    std::vector<MouthOverlay> mouths;
    bool operator==(const Frame&) const = default;
};

// What happens when an animation is left for another or stopped gracefully.
enum class Transition : std::uint8_t {
    ReturnAnimation = 0, // play Animation::returnAnimation
    ExitBranches = 1,    // walk the frames' exit branches back
    None = 2,
};

struct Animation {
    std::string name; // as the author spelt it; compare without regard to case
    Transition transition = Transition::None;
    std::string returnAnimation;
    std::vector<Frame> frames;
    bool operator==(const Animation&) const = default;
};

struct Character {
    static constexpr std::uint16_t english = 0x409;

    Guid id;
    std::uint16_t width = 0, height = 0; // frame size, pixels
    std::uint8_t transparentIndex = 0;
    std::uint32_t styleFlags = 0;
    std::optional<Voice> voice;
    std::optional<Balloon> balloon;
    std::vector<Rgb> palette; // at most 256
    std::optional<TrayIcon> trayIcon;
    std::vector<State> states;
    std::vector<LocalizedInfo> localizedInfo;
    std::vector<Animation> animations;
    std::vector<Image> images;
    std::vector<std::vector<std::uint8_t>> sounds; // each a complete RIFF WAVE file

    // Look-ups by name ignore case. Null when there is none.
    const Animation* findAnimation(std::string_view name) const;
    std::optional<std::size_t> animationIndex(std::string_view name) const;
    const State* findState(std::string_view name) const;

    // The localized entry for `language`: the same language, then the same primary language,
    // then English, then the first. Null when there are no entries.
    const LocalizedInfo* info(std::uint16_t language = english) const;
    std::string name(std::uint16_t language = english) const;
    std::string description(std::uint16_t language = english) const;

    bool operator==(const Character&) const = default;
};

// ASCII case-insensitive comparison, as names in character files are compared.
bool sameName(std::string_view a, std::string_view b);

} // namespace corvel::acs

#include "sample_character.h"

namespace corvel::acs::testing {

Frame timedFrame(std::uint16_t duration, std::int16_t exitFrame, std::vector<Branch> branches)
{
    Frame f;
    f.duration = duration;
    f.exitFrame = exitFrame;
    f.branches = std::move(branches);
    return f;
}

Character sampleCharacter()
{
    Character c;
    c.id = {0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}};
    c.width = 16;
    c.height = 12;
    c.transparentIndex = 0;
    c.styleFlags = style::voiceEnabled | style::balloonEnabled | style::balloonSizeToText;
    c.voice = Voice{{1, 2, 3, {}}, {}, 150, 120, Voice::Details{0x409, "", Gender::Male, 30, "Business"}};
    c.balloon = Balloon{3, 28, {1, 2, 3}, {0xFF, 0xFF, 0xE1}, {4, 5, 6}, "Sans Ünïcode 𝄞", -13, 700, true};
    c.palette = {{0xFF, 0, 0xFF}, {0x10, 0x20, 0x30}, {0xC0, 0x80, 0x40}, {0xFF, 0xFF, 0xFF}};
    c.trayIcon = TrayIcon{{1, 2, 3}, {4, 5, 6, 7}};
    c.states = {{"SHOWING", {"Wave"}}, {"IDLINGLEVEL1", {"Wave", "WaveReturn"}}};
    c.localizedInfo = {{0x407, "Klingel", "Ein Telefon", ""}, {0x409, "Ringer", "A telephone (2)", "extra"}};

    Image body{6, 5, std::vector<std::uint8_t>(30, 1), {}};
    for (int x = 0; x < 6; ++x) body.pixels[static_cast<std::size_t>(x)] = 0; // clear top row
    body.pixels[20] = 2;
    body.region = {{0, 1, 6, 5}};
    Image mouth{3, 2, {2, 3, 2, 3, 3, 3}, {}};
    c.images = {body, mouth, Image{}};
    c.sounds = {{'R', 'I', 'F', 'F', 4, 0, 0, 0, 'W', 'A', 'V', 'E'}};

    Animation wave{"Wave", Transition::ReturnAnimation, "WaveReturn", {}};
    Frame first = timedFrame(10, 1, {{1, 40}, {2, 60}});
    first.images = {{1, 2, 3}, {0, -1, 7}};
    first.sound = 0;
    first.mouths = {{MouthShape::Medium, true, 1, 4, 4, 5, 5, std::nullopt},
                    {MouthShape::Narrow, false, 1, 4, 5, 5, 5, std::vector<std::uint8_t>{7, 7}}};
    wave.frames = {first, timedFrame(0, -1), timedFrame(20, 0)};
    wave.frames[2].images = {{2, 0, 0}};
    Animation back{"WaveReturn", Transition::None, "", {timedFrame(5)}};
    Animation nod{"Nod", Transition::ExitBranches, "", {timedFrame(10, 1), timedFrame(10, -2, {{0, 100}})}};
    c.animations = {wave, back, nod};
    return c;
}

} // namespace corvel::acs::testing

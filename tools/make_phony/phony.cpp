#include "phony.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

#include "character/acs/writer.h"
#include "drawing.h"

namespace corvel::phony {

namespace {

using acs::MouthShape;

constexpr int frameSize = 128;
constexpr std::uint8_t transparentIndex = 10;

// ---- Inks

const Colour outline = rgb(0x3B2430);
const Colour bodyTop = rgb(0xF77062), bodyBottom = rgb(0xD9443E), bodyShade = rgb(0xB8323A);
const Colour plate = rgb(0xFFF5E6), plateEdge = rgb(0xF5DEC6), hole = rgb(0xE9C9AA), holeRim = rgb(0xC99F80);
const Colour eyeWhite = rgb(0xFFFFFF), pupil = rgb(0x2A1D2C), cheek = rgb(0xFF8A9C);
const Colour mouthInside = rgb(0x6E1F37), tongue = rgb(0xFF7088);
const Colour star = rgb(0xFFD23F), sleepBlue = rgb(0x6F86E0), white = rgb(0xFFFFFF);
constexpr double line = 1.6; // outline width, design pixels

// ---- Poses

enum class Eyes { Open, Wide, Happy };
enum class Face { Smile, Grin, Oh };

struct Pose {
    double scale = 1;
    double squash = 0; // > 0 wider and lower, < 0 taller
    double lean = 0;   // degrees, about the feet
    Vec shift{};       // whole body
    double handsetLift = 0, handsetTilt = 0, handsetShift = 0;
    Vec look{};       // pupils, -1..1 each way
    double lids = 1;  // 1 open, 0 shut
    Eyes eyes = Eyes::Open;
    double brows = 0; // 0 none, 1 high
    Face face = Face::Smile;
    std::optional<MouthShape> mouth{}; // a speaking shape instead of the face's mouth
    int ring = 0, sparkle = 0, zzz = 0;
    bool hidden = false;
};

Shape halfPlaneBelow(double y) { return {[y](Vec p) { return y - p.y; }, {-1e3, y, 1e3, 1e3}}; }

// Paints a shape with a dark rim around it.
void inked(Canvas& canvas, const Shape& shape, Colour fill, double rim = line)
{
    canvas.paint(grow(shape, rim), outline);
    canvas.paint(shape, fill);
}

void inked(Canvas& canvas, const Shape& shape, const std::function<Colour(Vec)>& fill, double rim = line)
{
    canvas.paint(grow(shape, rim), outline);
    canvas.paint(shape, fill);
}

constexpr Vec handsetPivot{64, 46};
constexpr Vec dialCentre{64, 87.5};
constexpr double eyeY = 83.5, eyeGap = 9, mouthY = 96;

Shape handset(const Pose& pose)
{
    const Shape bar = capsule({35, 41}, {93, 41}, 6.5);
    const Shape cups = unite(roundedBox({35, 50}, {10.5, 6.5}, 5.5), roundedBox({93, 50}, {10.5, 6.5}, 5.5));
    return transformed(unite(bar, cups), handsetPivot, pose.handsetTilt, {1, 1},
                       {pose.handsetShift, -pose.handsetLift});
}

Vec onHandset(const Pose& pose, Vec p)
{
    return handsetPivot + Vec{pose.handsetShift, -pose.handsetLift} + rotate(p - handsetPivot, pose.handsetTilt);
}

void drawCord(Canvas& canvas, const Pose& pose)
{
    const Vec from = onHandset(pose, {30, 55}), to{25, 100}, bend{9, 72};
    std::vector<Vec> points;
    constexpr int steps = 90;
    for (int i = 0; i <= steps; ++i) {
        const double t = double(i) / steps;
        const Vec a = from * ((1 - t) * (1 - t)) + bend * (2 * t * (1 - t)) + to * (t * t);
        const Vec tangent = (bend - from) * (2 * (1 - t)) + (to - bend) * (2 * t);
        const Vec normal = Vec{-tangent.y, tangent.x} * (1 / std::max(length(tangent), 1e-6));
        points.push_back(a + normal * (2.6 * std::sin(t * 2 * std::numbers::pi * 6)));
    }
    const Shape cord = polyline(points, 2.2);
    canvas.paint(grow(cord, 1.2), outline);
    canvas.paint(cord, bodyBottom);
}

void drawEyes(Canvas& canvas, const Pose& pose)
{
    for (const double side : {-1.0, 1.0}) {
        const Vec c{64 + side * eyeGap, eyeY};
        if (pose.eyes == Eyes::Happy) {
            canvas.paint(arc(c + Vec{0, 3}, 4.6, 205, 335, 2.4), outline);
            continue;
        }
        if (pose.lids < 0.2) {
            canvas.paint(arc(c + Vec{0, -2.5}, 4.4, 25, 155, 2.2), outline);
            continue;
        }
        const bool wide = pose.eyes == Eyes::Wide;
        const Vec radii{wide ? 6.6 : 5.9, (wide ? 8.2 : 7.4) * pose.lids};
        const Vec centre = c + Vec{0, (1 - pose.lids) * 2.5};
        const Shape white = ellipse(centre, radii);
        inked(canvas, white, eyeWhite, 1.4);
        const double r = wide ? 2.9 : 3.6;
        const Vec p = centre + Vec{pose.look.x * (radii.x - r - 0.6), 0.8 + pose.look.y * (radii.y - r - 0.6)};
        canvas.paint(intersect(circle(p, r), white), pupil);
        canvas.paint(intersect(circle(p + Vec{-1.3, -1.5}, 1.3), white), eyeWhite);
        if (pose.brows > 0)
            canvas.paint(arc(c + Vec{0, -1.5 - 2.5 * pose.brows}, 7.5, 235, 305, 1.9), outline);
    }
}

void drawMouth(Canvas& canvas, const Pose& pose)
{
    const auto open = [&](double halfWidth, double depth, bool round) {
        const Shape mouth = round ? ellipse({64, mouthY + depth / 2}, {halfWidth, depth / 2})
                                  : intersect(ellipse({64, mouthY - 0.6}, {halfWidth, depth + 0.6}), halfPlaneBelow(mouthY - 0.6));
        inked(canvas, mouth, mouthInside, 1.1);
        if (depth >= 3)
            canvas.paint(intersect(ellipse({64, mouthY + depth}, {halfWidth * 0.6, depth * 0.45}), mouth), tongue);
    };
    if (pose.mouth) {
        switch (*pose.mouth) {
        case MouthShape::Closed: break;
        case MouthShape::Wide1: open(5.6, 2.2, false); return;
        case MouthShape::Wide2: open(6.2, 3.6, false); return;
        case MouthShape::Wide3: open(6.8, 5.0, false); return;
        case MouthShape::Wide4: open(7.4, 6.4, false); return;
        case MouthShape::Medium: open(4.6, 5.0, true); return;
        case MouthShape::Narrow: open(2.8, 4.2, true); return;
        }
    }
    switch (pose.mouth ? Face::Smile : pose.face) {
    case Face::Smile: canvas.paint(arc({64, mouthY - 4.2}, 5.4, 35, 145, 2.2), outline); break;
    case Face::Grin: open(7.2, 5.6, false); break;
    case Face::Oh: open(3.2, 5.0, true); break;
    }
}

void drawBody(Canvas& canvas, const Pose& pose)
{
    drawCord(canvas, pose);
    for (const double x : {42.0, 86.0}) inked(canvas, ellipse({x, 117.5}, {9, 3.6}), outline, 0.5);

    const Shape body = grow(polygon({{34, 60}, {94, 60}, {104, 111}, {24, 111}}), 6);
    inked(canvas, body, [](Vec p) { return mix(bodyTop, bodyBottom, std::clamp((p.y - 54) / 64, 0.0, 1.0)); });
    canvas.paint(intersect(body, halfPlaneBelow(110)), bodyShade, 0.5);
    canvas.paint(intersect(ellipse({40, 66}, {9, 4.2}), body), white, 0.3);
    for (const double x : {40.0, 88.0}) inked(canvas, roundedBox({x, 57.5}, {7.5, 4.5}, 3.5), bodyShade, 1.3);

    // The dial: finger holes round the face, open at the bottom, and the finger stop.
    const Shape dial = circle(dialCentre, 26.5);
    inked(canvas, dial, [](Vec p) { return mix(plate, plateEdge, std::clamp((length(p - dialCentre) - 17) / 9, 0.0, 1.0)); });
    for (int i = 0; i < 10; ++i) {
        const double angle = (140 + i * 260.0 / 9) * std::numbers::pi / 180;
        const Vec c = dialCentre + Vec{std::cos(angle), std::sin(angle)} * 21.8;
        canvas.paint(grow(circle(c, 2.6), 0.9), holeRim);
        canvas.paint(circle(c, 2.6), hole);
    }
    for (const double side : {-1.0, 1.0}) canvas.paint(ellipse({64 + side * 13.5, 93.5}, {4, 2.6}), cheek, 0.6);
    drawEyes(canvas, pose);
    drawMouth(canvas, pose);

    const Shape phoneHandset = handset(pose);
    inked(canvas, phoneHandset, [](Vec p) { return mix(bodyTop, bodyBottom, std::clamp((p.y - 34) / 26, 0.0, 1.0)); });
    canvas.paint(intersect(transformed(capsule({42, 37.5}, {86, 37.5}, 1.5), handsetPivot, pose.handsetTilt, {1, 1},
                                       {pose.handsetShift, -pose.handsetLift}),
                           phoneHandset),
                 white, 0.45);
}

Shape sparkleStar(Vec c, double r)
{
    std::vector<Vec> points;
    for (int i = 0; i < 8; ++i) {
        const double angle = i * std::numbers::pi / 4 - std::numbers::pi / 2;
        const double radius = i % 2 == 0 ? r : r * 0.38;
        points.push_back(c + Vec{std::cos(angle), std::sin(angle)} * radius);
    }
    return polygon(points);
}

void drawEffects(Canvas& canvas, const Pose& pose)
{
    canvas.setView({});
    for (int i = 0; i < pose.ring; ++i) {
        const double r = 8 + 5 * i;
        canvas.paint(arc(onHandset(pose, {30, 44}), r, 200, 250, 2.2), outline);
        canvas.paint(arc(onHandset(pose, {98, 44}), r, 290, 340, 2.2), outline);
    }
    static const std::array<std::vector<std::pair<Vec, double>>, 3> sparkles{{
        {{{18, 34}, 7}, {{110, 28}, 6}, {{100, 70}, 4}},
        {{{12, 62}, 5}, {{114, 52}, 8}, {{62, 10}, 6}, {{26, 14}, 4}},
        {{{22, 24}, 8}, {{104, 12}, 5}, {{116, 82}, 5}, {{10, 90}, 4}},
    }};
    if (pose.sparkle > 0)
        for (const auto& [c, r] : sparkles[static_cast<std::size_t>(pose.sparkle - 1) % 3])
            inked(canvas, sparkleStar(c, r), star, 1.2);
    for (int i = 0; i < pose.zzz; ++i) {
        const double s = 11 - 2.5 * i;
        const Vec c{92 + 11.0 * i, 19 - 8.5 * i};
        const Shape z = polyline({c, c + Vec{s, 0}, c + Vec{0, s}, c + Vec{s, s}}, 2.2);
        canvas.paint(grow(z, 1.1), white);
        canvas.paint(z, sleepBlue);
    }
}

Canvas draw(const Pose& pose)
{
    Canvas canvas(frameSize, frameSize);
    if (pose.hidden) return canvas;
    View view;
    view.scale = {pose.scale * (1 + pose.squash), pose.scale * (1 - pose.squash)};
    view.degrees = pose.lean;
    view.offset = pose.shift;
    canvas.setView(view);
    drawBody(canvas, pose);
    drawEffects(canvas, pose);
    return canvas;
}

// ---- Animations

struct FramePlan {
    Pose pose;
    std::uint16_t duration = 10;
    std::int16_t exit = acs::Frame::exitContinues;
    std::vector<acs::Branch> branches{};
    bool talks = false; // gets mouth overlays
    bool ring = false;  // plays the ring
};

struct AnimationPlan {
    std::string name;
    acs::Transition transition = acs::Transition::None;
    std::vector<FramePlan> frames;
};

Pose rest() { return {}; }

// A gesture as characters lay them out: outward frames from the rest pose, each leaving to the
// one before, the last one held (and able to speak), and a closing empty frame that is never
// shown, which frame 0 leaves to.
AnimationPlan gesture(std::string name, std::vector<std::pair<Pose, std::uint16_t>> outward)
{
    AnimationPlan a{std::move(name), acs::Transition::ExitBranches, {}};
    const auto last = static_cast<std::int16_t>(outward.size());
    for (std::size_t i = 0; i < outward.size(); ++i) {
        FramePlan f{outward[i].first, outward[i].second};
        f.exit = i == 0 ? last : static_cast<std::int16_t>(i - 1);
        a.frames.push_back(f);
    }
    a.frames.back().talks = true;
    FramePlan closing{Pose{.hidden = true}, 0};
    a.frames.push_back(closing);
    return a;
}

std::vector<AnimationPlan> animations()
{
    std::vector<AnimationPlan> list;
    const auto once = [&](std::string name, std::vector<FramePlan> frames) {
        list.push_back({std::move(name), acs::Transition::None, std::move(frames)});
    };

    once("RestPose", {{rest(), 10, -2, {}, true}});
    once("Show", {{{.scale = 0.2}, 5}, {{.scale = 0.5, .squash = -0.1}, 5}, {{.scale = 0.85, .squash = -0.08}, 5},
                  {{.scale = 1.06, .squash = -0.05, .eyes = Eyes::Happy}, 6}, {{.squash = 0.06, .eyes = Eyes::Happy}, 6},
                  {{.squash = -0.02}, 6}, {rest(), 10, -2, {}, true}});
    once("Hide", {{rest(), 6}, {{.squash = 0.08, .eyes = Eyes::Happy}, 6}, {{.scale = 0.9, .squash = -0.08, .lids = 0.1}, 5},
                  {{.scale = 0.6, .squash = -0.1, .lids = 0.1}, 5}, {{.scale = 0.25, .lids = 0.1}, 5}, {{.hidden = true}, 10}});

    const auto alert = [](double lift, double tilt, int ring) {
        return Pose{.handsetLift = lift, .handsetTilt = tilt, .eyes = Eyes::Wide, .brows = 0.8, .face = Face::Oh, .ring = ring};
    };
    AnimationPlan a = gesture("Alert", {{rest(), 6}, {alert(6, -9, 1), 7}, {alert(9, 8, 2), 7}, {alert(6, -7, 1), 7},
                                        {{.handsetLift = 2, .eyes = Eyes::Wide, .brows = 0.6}, 10}});
    a.frames[1].ring = true;
    for (int i = 2; i <= 4; ++i) a.frames[static_cast<std::size_t>(i)].exit = 0; // straight back, no more ringing
    list.push_back(a);

    once("Acknowledge", {{rest(), 6}, {{.squash = 0.07, .shift = {0, 1}, .look = {0, 0.8}, .eyes = Eyes::Happy}, 9},
                         {{.squash = -0.03, .eyes = Eyes::Happy}, 8}, {{.squash = 0.05, .look = {0, 0.6}, .eyes = Eyes::Happy}, 8},
                         {rest(), 10, -2, {}, true}});

    const auto ringing = [](double lift, double tilt, int ring) {
        return Pose{.handsetLift = lift, .handsetTilt = tilt, .brows = 0.3, .face = Face::Grin, .ring = ring};
    };
    a = gesture("Announce", {{rest(), 6}, {ringing(5, -7, 1), 6}, {ringing(7, 7, 2), 6}, {ringing(5, -7, 1), 6},
                             {ringing(7, 7, 2), 6}, {{.eyes = Eyes::Happy, .brows = 0.4, .face = Face::Grin}, 10}});
    a.frames[1].ring = true;
    for (int i = 2; i <= 5; ++i) a.frames[static_cast<std::size_t>(i)].exit = 0;
    list.push_back(a);

    const auto cheer = [](double up, double squash, int sparkle) {
        return Pose{.squash = squash, .shift = {0, -up}, .handsetLift = up / 3, .eyes = Eyes::Happy, .face = Face::Grin,
                    .sparkle = sparkle};
    };
    a = gesture("Congratulate", {{rest(), 5}, {cheer(0, 0.1, 0), 6}, {cheer(10, -0.08, 1), 6}, {cheer(15, -0.05, 2), 6},
                                 {cheer(5, -0.02, 3), 5}, {cheer(0, 0.08, 1), 6}, {cheer(0, 0, 2), 10}});
    for (int i = 2; i <= 6; ++i) a.frames[static_cast<std::size_t>(i)].exit = 0;
    list.push_back(a);

    list.push_back(gesture("GestureUp", {{rest(), 6}, {{.handsetLift = 6, .handsetTilt = -10, .look = {0, -1}}, 6},
                                         {{.handsetLift = 14, .handsetTilt = -22, .look = {0.3, -1}, .brows = 0.5}, 10}}));
    list.push_back(gesture("GestureDown", {{rest(), 6}, {{.squash = 0.03, .handsetTilt = 10, .look = {0, 1}}, 6},
                                           {{.squash = 0.05, .lean = 3, .handsetLift = 3, .handsetTilt = 20, .look = {0.3, 1}}, 10}}));
    list.push_back(gesture("GestureLeft", {{rest(), 6}, {{.lean = -4, .handsetTilt = -8, .handsetShift = -4, .look = {-1, 0}}, 6},
                                           {{.lean = -8, .handsetTilt = -14, .handsetShift = -7, .look = {-1, -0.2}}, 10}}));
    list.push_back(gesture("GestureRight", {{rest(), 6}, {{.lean = 4, .handsetTilt = 8, .handsetShift = 4, .look = {1, 0}}, 6},
                                            {{.lean = 8, .handsetTilt = 14, .handsetShift = 7, .look = {1, -0.2}}, 10}}));
    list.push_back(gesture("Listen", {{rest(), 6}, {{.handsetLift = 4, .handsetTilt = 10, .look = {-0.6, -0.6}, .brows = 0.4}, 10}}));
    list.push_back(gesture("Hear", {{rest(), 5}, {{.look = {0, -0.4}, .eyes = Eyes::Wide, .brows = 0.7}, 10}}));
    list.push_back(gesture("Pleased", {{rest(), 6}, {{.squash = 0.03, .eyes = Eyes::Happy, .face = Face::Grin}, 10}}));
    list.push_back(gesture("Surprised", {{rest(), 5}, {{.squash = -0.04, .handsetLift = 3, .eyes = Eyes::Wide, .brows = 1,
                                                         .face = Face::Oh}, 10}}));
    list.push_back(gesture("Think", {{rest(), 6}, {{.look = {0.8, -0.9}, .brows = 0.5}, 8},
                                     {{.handsetTilt = 6, .look = {1, -1}, .lids = 0.8, .brows = 0.6}, 10}}));

    // Idle: a blink; a look around; a stretch and yawn; a doze that loops until left.
    once("Idle1_1", {{rest(), 30}, {{.lids = 0.5}, 3}, {{.lids = 0}, 5}, {{.lids = 0.5}, 3}, {rest(), 30}});
    AnimationPlan look{"Idle1_2", acs::Transition::ExitBranches,
                       {{rest(), 20}, {{.look = {-1, 0}}, 40}, {{.look = {-0.6, -0.8}}, 12}, {rest(), 10},
                        {{.look = {1, 0}}, 40}, {{.look = {0.6, 0.8}}, 12}, {rest(), 20}}};
    for (std::size_t i = 0; i + 1 < look.frames.size(); ++i) look.frames[i].exit = 6;
    list.push_back(look);
    AnimationPlan yawn{"Idle2_1", acs::Transition::ExitBranches,
                       {{rest(), 10}, {{.squash = -0.05, .handsetLift = 4, .lids = 0.6}, 10},
                        {{.squash = -0.09, .handsetLift = 8, .lids = 0, .mouth = MouthShape::Wide4}, 40},
                        {{.squash = -0.04, .handsetLift = 3, .lids = 0.3, .mouth = MouthShape::Narrow}, 10},
                        {{.lids = 0.7}, 20}, {rest(), 20}}};
    for (std::size_t i = 0; i + 1 < yawn.frames.size(); ++i) yawn.frames[i].exit = 5;
    list.push_back(yawn);
    AnimationPlan doze{"Idle3_1", acs::Transition::ExitBranches,
                       {{{.lids = 0.4}, 20}, {{.squash = 0.02, .lids = 0}, 40}, {{.squash = 0.04, .lids = 0, .zzz = 1}, 40},
                        {{.squash = 0.02, .lids = 0, .zzz = 2}, 40}, {{.lids = 0, .zzz = 3}, 40, -2, {{1, 100}}},
                        {{.lids = 0.5, .brows = 0.4}, 10}, {rest(), 10}}};
    doze.frames[0].exit = 6;
    for (int i = 1; i <= 4; ++i) doze.frames[static_cast<std::size_t>(i)].exit = 5;
    doze.frames[5].exit = 6;
    doze.frames[6].exit = acs::Frame::exitEnds;
    list.push_back(doze);

    // Moving: lean into the way, bobbing until left.
    const auto moving = [&](std::string name, Pose lean) {
        Pose bob = lean;
        bob.shift.y -= 2;
        AnimationPlan m{std::move(name), acs::Transition::ExitBranches,
                        {{rest(), 5, acs::Frame::exitEnds}, {lean, 10, 0}, {bob, 10, 0, {{1, 100}}}}};
        list.push_back(m);
    };
    moving("MoveLeft", {.lean = -7, .look = {-1, 0}});
    moving("MoveRight", {.lean = 7, .look = {1, 0}});
    moving("MoveUp", {.squash = -0.06, .handsetLift = 4, .look = {0, -1}});
    moving("MoveDown", {.squash = 0.06, .look = {0, 1}});
    return list;
}

std::vector<acs::State> states()
{
    return {
        {"SHOWING", {"Show"}},
        {"HIDING", {"Hide"}},
        {"SPEAKING", {"RestPose"}},
        {"IDLINGLEVEL1", {"Idle1_1", "Idle1_2"}},
        {"IDLINGLEVEL2", {"Idle2_1", "Idle1_1"}},
        {"IDLINGLEVEL3", {"Idle3_1"}},
        {"GESTURINGUP", {"GestureUp"}},
        {"GESTURINGDOWN", {"GestureDown"}},
        {"GESTURINGLEFT", {"GestureLeft"}},
        {"GESTURINGRIGHT", {"GestureRight"}},
        {"MOVINGUP", {"MoveUp"}},
        {"MOVINGDOWN", {"MoveDown"}},
        {"MOVINGLEFT", {"MoveLeft"}},
        {"MOVINGRIGHT", {"MoveRight"}},
        {"LISTENING", {"Listen"}},
        {"HEARING", {"Hear"}},
    };
}

// A short double trill, 8-bit PCM at 11025 Hz.
std::vector<std::uint8_t> ringSound()
{
    constexpr int rate = 11025;
    std::vector<std::uint8_t> samples;
    for (int i = 0; i < rate * 55 / 100; ++i) {
        const double t = double(i) / rate;
        const double burst = std::fmod(t, 0.3);
        const double envelope = burst < 0.22 ? std::min(1.0, burst / 0.01) * std::min(1.0, (0.22 - burst) / 0.04) : 0;
        const double pitch = std::fmod(t * 24, 1.0) < 0.5 ? 1180 : 1420;
        const double wave = std::sin(2 * std::numbers::pi * pitch * t) * 0.7 + std::sin(4 * std::numbers::pi * pitch * t) * 0.15;
        samples.push_back(static_cast<std::uint8_t>(std::lround(128 + 70 * envelope * wave)));
    }
    std::vector<std::uint8_t> wav;
    const auto text = [&](const char* s) {
        for (int k = 0; k < 4; ++k) wav.push_back(static_cast<std::uint8_t>(s[k]));
    };
    const auto u32 = [&](std::uint32_t v) {
        for (int k = 0; k < 4; ++k) wav.push_back(static_cast<std::uint8_t>(v >> (8 * k)));
    };
    const auto u16 = [&](std::uint16_t v) {
        wav.push_back(static_cast<std::uint8_t>(v));
        wav.push_back(static_cast<std::uint8_t>(v >> 8));
    };
    text("RIFF");
    u32(static_cast<std::uint32_t>(36 + samples.size() + samples.size() % 2));
    text("WAVE");
    text("fmt ");
    u32(16);
    u16(1); // PCM
    u16(1);
    u32(rate);
    u32(rate);
    u16(1);
    u16(8);
    text("data");
    u32(static_cast<std::uint32_t>(samples.size()));
    wav.insert(wav.end(), samples.begin(), samples.end());
    if (samples.size() % 2) wav.push_back(0);
    return wav;
}

// ---- Assembly

// Shared images: identical pictures are stored once.
class ImagePool {
public:
    explicit ImagePool(std::vector<acs::Image>& images) : images_(images) {}

    std::uint32_t add(const Indexed& picture)
    {
        acs::Image image;
        image.width = static_cast<std::uint16_t>(picture.width);
        image.height = static_cast<std::uint16_t>(picture.height);
        image.pixels = picture.pixels;
        image.region = acs::regionOf(image, transparentIndex);
        const auto key = std::pair{std::pair{picture.width, picture.height}, picture.pixels};
        const auto [found, added] = known_.try_emplace(key, static_cast<std::uint32_t>(images_.size()));
        if (added) images_.push_back(std::move(image));
        return found->second;
    }

private:
    std::vector<acs::Image>& images_;
    std::map<std::pair<std::pair<int, int>, std::vector<std::uint8_t>>, std::uint32_t> known_;
};

// The smallest box holding every pixel where two pictures of the whole frame differ.
Box differences(const Indexed& a, const Indexed& b, Box box)
{
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x)
            if (a.pixels[static_cast<std::size_t>(y) * a.width + x] != b.pixels[static_cast<std::size_t>(y) * b.width + x]) {
                box.left = std::min(box.left, double(x));
                box.top = std::min(box.top, double(y));
                box.right = std::max(box.right, double(x + 1));
                box.bottom = std::max(box.bottom, double(y + 1));
            }
    return box;
}

Indexed crop(const Indexed& whole, Box box)
{
    Indexed part;
    part.left = static_cast<int>(box.left);
    part.top = static_cast<int>(box.top);
    part.width = static_cast<int>(box.right - box.left);
    part.height = static_cast<int>(box.bottom - box.top);
    for (int y = 0; y < part.height; ++y)
        for (int x = 0; x < part.width; ++x)
            part.pixels.push_back(whole.pixels[static_cast<std::size_t>(part.top + y) * whole.width + part.left + x]);
    return part;
}

std::vector<acs::Rgb> systemColours()
{
    std::vector<acs::Rgb> palette(256, acs::Rgb{0, 0, 0});
    const std::array<std::uint32_t, 10> low{0x000000, 0x800000, 0x008000, 0x808000, 0x000080,
                                            0x800080, 0x008080, 0xC0C0C0, 0xC0DCC0, 0xA6CAF0};
    const std::array<std::uint32_t, 10> high{0xFFFBF0, 0xA0A0A4, 0x808080, 0xFF0000, 0x00FF00,
                                             0xFFFF00, 0x0000FF, 0xFF00FF, 0x00FFFF, 0xFFFFFF};
    const auto rgbOf = [](std::uint32_t v) {
        return acs::Rgb{static_cast<std::uint8_t>(v >> 16), static_cast<std::uint8_t>(v >> 8), static_cast<std::uint8_t>(v)};
    };
    for (std::size_t i = 0; i < 10; ++i) {
        palette[i] = rgbOf(low[i]);
        palette[246 + i] = rgbOf(high[i]);
    }
    palette[transparentIndex] = {0xFF, 0x00, 0xFF};
    return palette;
}

} // namespace

acs::Character makePhony()
{
    const std::vector<AnimationPlan> plans = animations();

    // Draw everything first: the palette is chosen from all the pictures together.
    struct Drawn {
        Canvas base;
        std::vector<Canvas> mouths; // by shape, for frames that talk
    };
    std::vector<std::vector<Drawn>> drawn;
    PaletteBuilder colours;
    for (const AnimationPlan& plan : plans) {
        auto& frames = drawn.emplace_back();
        for (const FramePlan& f : plan.frames) {
            Drawn d{draw(f.pose), {}};
            colours.gather(d.base);
            if (f.talks)
                for (int shape = 0; shape < acs::mouthShapeCount; ++shape) {
                    Pose speaking = f.pose;
                    speaking.mouth = static_cast<MouthShape>(shape);
                    d.mouths.push_back(draw(speaking));
                    colours.gather(d.mouths.back());
                }
            frames.push_back(std::move(d));
        }
    }
    std::vector<Colour> palette(256);
    std::vector<std::uint8_t> slots;
    for (int i = 11; i < 246; ++i) slots.push_back(static_cast<std::uint8_t>(i));
    colours.build(palette, slots);

    acs::Character c;
    c.id = {0x6F1C0E5A, 0x2B47, 0x4C1D, {0x9A, 0x3E, 0x50, 0x68, 0x6F, 0x6E, 0x79, 0x21}};
    c.width = c.height = frameSize;
    c.transparentIndex = transparentIndex;
    c.styleFlags = acs::style::voiceEnabled | acs::style::balloonEnabled | acs::style::standardAnimationSet;
    c.voice = acs::Voice{};
    c.voice->speed = 170;
    c.voice->pitch = 150;
    c.voice->details = acs::Voice::Details{0x409, "", acs::Gender::Female, 30, "Cheerful"};
    c.balloon = acs::Balloon{2, 32, {0x20, 0x18, 0x1C}, {0xFF, 0xFF, 0xE1}, {0x3B, 0x24, 0x30}, "DejaVu Sans", -13, 400, false};
    c.palette = systemColours();
    for (std::uint8_t slot : slots)
        c.palette[slot] = {static_cast<std::uint8_t>(palette[slot].r), static_cast<std::uint8_t>(palette[slot].g),
                           static_cast<std::uint8_t>(palette[slot].b)};
    c.states = states();
    c.localizedInfo = {{acs::Character::english, "Phony",
                        "I'm Phony, Corvel's telephone. I watch the line, tell you who is calling and take "
                        "messages when you're away.",
                        ""}};
    c.sounds.push_back(ringSound());

    const Box whole{0, 0, frameSize, frameSize};
    ImagePool pool(c.images);
    for (std::size_t a = 0; a < plans.size(); ++a) {
        acs::Animation animation{plans[a].name, plans[a].transition, "", {}};
        for (std::size_t i = 0; i < plans[a].frames.size(); ++i) {
            const FramePlan& plan = plans[a].frames[i];
            const Drawn& d = drawn[a][i];
            acs::Frame frame;
            frame.duration = plan.duration;
            frame.exitFrame = plan.exit;
            frame.branches = plan.branches;
            frame.sound = plan.ring ? 0 : acs::Frame::noSound;
            const Indexed base = colours.map(d.base, transparentIndex);
            if (base.width > 0) frame.images.push_back({pool.add(base), static_cast<std::int16_t>(base.left),
                                                        static_cast<std::int16_t>(base.top)});
            if (!d.mouths.empty()) {
                const Indexed full = colours.map(d.base, transparentIndex, &whole);
                std::vector<Indexed> shapes;
                Box changed{frameSize, frameSize, 0, 0};
                for (const Canvas& m : d.mouths) {
                    shapes.push_back(colours.map(m, transparentIndex, &whole));
                    changed = differences(full, shapes.back(), changed);
                }
                changed = {changed.left - 1, changed.top - 1, changed.right + 1, changed.bottom + 1};
                for (std::size_t s = 0; s < shapes.size(); ++s) {
                    const Indexed part = crop(shapes[s], changed);
                    frame.mouths.push_back({static_cast<MouthShape>(s), false, static_cast<std::uint16_t>(pool.add(part)),
                                            static_cast<std::int16_t>(part.left), static_cast<std::int16_t>(part.top),
                                            static_cast<std::uint16_t>((changed.left + changed.right) / 2),
                                            static_cast<std::uint16_t>((changed.top + changed.bottom) / 2), std::nullopt});
                }
            }
            animation.frames.push_back(std::move(frame));
        }
        c.animations.push_back(std::move(animation));
    }
    return c;
}

} // namespace corvel::phony

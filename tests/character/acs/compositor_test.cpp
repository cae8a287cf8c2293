#include "character/acs/compositor.h"

#include <gtest/gtest.h>

namespace corvel::acs {
namespace {

constexpr std::uint32_t clear = 0, red = 0xFF0000FF, blue = 0x0000FFFF, green = 0x00FF00FF;

// A 4 x 3 frame; palette 0 transparent, 1 red, 2 blue, 3 green.
Character canvasCharacter()
{
    Character c;
    c.width = 4;
    c.height = 3;
    c.transparentIndex = 0;
    c.palette = {{0, 0, 0}, {0xFF, 0, 0}, {0, 0, 0xFF}, {0, 0xFF, 0}};
    c.images = {Image{2, 2, {1, 1, 1, 0}, {}},   // red, its lower right transparent
                Image{3, 3, {2, 2, 2, 2, 2, 2, 2, 2, 2}, {}}, // all blue
                Image{1, 1, {3}, {}},           // green mouth
                Image{0, 3, {}, {}}};           // no pixels at all
    return c;
}

std::vector<std::uint32_t> row(const RgbaImage& image, int y)
{
    std::vector<std::uint32_t> pixels;
    for (int x = 0; x < image.width; ++x) pixels.push_back(image.at(x, y));
    return pixels;
}

TEST(Compositor, DrawsTheFirstImageOnTopWithTransparencyAndClipping)
{
    const Character c = canvasCharacter();
    Frame f;
    f.images = {{0, 0, 0}, {1, 1, -1}}; // the blue square sticks out above the frame
    const RgbaImage image = composeFrame(c, f);
    ASSERT_EQ(image.width, 4);
    ASSERT_EQ(image.height, 3);
    EXPECT_EQ(row(image, 0), (std::vector<std::uint32_t>{red, red, blue, blue}));
    EXPECT_EQ(row(image, 1), (std::vector<std::uint32_t>{red, blue, blue, blue})); // through red's hole
    EXPECT_EQ(row(image, 2), (std::vector<std::uint32_t>{clear, clear, clear, clear}));
}

TEST(Compositor, MouthOverlaysDrawOnTopOrInsteadOfTheFirstImage)
{
    const Character c = canvasCharacter();
    Frame f;
    f.images = {{0, 0, 0}, {1, 2, 1}};
    f.mouths = {{MouthShape::Wide1, false, 2, 0, 0, 0, 0, std::nullopt},
                {MouthShape::Narrow, true, 2, 3, 2, 0, 0, std::nullopt}};
    EXPECT_EQ(composeFrame(c, f, MouthShape::Wide1).at(0, 0), green);
    EXPECT_EQ(composeFrame(c, f, MouthShape::Wide1).at(1, 0), red);
    const RgbaImage replaced = composeFrame(c, f, MouthShape::Narrow);
    EXPECT_EQ(replaced.at(0, 0), clear); // the first image is left out
    EXPECT_EQ(replaced.at(3, 2), green);
    EXPECT_EQ(composeFrame(c, f, MouthShape::Wide4), composeFrame(c, f)); // no such overlay: the frame as is
}

TEST(Compositor, SkipsWhatDoesNotExist)
{
    Character c = canvasCharacter();
    c.palette.resize(2); // blue and green have no colour now
    Frame f;
    f.images = {{7, 0, 0}, {3, 0, 0}, {1, 0, 0}, {0, 3, 2}};
    f.mouths = {{MouthShape::Closed, true, 9, 0, 0, 0, 0, std::nullopt}};
    const RgbaImage image = composeFrame(c, f, MouthShape::Closed);
    EXPECT_EQ(image.at(0, 0), clear);
    EXPECT_EQ(image.at(3, 2), red);
}

TEST(Compositor, VisemesMapToMouthShapes)
{
    EXPECT_EQ(mouthShapeForViseme(0), MouthShape::Closed);
    EXPECT_EQ(mouthShapeForViseme(21), MouthShape::Closed);
    EXPECT_EQ(mouthShapeForViseme(2), MouthShape::Wide4);
    EXPECT_EQ(mouthShapeForViseme(11), MouthShape::Wide3);
    EXPECT_EQ(mouthShapeForViseme(12), MouthShape::Wide1);
    EXPECT_EQ(mouthShapeForViseme(20), MouthShape::Wide1);
    EXPECT_EQ(mouthShapeForViseme(9), MouthShape::Medium);
    EXPECT_EQ(mouthShapeForViseme(10), MouthShape::Narrow);
    EXPECT_EQ(mouthShapeForViseme(-1), MouthShape::Closed);
    EXPECT_EQ(mouthShapeForViseme(99), MouthShape::Closed);
}

} // namespace
} // namespace corvel::acs

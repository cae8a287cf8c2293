#include "gif_writer.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QString>

#include <filesystem>
#include <random>
#include <set>
#include <string>

#include <stdlib.h>

namespace corvel::assets {
namespace {

namespace fs = std::filesystem;

QImage load(const fs::path& path) { return QImage(QString::fromStdString(path.string())); }

// Qt's own decoder reads what we write back pixel for pixel.
class GifWriterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = (fs::temp_directory_path() / "corvel-gif-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        folder = pattern;
    }
    void TearDown() override { fs::remove_all(folder); }

    fs::path folder;
};

TEST_F(GifWriterTest, QtReadsEveryPixelBack)
{
    struct Case {
        int width, height, colours;
        bool noise; // noise fills the code table again and again; runs make long strings
    };
    const Case cases[] = {{1, 1, 1, false},   {1, 1, 256, true},   {9, 7, 2, true},
                          {17, 5, 3, false},  {64, 48, 16, true},  {1, 1000, 5, false},
                          {300, 200, 256, true}, {257, 129, 128, false}};
    std::mt19937 random(7);
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.width) + "x" + std::to_string(c.height) + ", " +
                     std::to_string(c.colours) + " colours");
        std::vector<Rgb> palette(c.colours);
        for (auto& colour : palette)
            colour = {std::uint8_t(random()), std::uint8_t(random()), std::uint8_t(random())};
        std::vector<std::uint8_t> pixels(static_cast<std::size_t>(c.width) * c.height);
        for (std::size_t i = 0; i < pixels.size(); ++i)
            pixels[i] = std::uint8_t((c.noise ? random() : i / 11 + i % 7 / 6) % c.colours);

        const fs::path path = folder / "round.gif";
        ASSERT_TRUE(writeGif(path, c.width, c.height, palette, pixels));
        const QImage image = load(path);
        ASSERT_EQ(image.size(), QSize(c.width, c.height));
        int wrong = 0;
        for (int y = 0; y < c.height; ++y)
            for (int x = 0; x < c.width; ++x) {
                const Rgb want = palette[pixels[static_cast<std::size_t>(y) * c.width + x]];
                wrong += image.pixel(x, y) != qRgb(want.r, want.g, want.b);
            }
        EXPECT_EQ(wrong, 0);
    }
}

TEST_F(GifWriterTest, RefusesPicturesItCannotWrite)
{
    const fs::path path = folder / "bad.gif";
    const std::vector<Rgb> two{{0, 0, 0}, {255, 255, 255}};
    EXPECT_FALSE(writeGif(path, 2, 2, two, {0, 1, 2, 0})) << "index outside the palette";
    EXPECT_FALSE(writeGif(path, 2, 2, two, {0, 1, 0})) << "too few pixels";
    EXPECT_FALSE(writeGif(path, 1, 1, {}, {0})) << "no colours";
    EXPECT_FALSE(writeGif(path, 1, 1, std::vector<Rgb>(257), {0})) << "too many colours";
    EXPECT_FALSE(writeGif(path, 0, 0, two, {})) << "no pixels";
    EXPECT_FALSE(fs::exists(path));
    EXPECT_FALSE(writeGif(folder / "missing" / "x.gif", 1, 1, two, {0}));
}

// The LED counters put two digits side by side: all ten must share one size and two colours,
// each must differ from the rest, and 8 lights every segment any other digit uses.
TEST(ShippedPictures, DigitsAreTwoColourLedsOfOneSize)
{
    const fs::path digits = fs::path(CORVEL_ASSETS_DIR) / "digits";
    const QImage eight = load(digits / "8.gif");
    ASSERT_FALSE(eight.isNull());
    std::set<QRgb> colours;
    std::vector<QImage> seen;
    for (int d = 0; d < 10; ++d) {
        SCOPED_TRACE(d);
        const QImage image = load(digits / (std::to_string(d) + ".gif"));
        ASSERT_EQ(image.size(), eight.size());
        const QRgb dark = image.pixel(0, 0);
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x) {
                colours.insert(image.pixel(x, y));
                if (image.pixel(x, y) != dark) {
                    EXPECT_NE(eight.pixel(x, y), dark) << x << "," << y;
                }
            }
        for (const QImage& other : seen) EXPECT_NE(image, other);
        seen.push_back(image);
    }
    EXPECT_EQ(colours.size(), 2u);

    const QImage caller = load(fs::path(CORVEL_ASSETS_DIR) / "default.gif");
    const QImage withheld = load(fs::path(CORVEL_ASSETS_DIR) / "withheld.gif");
    ASSERT_FALSE(caller.isNull());
    EXPECT_EQ(withheld.size(), caller.size());
    EXPECT_NE(withheld, caller);
}

} // namespace
} // namespace corvel::assets

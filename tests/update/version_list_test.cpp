#include "update/version_list.h"

#include <gtest/gtest.h>

namespace corvel {
namespace {

const std::string digest = "1f4d67fb1a3fb2d3dc5ae4ee0fd22a4ee1c96848eea2a7e6f36ceefa9d9b1ef5";

TEST(OfferedVersion, TakesTheTextAfterTheColonAndAnOptionalDigest)
{
    EXPECT_EQ(offeredVersion("CoRvEl:1.8.0\n")->version, "1.8.0");
    EXPECT_FALSE(offeredVersion("corvel:1.8.0")->sha256);
    EXPECT_EQ(offeredVersion("corvel:1.8.0 sha256=" + digest)->sha256, digest);
    EXPECT_FALSE(offeredVersion("corvel:1.8.0 sha256=abc")->sha256) << "not a digest";
    EXPECT_FALSE(offeredVersion("nothing here"));
    EXPECT_EQ(offeredVersion("  CORVEL: 2.0.1 \r\n")->version, "2.0.1") << "blanks around the line";
    EXPECT_FALSE(offeredVersion("corvel:\r\n")) << "an empty version offers nothing";
    EXPECT_FALSE(offeredVersion("ombrel-corvel:9.0.0\nthe corvel: 9.0.0")) << "only a line that begins with the key";
    EXPECT_EQ(offeredVersion("other:1\ncorvel:3.1.4\n")->version, "3.1.4");
}

TEST(OfferedVersion, OnlyALaterVersionNumberByNumberIsNewer)
{
    EXPECT_TRUE(isNewerVersion("0.10.0", "0.9.9")) << "numbers, not text";
    EXPECT_TRUE(isNewerVersion("1.0", "0.9.9"));
    EXPECT_FALSE(isNewerVersion("0.1.0", "0.1.0"));
    EXPECT_FALSE(isNewerVersion("0.0.9", "0.1.0")) << "an older version";
    EXPECT_FALSE(isNewerVersion("1.0.0-beta", "0.1.0")) << "not dot-separated numbers";
    EXPECT_FALSE(isNewerVersion("..", "0.1.0"));
}

} // namespace
} // namespace corvel

#include "telephony/sip/sip_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/memory_settings_store.h"

namespace corvel::sip {
namespace {

using ::testing::ElementsAre;
using ::testing::FieldsAre;

class SipSettingsTest : public ::testing::Test {
protected:
    void set(std::string_view key, std::string_view value) { store.write("withheld", "sip", key, value); }
    testing::MemorySettingsStore store;
};

TEST(SipListenAddressTest, AddressesWithAndWithoutPortsAndBrackets)
{
    const auto parsed = [](std::string_view text) {
        const auto address = parseListenAddress(text);
        return address ? address->text() : std::string("none");
    };
    EXPECT_EQ(parsed("127.0.0.1:5090"), "127.0.0.1:5090");
    EXPECT_EQ(parsed(" 192.0.2.1 "), "192.0.2.1:5060");
    EXPECT_EQ(parsed(":5070"), "0.0.0.0:5070");
    EXPECT_EQ(parsed("[::1]:5062"), "[::1]:5062");
    EXPECT_EQ(parsed("[::]"), "[::]:5060");
    EXPECT_EQ(parsed("localhost:5060"), "localhost:5060");
    for (const char* bad : {"", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536", "1.2.3.4:50x", "::1:5060", "[::1",
                            "[::1]5060", "a b:5060", "host;rm -rf:5060", "1.2.3.4:-5"}) {
        EXPECT_EQ(parsed(bad), "none") << bad;
    }
}

TEST_F(SipSettingsTest, TheCommandLineWinsOverTheSettingAndABadSettingGivesTheDefault)
{
    EXPECT_EQ(listenAddress(store, std::nullopt).text(), "0.0.0.0:5060");
    set("listen", "127.0.0.1:5070");
    EXPECT_EQ(listenAddress(store, std::nullopt).text(), "127.0.0.1:5070");
    EXPECT_EQ(listenAddress(store, "127.0.0.2:5080").text(), "127.0.0.2:5080");
    EXPECT_EQ(listenAddress(store, "nonsense:").text(), "127.0.0.1:5070");
    set("listen", "what?");
    EXPECT_EQ(listenAddress(store, std::nullopt).text(), "0.0.0.0:5060");
}

TEST_F(SipSettingsTest, AccountsAreNumberedFromTheFirstUntilOneIsMissing)
{
    set("account", "sip:620@fritz.box");
    set("password", "s3cret");
    set("account2", "7001@pbx.example.invalid:5070;transport=tcp");
    set("user2", "corvel");
    set("account3", "not an address");
    set("account4", "sips:9@secure.invalid");
    set("account6", "sip:left@out.invalid"); // after the gap at 5
    EXPECT_THAT(accounts(store),
                ElementsAre(FieldsAre("sip:620@fritz.box", "620", "s3cret", "fritz.box", "sip:fritz.box"),
                            FieldsAre("sip:7001@pbx.example.invalid:5070;transport=tcp", "corvel", "",
                                      "pbx.example.invalid", "sip:pbx.example.invalid:5070;transport=tcp"),
                            FieldsAre("sips:9@secure.invalid", "9", "", "secure.invalid", "sips:secure.invalid")));
}

TEST_F(SipSettingsTest, NumbersOutOfTheirRangeAreBroughtIntoIt)
{
    EXPECT_EQ(ringInterval(store), Milliseconds(6000));
    set("ringinterval", "250");
    EXPECT_EQ(ringInterval(store), Milliseconds(250));
    set("ringinterval", "0");
    EXPECT_EQ(ringInterval(store), Milliseconds(100)); // a ring every instant would flood the loop
    set("ringinterval", "ten");
    EXPECT_EQ(ringInterval(store), Milliseconds(100));
    EXPECT_EQ(mediaLossTime(store), std::chrono::seconds(60));
    set("medialoss", "999999");
    EXPECT_EQ(mediaLossTime(store), std::chrono::seconds(3600));
}

TEST_F(SipSettingsTest, TrustedHostsAreAListWithoutBlanksOrBrackets)
{
    set("trusted", " 192.0.2.7, [::1],PBX.invalid,, ");
    EXPECT_THAT(trustedHosts(store), ElementsAre("192.0.2.7", "::1", "pbx.invalid"));
}

TEST(SipHandOverTest, ThePhoneIsCompletedWithTheAccountsDomainWhenItIsOnlyANumber)
{
    const Account account{"sip:620@fritz.box", "620", "", "fritz.box", "sip:fritz.box"};
    EXPECT_EQ(handOverAddress("**611", &account), "sip:**611@fritz.box");
    EXPECT_EQ(handOverAddress("sip:desk@192.0.2.3:5062", &account), "sip:desk@192.0.2.3:5062");
    EXPECT_EQ(handOverAddress("SIPS:desk@h.invalid", nullptr), "SIPS:desk@h.invalid");
    EXPECT_EQ(handOverAddress("desk@192.0.2.3", nullptr), "sip:desk@192.0.2.3");
    EXPECT_EQ(handOverAddress("611", nullptr), ""); // on the direct line nobody knows where 611 is
    EXPECT_EQ(handOverAddress("  ", &account), "");
}

} // namespace
} // namespace corvel::sip

#include "telephony/sip/sip_headers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvel::sip {
namespace {

using ::testing::FieldsAre;
using ::testing::Optional;

CallerHeaders from(std::string display, std::string user, std::string domain = "example.invalid")
{
    return {std::move(display), std::move(user), std::move(domain), {}, {}, false};
}

TEST(SipCallerIdTest, ANumericFromUserIsTheNumberAndItsDisplayNameTheName)
{
    EXPECT_THAT(callerIdentity(from("Jo Bloggs", "+44-20-7946")), FieldsAre("+44-20-7946", "Jo Bloggs", false, false));
    // Visual separators of a telephone number are dropped, a dash is kept for the call log.
    EXPECT_THAT(callerIdentity(from("", "(0171).555-1234")), FieldsAre("0171555-1234", "", false, false));
    // Extensions of a PBX are numbers too.
    EXPECT_THAT(callerIdentity(from("Desk", "**611")), FieldsAre("**611", "Desk", false, false));
}

TEST(SipCallerIdTest, AMissingOrNonNumericUserIsUnavailableButKeepsTheName)
{
    EXPECT_THAT(callerIdentity(from("Alice", "alice")), FieldsAre("", "Alice", false, true));
    EXPECT_THAT(callerIdentity(from("", "")), FieldsAre("", "", false, true));
    EXPECT_THAT(callerIdentity(from("", "+")), FieldsAre("", "", false, true));
    EXPECT_THAT(callerIdentity(from("", "12a4")), FieldsAre("", "", false, true));
    // No telephone number is that long: an absurd one is not trusted, nor cut into a number.
    EXPECT_TRUE(callerIdentity(from("", std::string(200, '1'))).unavailable);
}

TEST(SipCallerIdTest, AnyAskForPrivacyWithholdsTheNumberAndTheName)
{
    EXPECT_THAT(callerIdentity(from("Anonymous", "anonymous", "anonymous.invalid")), FieldsAre("", "", true, false));
    EXPECT_TRUE(callerIdentity(from("", "ANONYMOUS")).withheld);
    EXPECT_TRUE(callerIdentity(from("Jo", "0123", "Anonymous.Invalid")).withheld);
    for (const char* privacy : {"id", "ID", "header; id", "user", "critical;id"}) {
        CallerHeaders headers = from("Jo", "0123");
        headers.privacy = privacy;
        EXPECT_THAT(callerIdentity(headers), FieldsAre("", "", true, false)) << privacy;
    }
    CallerHeaders none = from("Jo", "0123");
    none.privacy = "none";
    EXPECT_FALSE(callerIdentity(none).withheld);
}

TEST(SipCallerIdTest, AnAssertedIdentityCountsOnlyWhenTrusted)
{
    CallerHeaders headers = from("Front door", "door");
    headers.assertedIdentity = R"("Jo \"JB\" Bloggs" <sip:%2B4930123@pbx.invalid;user=phone>, <tel:+4930123>)";
    EXPECT_THAT(callerIdentity(headers), FieldsAre("", "Front door", false, true));

    headers.assertedIdentityTrusted = true;
    EXPECT_THAT(callerIdentity(headers), FieldsAre("+4930123", "Jo \"JB\" Bloggs", false, false));

    // A tel URI alone, without a display name: the From's name stays.
    headers.assertedIdentity = "<tel:+49-30-123;phone-context=example>";
    EXPECT_THAT(callerIdentity(headers), FieldsAre("+49-30-123", "Front door", false, false));

    // An assertion without a number falls back to the From.
    headers.assertedIdentity = "<sip:reception@pbx.invalid>";
    EXPECT_THAT(callerIdentity(headers), FieldsAre("", "Front door", false, true));

    // Asking for privacy withholds even an asserted number.
    headers.assertedIdentity = "<sip:0123@pbx.invalid>";
    headers.privacy = "id";
    EXPECT_TRUE(callerIdentity(headers).withheld);
}

TEST(SipHeaderParsingTest, HostileHeadersGiveNothingRatherThanGarbage)
{
    for (const std::string& header : {std::string(), std::string("<<<>>>"), std::string("\"unclosed <sip:1@x>"),
                                     std::string("sip:"), std::string("<sip:@>"), std::string(100000, '<'),
                                     std::string("\"a\\"), std::string("<mailto:1234@x>"), std::string("<sip:1@[::1")}) {
        for (const NameAddress& address : parseNameAddresses(header)) {
            EXPECT_TRUE(address.scheme == "sip" || address.scheme == "tel") << header;
        }
        CallerHeaders headers = from("", "x");
        headers.assertedIdentity = header;
        headers.privacy = header;
        headers.assertedIdentityTrusted = true;
        const CallerIdentity identity = callerIdentity(headers);
        EXPECT_TRUE(identity.number.empty() || telephoneNumber(identity.number) == identity.number) << header;
    }
    // A quoted "<" belongs to the display name, not to the URI.
    EXPECT_THAT(parseNameAddresses(R"("a <b>, c" <sip:42@h.invalid:5060>)"),
                ::testing::ElementsAre(FieldsAre("a <b>, c", "sip", "42", "h.invalid")));
    // The password of a URI never passes for the user.
    EXPECT_THAT(parseNameAddresses("sip:7:secret@h.invalid"), ::testing::ElementsAre(FieldsAre("", "sip", "7", "h.invalid")));
    // A header of many addresses is read only so far.
    std::string many;
    for (int i = 0; i < 50; ++i) many += "<sip:" + std::to_string(i) + "@h>,";
    EXPECT_EQ(parseNameAddresses(many).size(), 8u);
}

TEST(SipHeaderParsingTest, TheSourceOfARequestIsTheReceivedAddressElseTheSentByHost)
{
    EXPECT_EQ(viaSourceHost("SIP/2.0/UDP 127.0.0.1:5080;branch=z9hG4bK-1"), "127.0.0.1");
    EXPECT_EQ(viaSourceHost("SIP/2.0/TCP PBX.Example.invalid;branch=z;received=192.0.2.7;rport=5060"), "192.0.2.7");
    EXPECT_EQ(viaSourceHost("SIP/2.0/UDP [::1]:5060;branch=z"), "::1");
    EXPECT_EQ(viaSourceHost("SIP/2.0/UDP a.invalid;received=[2001:db8::1]"), "2001:db8::1");
    // Only the topmost Via counts: the others were written by whoever sent it.
    EXPECT_EQ(viaSourceHost("SIP/2.0/UDP 10.0.0.1;branch=a, SIP/2.0/UDP 127.0.0.1;branch=b"), "10.0.0.1");
    EXPECT_EQ(viaSourceHost(""), "");
    EXPECT_EQ(viaSourceHost("garbage"), "");
    EXPECT_EQ(viaSourceHost("SIP/2.0/UDP [::1;branch"), "");
}

TEST(SipInfoKeysTest, DtmfRelayAndDtmfBodiesGiveTheirKey)
{
    EXPECT_THAT(keyFromInfo("application", "dtmf-relay", "Signal=7\r\nDuration=160\r\n"), Optional('7'));
    EXPECT_THAT(keyFromInfo("Application", "DTMF-Relay", "duration=100\nsignal = #\n"), Optional('#'));
    EXPECT_THAT(keyFromInfo("application", "dtmf-relay", "Signal=10"), Optional('*'));
    EXPECT_THAT(keyFromInfo("application", "dtmf-relay", "Signal=11"), Optional('#'));
    EXPECT_THAT(keyFromInfo("application", "dtmf-relay", "Signal=d"), Optional('D'));
    EXPECT_THAT(keyFromInfo("application", "dtmf", "9\r\n"), Optional('9'));
    EXPECT_THAT(keyFromInfo("application", "dtmf", " * "), Optional('*'));
}

TEST(SipInfoKeysTest, BodiesWithoutOneTelephoneKeyGiveNothing)
{
    EXPECT_EQ(keyFromInfo("application", "dtmf-relay", "Duration=160"), std::nullopt);
    EXPECT_EQ(keyFromInfo("application", "dtmf-relay", "Signal=E"), std::nullopt);
    EXPECT_EQ(keyFromInfo("application", "dtmf-relay", "Signal=12"), std::nullopt);
    EXPECT_EQ(keyFromInfo("application", "dtmf-relay", "Signal="), std::nullopt);
    EXPECT_EQ(keyFromInfo("application", "dtmf", "99"), std::nullopt);
    EXPECT_EQ(keyFromInfo("application", "dtmf", std::string(1, '\0')), std::nullopt);
    EXPECT_EQ(keyFromInfo("application", "media_control+xml", "<x/>"), std::nullopt);
    EXPECT_EQ(keyFromInfo("text", "plain", "5"), std::nullopt);
    EXPECT_EQ(keyFromInfo("application", "dtmf-relay", std::string(100000, '=')), std::nullopt);
}

} // namespace
} // namespace corvel::sip

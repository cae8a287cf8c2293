#pragma once

// Reading what a SIP caller sends about themselves: who is calling (From, P-Asserted-Identity,
// Privacy), where the request came from (Via), and keys sent as SIP INFO. All of it is a
// stranger's text: nothing here trusts a length, a quote or a bracket to be where it should.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvel::sip {

// One "name <uri>" or bare URI of a header such as P-Asserted-Identity.
struct NameAddress {
    std::string displayName; // unquoted, blanks trimmed
    std::string scheme;      // "sip", "sips" or "tel", lower case
    std::string user;        // percent-decoded, without URI parameters; empty when there is none
    std::string host;        // lower case; empty for a tel URI
};

// The addresses of a header value, in order (several may be separated by commas); those whose
// URI is not of a scheme a telephone number can come in ("sip", "sips", "tel") are left out.
std::vector<NameAddress> parseNameAddresses(std::string_view header);

// The caller as the INVITE describes them. The From fields are as the SIP stack parsed them;
// the two other headers are their raw values, empty when absent.
struct CallerHeaders {
    std::string fromDisplayName;
    std::string fromUser;
    std::string fromDomain;
    std::string assertedIdentity; // P-Asserted-Identity
    std::string privacy;          // Privacy
    bool assertedIdentityTrusted = false; // the request came from a peer whose assertion counts
};

// What the line reports as caller ID.
struct CallerIdentity {
    std::string number; // as the caller's network spells it: digits, "+", "*", "#" and "-"
    std::string name;
    bool withheld = false;
    bool unavailable = false;
};

inline constexpr std::size_t maxNumberBytes = 64;
inline constexpr std::size_t maxNameBytes = 128;

// A caller who asks for privacy (user "anonymous", the anonymous domain, or a Privacy header
// covering their identity) is withheld; otherwise the number is the asserted one when it is
// trusted and numeric, else the From user part; no numeric user part means unavailable.
CallerIdentity callerIdentity(const CallerHeaders& headers);

// `text` as a telephone number, or nothing when it is not one: an optional leading "+", then
// digits, "*" and "#", with "-" kept and the visual separators ". ( )" dropped.
std::optional<std::string> telephoneNumber(std::string_view text);

// The host a request came from, by its topmost Via header: the "received" parameter when the
// stack added one, else the sent-by host. Lower case, without port or IPv6 brackets; empty
// when the header cannot be read.
std::string viaSourceHost(std::string_view via);

// A key sent in a SIP INFO request with this content type: "application/dtmf-relay" (a
// "Signal=" line) or "application/dtmf" (the key alone). Nothing for any other body or a key
// no telephone has.
std::optional<char> keyFromInfo(std::string_view type, std::string_view subtype, std::string_view body);

} // namespace corvel::sip

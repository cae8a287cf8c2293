#include "telephony/sip/sip_headers.h"

#include <algorithm>
#include <cctype>

#include "base/text.h"

namespace corvel::sip {
namespace {

// Longer header values are read only this far: no genuine caller needs more, and a hostile
// one gains nothing by sending megabytes.
constexpr std::size_t maxHeaderBytes = 2048;
constexpr std::size_t maxAddresses = 8;

bool equalNoCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && text::lower(a) == text::lower(b);
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// "%2B49" is "+49"; a "%" not followed by two hex digits stays as it is.
std::string percentDecoded(std::string_view text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            const int high = hexValue(text[i + 1]);
            const int low = hexValue(text[i + 2]);
            if (high >= 0 && low >= 0) {
                out += static_cast<char>(high * 16 + low);
                i += 2;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

// A quoted display name loses its quotes and backslash escapes; a bare one its blanks.
std::string unquoted(std::string_view name)
{
    const std::string_view value = text::trim(name);
    if (value.size() < 2 || value.front() != '"') return std::string(value);
    std::string out;
    for (std::size_t i = 1; i < value.size(); ++i) {
        if (value[i] == '\\' && i + 1 < value.size()) {
            out += value[++i];
        } else if (value[i] == '"') {
            break;
        } else {
            out += value[i];
        }
    }
    return std::string(text::trim(out));
}

// Shows `stopAt` each character that is outside quoted strings (a quoted string may hold
// backslash escapes) with its position, and gives the first position it accepts, or npos.
template <typename Stop> std::size_t findOutsideQuotes(std::string_view text, Stop stopAt)
{
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted) {
            if (c == '\\') ++i;
            else if (c == '"') quoted = false;
        } else if (c == '"') {
            quoted = true;
        } else if (stopAt(c, i)) {
            return i;
        }
    }
    return std::string_view::npos;
}

// The elements of a header value, split at the commas that are neither quoted nor inside <>.
std::vector<std::string_view> elements(std::string_view header)
{
    std::vector<std::string_view> parts;
    bool bracketed = false;
    std::size_t start = 0;
    findOutsideQuotes(header, [&](char c, std::size_t i) {
        if (c == '<') {
            bracketed = true;
        } else if (c == '>') {
            bracketed = false;
        } else if (c == ',' && !bracketed) {
            parts.push_back(header.substr(start, i - start));
            start = i + 1;
        }
        return false;
    });
    parts.push_back(header.substr(start));
    return parts;
}

std::optional<NameAddress> parseUri(std::string_view uri, std::string displayName)
{
    uri = text::trim(uri);
    const auto colon = uri.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    NameAddress address;
    address.displayName = std::move(displayName);
    address.scheme = text::lower(text::trim(uri.substr(0, colon)));
    std::string_view rest = uri.substr(colon + 1);
    // Headers of the URI itself ("?...") never carry the identity.
    rest = rest.substr(0, rest.find('?'));
    if (address.scheme == "tel") {
        address.user = percentDecoded(text::trim(rest.substr(0, rest.find(';'))));
        return address;
    }
    if (address.scheme != "sip" && address.scheme != "sips") return std::nullopt;
    const auto at = rest.rfind('@');
    std::string_view hostPart = rest;
    if (at != std::string_view::npos) {
        std::string_view user = rest.substr(0, at);
        user = user.substr(0, user.find(':')); // a password never counts
        user = user.substr(0, user.find(';')); // nor do telephone-subscriber parameters
        address.user = percentDecoded(user);
        hostPart = rest.substr(at + 1);
    }
    if (!hostPart.empty() && hostPart.front() == '[') {
        const auto close = hostPart.find(']');
        hostPart = close == std::string_view::npos ? hostPart.substr(1) : hostPart.substr(1, close - 1);
    } else {
        hostPart = hostPart.substr(0, std::min(hostPart.find(':'), hostPart.find(';')));
    }
    address.host = text::lower(text::trim(hostPart));
    return address;
}

std::optional<NameAddress> parseElement(std::string_view element)
{
    element = text::trim(element);
    // The display name may itself hold a "<" when quoted: find the bracket outside quotes.
    const std::size_t open = findOutsideQuotes(element, [](char c, std::size_t) { return c == '<'; });
    if (open != std::string_view::npos) {
        std::string_view uri = element.substr(open + 1);
        uri = uri.substr(0, uri.find('>'));
        return parseUri(uri, unquoted(element.substr(0, open)));
    }
    // A bare URI: what follows ";" after the host is a header parameter.
    return parseUri(element, {});
}

// Whether a Privacy header asks for the caller's identity to be kept from the called party.
bool privacyHidesIdentity(std::string_view privacy)
{
    std::size_t start = 0;
    for (std::size_t i = 0; i <= privacy.size(); ++i) {
        if (i == privacy.size() || privacy[i] == ';' || privacy[i] == ',') {
            const std::string token = text::lower(text::trim(privacy.substr(start, i - start)));
            if (token == "id" || token == "user" || token == "header") return true;
            start = i + 1;
        }
    }
    return false;
}

std::optional<char> telephoneKey(std::string_view value)
{
    value = text::trim(value);
    // Some telephones send the event code of RFC 4733 rather than the key.
    if (value == "10") return '*';
    if (value == "11") return '#';
    if (value.size() != 1) return std::nullopt;
    const char key = static_cast<char>(std::toupper(static_cast<unsigned char>(value.front())));
    if ((key >= '0' && key <= '9') || key == '*' || key == '#' || (key >= 'A' && key <= 'D')) return key;
    return std::nullopt;
}

} // namespace

std::vector<NameAddress> parseNameAddresses(std::string_view header)
{
    header = text::cut(header, maxHeaderBytes);
    std::vector<NameAddress> addresses;
    for (const std::string_view element : elements(header)) {
        if (addresses.size() == maxAddresses) break;
        if (auto address = parseElement(element)) addresses.push_back(std::move(*address));
    }
    return addresses;
}

std::optional<std::string> telephoneNumber(std::string_view text)
{
    if (text.empty() || text.size() > 2 * maxNumberBytes) return std::nullopt;
    std::string number;
    bool hasKey = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '+' && i == 0) {
            number += c;
        } else if ((c >= '0' && c <= '9') || c == '*' || c == '#') {
            number += c;
            hasKey = true;
        } else if (c == '-') {
            number += c;
        } else if (c != '.' && c != '(' && c != ')') {
            return std::nullopt;
        }
    }
    if (!hasKey || number.size() > maxNumberBytes) return std::nullopt;
    return number;
}

CallerIdentity callerIdentity(const CallerHeaders& headers)
{
    CallerIdentity identity;
    if (equalNoCase(headers.fromUser, "anonymous") || equalNoCase(headers.fromDomain, "anonymous.invalid") ||
        privacyHidesIdentity(text::cut(headers.privacy, maxHeaderBytes))) {
        identity.withheld = true;
        return identity;
    }
    const std::string fromName(text::cut(text::trim(headers.fromDisplayName), maxNameBytes));
    if (headers.assertedIdentityTrusted) {
        for (const NameAddress& asserted : parseNameAddresses(headers.assertedIdentity)) {
            if (auto number = telephoneNumber(asserted.user)) {
                identity.number = std::move(*number);
                identity.name = asserted.displayName.empty() ? fromName
                                                             : std::string(text::cut(asserted.displayName, maxNameBytes));
                return identity;
            }
        }
    }
    identity.name = fromName;
    if (auto number = telephoneNumber(headers.fromUser)) identity.number = std::move(*number);
    else identity.unavailable = true;
    return identity;
}

std::string viaSourceHost(std::string_view via)
{
    via = text::cut(via, maxHeaderBytes);
    via = text::trim(via.substr(0, via.find(',')));
    // "SIP/2.0/UDP host:port;param=value;..."
    const auto blank = via.find_first_of(" \t");
    if (blank == std::string_view::npos) return {};
    std::string_view rest = text::trim(via.substr(blank));
    const auto semicolon = rest.find(';');
    std::string_view sentBy = text::trim(rest.substr(0, semicolon));
    if (semicolon != std::string_view::npos) {
        std::string_view params = rest.substr(semicolon + 1);
        while (!params.empty()) {
            const auto next = params.find(';');
            const std::string_view param = text::trim(params.substr(0, next));
            const auto equals = param.find('=');
            if (equals != std::string_view::npos && equalNoCase(text::trim(param.substr(0, equals)), "received")) {
                std::string_view received = text::trim(param.substr(equals + 1));
                if (!received.empty() && received.front() == '[') {
                    const auto close = received.find(']');
                    received = close == std::string_view::npos ? received.substr(1) : received.substr(1, close - 1);
                }
                return text::lower(received);
            }
            if (next == std::string_view::npos) break;
            params.remove_prefix(next + 1);
        }
    }
    if (sentBy.empty()) return {};
    if (sentBy.front() == '[') {
        const auto close = sentBy.find(']');
        if (close == std::string_view::npos) return {};
        return text::lower(sentBy.substr(1, close - 1));
    }
    return text::lower(sentBy.substr(0, sentBy.find(':')));
}

std::optional<char> keyFromInfo(std::string_view type, std::string_view subtype, std::string_view body)
{
    if (!equalNoCase(text::trim(type), "application")) return std::nullopt;
    body = text::cut(body, maxHeaderBytes);
    if (equalNoCase(text::trim(subtype), "dtmf")) return telephoneKey(body);
    if (!equalNoCase(text::trim(subtype), "dtmf-relay")) return std::nullopt;
    while (!body.empty()) {
        const auto end = body.find_first_of("\r\n");
        const std::string_view line = text::trim(body.substr(0, end));
        const auto equals = line.find('=');
        if (equals != std::string_view::npos && equalNoCase(text::trim(line.substr(0, equals)), "signal")) {
            return telephoneKey(line.substr(equals + 1));
        }
        if (end == std::string_view::npos) break;
        body.remove_prefix(end + 1);
    }
    return std::nullopt;
}

} // namespace corvel::sip

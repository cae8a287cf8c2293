#include "telephony/modem/caller_id_parser.h"

#include <array>
#include <cctype>
#include <vector>

#include "telephony/modem/responses.h"

namespace corvel::modem {
namespace {

std::string_view trimmed(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Printable text of at most `maxValue` characters: control bytes from a noisy line dropped.
std::string cleaned(std::string_view value)
{
    std::string out;
    for (const char c : trimmed(value)) {
        if (out.size() >= CallerIdParser::maxValue) break;
        if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) out.push_back(c);
    }
    return out;
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

std::optional<std::vector<unsigned char>> fromHex(std::string_view hex)
{
    if (hex.size() % 2 != 0) return std::nullopt;
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const int high = hexValue(hex[i]), low = hexValue(hex[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes.push_back(static_cast<unsigned char>(high * 16 + low));
    }
    return bytes;
}

std::string text(std::span<const unsigned char> data)
{
    return cleaned(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
}

struct Tagged {
    std::string_view tag;
    std::string_view value;
};

// "TAG = value" for the tags caller ID uses; nothing for any other line.
std::optional<Tagged> tagged(std::string_view line)
{
    static constexpr std::array tags{"DDN_NMBR", "NMBR", "NAME", "DATE", "TIME", "MESG", "DDN", "NBR", "NDID"};
    const std::string_view body = trimmed(line);
    const auto equals = body.find('=');
    if (equals == std::string_view::npos) return std::nullopt;
    const std::string tag = upperTrimmed(body.substr(0, equals));
    for (const std::string_view known : tags) {
        if (tag == known) return Tagged{known, trimmed(body.substr(equals + 1))};
    }
    // The combined form: "DATE TIME=11/24 22:10".
    if (tag == "DATE TIME") return Tagged{"DATE TIME", trimmed(body.substr(equals + 1))};
    return std::nullopt;
}

} // namespace

bool CallerIdParser::feed(std::string_view line)
{
    if (const auto item = tagged(line)) {
        this->item(item->tag, item->value);
        any_ = true;
        return true;
    }
    const std::string upper = upperTrimmed(line);
    const auto after = [&](std::string_view prefix) -> std::optional<std::string_view> {
        if (upper.rfind(prefix, 0) != 0) return std::nullopt;
        return trimmed(trimmed(line).substr(prefix.size()));
    };
    if (const auto value = after("CALLER NUMBER:")) {
        number(*value);
    } else if (const auto value = after("CALLER NAME:")) {
        name(*value);
    } else if (const auto value = after("REASON FOR NO CALLER NUMBER:")) {
        number(upperTrimmed(*value).starts_with("P") ? "P" : "O");
    } else if (const auto value = after("+CLIP:")) {
        // +CLIP: "number",type[,...]
        const std::string_view v = *value;
        const auto open = v.find('"');
        const auto close = open == std::string_view::npos ? open : v.find('"', open + 1);
        if (close == std::string_view::npos) return false;
        const std::string_view digits = v.substr(open + 1, close - open - 1);
        number(digits.empty() ? "P" : digits);
    } else if (upper.size() >= 6 && (upper.starts_with("04") || upper.starts_with("80")) && packet(upper)) {
        // The whole packet in hex, from AT+VCID=2.
    } else {
        return false;
    }
    any_ = true;
    return true;
}

void CallerIdParser::item(std::string_view tag, std::string_view value)
{
    if (tag == "NMBR" || tag == "NBR") {
        number(value);
    } else if (tag == "NAME") {
        name(value);
    } else if (tag == "DATE") {
        identity_.date = cleaned(value);
    } else if (tag == "TIME") {
        identity_.time = cleaned(value);
    } else if (tag == "DATE TIME") {
        // "MM/DD hh:mm"
        std::string digits;
        for (const char c : value)
            if (std::isdigit(static_cast<unsigned char>(c))) digits.push_back(c);
        if (digits.size() == 8) {
            identity_.date = digits.substr(0, 4);
            identity_.time = digits.substr(4);
        }
    } else if (tag == "DDN_NMBR" || tag == "DDN" || tag == "NDID") {
        identity_.dialled = cleaned(value);
    } else if (tag == "MESG") {
        // An item the modem did not decode, in hex: type, length, data (and a checksum).
        const std::string hex = upperTrimmed(value);
        const auto bytes = fromHex(hex);
        if (!bytes || bytes->size() < 2) return;
        const std::size_t length = (*bytes)[1];
        if (bytes->size() < 2 + length) return;
        parameter((*bytes)[0], std::span<const unsigned char>(*bytes).subspan(2, length));
    }
}

void CallerIdParser::number(std::string_view value)
{
    if (numberSet_) return; // the first number stands; a later "O" only masks it
    const std::string clean = cleaned(value);
    const std::string upper = upperTrimmed(clean);
    identity_.withheld = upper == "P" || upper == "PRIVATE" || upper == "WITHHELD";
    identity_.unavailable = upper == "O" || upper == "OUT OF AREA" || upper == "UNAVAILABLE";
    if (!identity_.withheld && !identity_.unavailable) {
        if (clean.empty()) return;
        identity_.number = clean;
    }
    numberSet_ = true;
}

void CallerIdParser::name(std::string_view value)
{
    const std::string clean = cleaned(value);
    const std::string upper = upperTrimmed(clean);
    if (upper == "P" || upper == "O" || clean.empty()) return; // no name, withheld or unknown
    if (identity_.name.empty()) identity_.name = clean;
}

bool CallerIdParser::packet(std::string_view hex)
{
    const auto bytes = fromHex(hex);
    if (!bytes || bytes->size() < 3) return false;
    const unsigned type = (*bytes)[0];
    const std::size_t length = (*bytes)[1];
    if (bytes->size() < 2 + length) return false;
    if (bytes->size() > 2 + length) {
        // With its checksum: all bytes, the checksum included, add up to 0 modulo 256.
        unsigned sum = 0;
        for (std::size_t i = 0; i < 3 + length && i < bytes->size(); ++i) sum += (*bytes)[i];
        if ((sum & 0xFF) != 0) return true; // a caller-ID packet, but a damaged one: nothing in it counts
    }
    const std::span<const unsigned char> body = std::span<const unsigned char>(*bytes).subspan(2, length);
    if (type == 0x04) {
        // Single data message: MMDDhhmm, then the number (or "O" / "P").
        if (body.size() < 8) return true;
        identity_.date = text(body.subspan(0, 4));
        identity_.time = text(body.subspan(4, 4));
        number(text(body.subspan(8)));
        return true;
    }
    if (type == 0x80) {
        std::size_t at = 0;
        while (at + 2 <= body.size()) {
            const unsigned parameterType = body[at];
            const std::size_t parameterLength = body[at + 1];
            if (at + 2 + parameterLength > body.size()) break;
            parameter(parameterType, body.subspan(at + 2, parameterLength));
            at += 2 + parameterLength;
        }
        return true;
    }
    return false;
}

void CallerIdParser::parameter(unsigned type, std::span<const unsigned char> data)
{
    switch (type) {
    case 0x01: // date and time, MMDDhhmm
        if (data.size() >= 8) {
            identity_.date = text(data.subspan(0, 4));
            identity_.time = text(data.subspan(4, 4));
        }
        break;
    case 0x02: // the calling number
    case 0x03: // the number to call back on
        number(text(data));
        break;
    case 0x04: // why there is no number: O or P
        number(text(data));
        break;
    case 0x07: name(text(data)); break;
    case 0x08: break; // why there is no name: nothing to show either way
    default: break;
    }
}

} // namespace corvel::modem

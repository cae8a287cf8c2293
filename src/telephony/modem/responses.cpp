#include "telephony/modem/responses.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

namespace corvel::modem {
namespace {

std::string_view trimmed(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    const auto last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

bool startsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

bool isRing(std::string_view upper)
{
    if (upper == "2") return true; // V0
    if (startsWith(upper, "CID RING")) return true;
    if (!startsWith(upper, "RING")) return false;
    if (upper.size() == 4) return true;
    // RING 1 .. RING 9, RING A .. RING C, RING;..., RING: ..., RING 1234
    const char next = upper[4];
    return next == ' ' || next == ';' || next == ':' || (next >= '0' && next <= '9') ||
           (next >= 'A' && next <= 'C' && upper.size() == 5);
}

std::optional<int> number(std::string_view text)
{
    text = trimmed(text);
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end == text.data()) return std::nullopt;
    return value;
}

// Splits on commas that are not inside quotes or parentheses.
std::vector<std::string_view> fields(std::string_view text)
{
    std::vector<std::string_view> out;
    bool quoted = false;
    int depth = 0;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') quoted = !quoted;
        else if (!quoted && c == '(') ++depth;
        else if (!quoted && c == ')') depth = std::max(0, depth - 1);
        else if (!quoted && depth == 0 && c == ',') {
            out.push_back(text.substr(start, i - start));
            start = i + 1;
        }
    }
    out.push_back(text.substr(start));
    return out;
}

} // namespace

std::string upperTrimmed(std::string_view text)
{
    std::string out(trimmed(text));
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

LineKind classify(std::string_view line)
{
    const std::string upper = upperTrimmed(line);
    if (upper == "OK" || upper == "0") return LineKind::Ok;
    if (upper == "ERROR" || upper == "4" || startsWith(upper, "+CME ERROR")) return LineKind::Error;
    if (upper == "CONNECT" || startsWith(upper, "CONNECT ") || upper == "1") return LineKind::Connect;
    if (upper == "VCON") return LineKind::Vcon;
    if (upper == "NO CARRIER" || upper == "3") return LineKind::NoCarrier;
    if (upper == "BUSY" || upper == "7") return LineKind::Busy;
    if (upper == "NO DIALTONE" || upper == "NO DIAL TONE" || upper == "6") return LineKind::NoDialTone;
    if (upper == "NO ANSWER" || upper == "8") return LineKind::NoAnswer;
    if (isRing(upper)) return LineKind::Ring;
    if (startsWith(upper, "DRON") || startsWith(upper, "DROF")) return LineKind::Cadence;
    if (startsWith(upper, "AT")) return LineKind::Echo;
    return LineKind::Information;
}

bool isFinal(LineKind kind)
{
    switch (kind) {
    case LineKind::Ok:
    case LineKind::Error:
    case LineKind::Connect:
    case LineKind::Vcon:
    case LineKind::NoCarrier:
    case LineKind::Busy:
    case LineKind::NoDialTone:
    case LineKind::NoAnswer: return true;
    default: return false;
    }
}

const char* toString(LineKind kind)
{
    switch (kind) {
    case LineKind::Ok: return "OK";
    case LineKind::Error: return "ERROR";
    case LineKind::Connect: return "CONNECT";
    case LineKind::Vcon: return "VCON";
    case LineKind::NoCarrier: return "NO CARRIER";
    case LineKind::Busy: return "BUSY";
    case LineKind::NoDialTone: return "NO DIALTONE";
    case LineKind::NoAnswer: return "NO ANSWER";
    case LineKind::Ring: return "RING";
    case LineKind::Cadence: return "ring cadence";
    case LineKind::Echo: return "echo";
    case LineKind::Information: return "information";
    }
    return "?";
}

std::optional<VoiceCompression> parseCompression(std::string_view line)
{
    line = trimmed(line);
    if (startsWith(upperTrimmed(line.substr(0, 5)), "+VSM:")) line = trimmed(line.substr(5));
    const auto parts = fields(line);
    if (parts.size() < 2) return std::nullopt;
    VoiceCompression out;
    const auto id = number(parts[0]);
    if (!id || *id < 0 || *id > 255) return std::nullopt;
    out.id = *id;
    const std::string_view name = trimmed(parts[1]);
    if (name.size() < 2 || name.front() != '"' || name.back() != '"') return std::nullopt;
    out.name = std::string(name.substr(1, name.size() - 2));
    const auto addRates = [&](std::string_view text) {
        text = trimmed(text);
        if (!text.empty() && text.front() == '(') text.remove_prefix(1);
        if (!text.empty() && text.back() == ')') text.remove_suffix(1);
        for (std::string_view rate : fields(text)) {
            // A range "7200-11025" offers its two ends.
            const auto dash = rate.find('-');
            for (std::string_view end : {rate.substr(0, dash), dash == std::string_view::npos ? std::string_view{} : rate.substr(dash + 1)}) {
                if (const auto value = number(end); value && *value >= 4000 && *value <= 48000) out.rates.push_back(*value);
            }
        }
    };
    if (parts.size() == 3) {
        addRates(parts[2]); // Agere and USR: id, name, (rates)
    } else if (parts.size() >= 5) {
        if (const auto bits = number(parts[2])) out.bits = *bits; // Conexant: id, name, bits, timing, rates, ...
        addRates(parts[4]);
    }
    return out;
}

const char* toString(SampleFormat format)
{
    switch (format) {
    case SampleFormat::Unsigned8: return "8-bit unsigned linear";
    case SampleFormat::Signed8: return "8-bit signed linear";
    case SampleFormat::MuLaw: return "8-bit mu-law";
    case SampleFormat::ALaw: return "8-bit A-law";
    case SampleFormat::Linear16: return "16-bit linear";
    }
    return "?";
}

std::optional<CodecChoice> chooseCodec(const std::vector<VoiceCompression>& offered)
{
    const auto formatOf = [](const VoiceCompression& c) -> std::optional<SampleFormat> {
        std::string name = upperTrimmed(c.name);
        std::erase_if(name, [](char ch) { return ch == '-' || ch == ' ' || ch == '_'; });
        const bool eightBits = c.bits == 0 || c.bits == 8;
        if (name.find("ADPCM") != std::string::npos || name.find("GSM") != std::string::npos ||
            name.find("G729") != std::string::npos || name.find("G723") != std::string::npos)
            return std::nullopt;
        if (name.find("ULAW") != std::string::npos || name.find("MULAW") != std::string::npos) return SampleFormat::MuLaw;
        if (name.find("ALAW") != std::string::npos) return SampleFormat::ALaw;
        if (name.find("16BITLINEAR") != std::string::npos || (name.find("PCM") != std::string::npos && c.bits == 16))
            return SampleFormat::Linear16;
        if (!eightBits) return std::nullopt; // "14 bit PCM" and the like
        if (name == "UNSIGNEDPCM" || name == "8BITLINEAR") return SampleFormat::Unsigned8;
        if (name == "SIGNEDPCM" || name == "8BITSIGNEDLINEAR") return SampleFormat::Signed8;
        return std::nullopt;
    };
    constexpr std::array preference{SampleFormat::MuLaw, SampleFormat::ALaw, SampleFormat::Unsigned8,
                                    SampleFormat::Signed8, SampleFormat::Linear16};
    for (const SampleFormat wanted : preference) {
        for (const VoiceCompression& c : offered) {
            if (formatOf(c) != wanted) continue;
            int rate = 8000;
            if (!c.rates.empty() && std::find(c.rates.begin(), c.rates.end(), 8000) == c.rates.end()) rate = c.rates.front();
            return CodecChoice{c, wanted, rate};
        }
    }
    return std::nullopt;
}

bool offersVoiceClass(std::string_view answer)
{
    std::string text(answer);
    for (char& c : text) {
        if (c == '(' || c == ')' || c == ' ') c = ',';
    }
    for (std::string_view value : fields(text)) {
        value = trimmed(value);
        if (value == "8" || value == "8.0" || value == "80") return true;
        // A range such as 0-8 covers voice as well.
        const auto dash = value.find('-');
        if (dash != std::string_view::npos) {
            const auto low = number(value.substr(0, dash)), high = number(value.substr(dash + 1));
            if (low && high && *low <= 8 && 8 <= *high) return true;
        }
    }
    return false;
}

bool offersExtensionEvents(std::string_view answer)
{
    std::string text = upperTrimmed(answer);
    if (startsWith(text, "-STE:")) text = text.substr(5);
    int highest = -1;
    for (char& c : text) {
        if (c == '(' || c == ')') c = ' ';
    }
    for (std::string_view value : fields(text)) {
        value = trimmed(value);
        const auto dash = value.find('-');
        const auto top = number(dash == std::string_view::npos ? value : value.substr(dash + 1));
        if (top) highest = std::max(highest, *top);
    }
    return highest >= 2; // bitmaps up to 3 or 7 include bit 1
}

std::string chipsetFamily(const std::vector<std::string>& identities, bool shortCompressionList)
{
    std::string all;
    for (const std::string& identity : identities) all += upperTrimmed(identity) + "\n";
    const auto has = [&](std::string_view word) { return all.find(word) != std::string::npos; };
    if (has("CX93") || has("CX06") || has("CX11") || has("CONEXANT") || has("HSF") || has("HCF"))
        return "Conexant";
    if (has("U.S. ROBOTICS") || has("USROBOTICS") || has("USR") || has("SPORTSTER") || has("COURIER"))
        return "US Robotics";
    if (has("AGERE") || has("LUCENT") || has("LT WINMODEM") || has("VENUS")) return "Agere/Lucent";
    if (has("ZOOM")) return "Zoom";
    if (has("SILICON LAB") || has("SI24") || has("SI21") || has("SI30")) return "Silicon Labs";
    if (has("INTEL") || has("MD566")) return "Intel";
    if (has("ROCKWELL")) return "Rockwell";
    if (has("MULTI-TECH") || has("MULTITECH")) return "Multi-Tech";
    if (has("ZYXEL")) return "ZyXEL";
    return shortCompressionList ? "Agere/Lucent (by its codec list)" : "V.253 voice modem";
}

} // namespace corvel::modem

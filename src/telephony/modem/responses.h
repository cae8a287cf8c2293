#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvel::modem {

// What a line from the modem is.
enum class LineKind {
    Ok,
    Error,
    Connect,
    Vcon,
    NoCarrier,
    Busy,
    NoDialTone,
    NoAnswer,
    Ring,        // RING in any of its forms, or V0's "2"
    Cadence,     // DRON / DROF: distinctive-ring timing, never a ring
    Echo,        // a command echoed back
    Information, // anything else: part of a response, caller ID, or noise
};

LineKind classify(std::string_view line);
bool isFinal(LineKind kind);
const char* toString(LineKind kind);

// Upper case, trimmed at both ends.
std::string upperTrimmed(std::string_view text);

// The voice compressions a modem offers, from its answer to AT+VSM=?.
struct VoiceCompression {
    int id = 0;                // the number to select it with; it means nothing across makers
    std::string name;          // as the modem spells it, e.g. "UNSIGNED PCM", "8-BIT ULAW"
    int bits = 0;              // 0 when the modem does not say
    std::vector<int> rates;    // sampling rates offered; empty when the modem does not say
};

std::optional<VoiceCompression> parseCompression(std::string_view line);

// The sample formats the driver can put on the line.
enum class SampleFormat { Unsigned8, Signed8, MuLaw, ALaw, Linear16 };
const char* toString(SampleFormat format);

struct CodecChoice {
    VoiceCompression compression;
    SampleFormat format;
    int rate = 8000;
};

// Picks the compression by its name, never by its number (the same number means different
// things on different chipsets). Prefers the companded 8-bit codes, then 8-bit linear, then
// 16-bit linear; ADPCM and the other packed codes are never chosen.
std::optional<CodecChoice> chooseCodec(const std::vector<VoiceCompression>& offered);

// Whether AT+FCLASS=? (or AT#CLS=?) offers voice: "8", "8.0" or "80" among its values,
// with or without parentheses and ranges.
bool offersVoiceClass(std::string_view answer);

// Whether AT-STE=? offers the extension pick-up bit (bit 1).
bool offersExtensionEvents(std::string_view answer);

// The chipset family for the identity texts of ATI, ATI3 and ATI9 and the manufacturer; the
// form of the AT+VSM=? list (three fields or seven) breaks a tie. A human-readable name.
std::string chipsetFamily(const std::vector<std::string>& identities, bool shortCompressionList);

} // namespace corvel::modem

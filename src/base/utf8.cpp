#include "base/utf8.h"

namespace corvel {

Utf8Character utf8At(std::string_view text, std::size_t at)
{
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) return {1, lead};
    std::size_t length = 0;
    char32_t minimum = 0;
    char32_t value = 0;
    if (lead >= 0xC2 && lead <= 0xDF) { length = 2; minimum = 0x80; value = lead & 0x1F; }
    else if (lead >= 0xE0 && lead <= 0xEF) { length = 3; minimum = 0x800; value = lead & 0x0F; }
    else if (lead >= 0xF0 && lead <= 0xF4) { length = 4; minimum = 0x10000; value = lead & 0x07; }
    else return {};
    if (at + length > text.size()) return {};
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80) return {};
        value = (value << 6) | (next & 0x3F);
    }
    const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
    if (value < minimum || value > 0x10FFFF || surrogate) return {};
    return {length, value};
}

bool breaksText(char32_t character)
{
    const bool control = character < 0x20 || (character >= 0x7F && character <= 0x9F);
    const bool separator = character == 0x2028 || character == 0x2029;
    const bool bidi = (character >= 0x202A && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
    return control || separator || bidi;
}

} // namespace corvel

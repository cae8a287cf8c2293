#include "app/utf8.h"

namespace corvel {

std::size_t utf8SequenceLength(std::string_view text, std::size_t at)
{
    const auto lead = static_cast<unsigned char>(text[at]);
    std::size_t length = 0;
    char32_t minimum = 0;
    char32_t value = 0;
    if (lead >= 0xC2 && lead <= 0xDF) { length = 2; minimum = 0x80; value = lead & 0x1F; }
    else if (lead >= 0xE0 && lead <= 0xEF) { length = 3; minimum = 0x800; value = lead & 0x0F; }
    else if (lead >= 0xF0 && lead <= 0xF4) { length = 4; minimum = 0x10000; value = lead & 0x07; }
    else return 0;
    if (at + length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80) return 0;
        value = (value << 6) | (next & 0x3F);
    }
    const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
    return (value < minimum || value > 0x10FFFF || surrogate) ? 0 : length;
}

} // namespace corvel

#include "character/acs/byte_io.h"

namespace corvel::acs::detail {

namespace {

constexpr char32_t replacement = 0xFFFD;

void appendUtf8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | c >> 6);
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | c >> 12);
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | c >> 18);
        out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

} // namespace

std::string hex(std::uint64_t value)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    do {
        text.insert(text.begin(), digits[value & 0xF]);
        value >>= 4;
    } while (value != 0);
    return "0x" + text;
}

std::span<const std::uint8_t> ByteReader::take(std::size_t n)
{
    if (n > remaining())
        fail("ends early: " + std::to_string(n) + " more bytes needed at " + hex(offset()) + ", " +
             std::to_string(remaining()) + " left");
    const auto b = bytes_.subspan(pos_, n);
    pos_ += n;
    return b;
}

std::string ByteReader::string()
{
    const std::uint32_t units = u32();
    if (units == 0) return {};
    if (units > (remaining() >= 2 ? (remaining() - 2) / 2 : 0))
        fail("a text of " + std::to_string(units) + " characters at " + hex(offset() - 4) +
             " runs past the end");
    const auto text = utf16ToUtf8(take(std::size_t{units} * 2));
    take(2); // terminator
    return text;
}

Guid ByteReader::guid()
{
    Guid g;
    g.data1 = u32();
    g.data2 = u16();
    g.data3 = u16();
    const auto rest = take(8);
    std::copy(rest.begin(), rest.end(), g.data4.begin());
    return g;
}

std::size_t ByteReader::count(std::uint64_t claimed, std::size_t minimumSize, std::string_view items)
{
    if (claimed > remaining() / minimumSize)
        fail("claims " + std::to_string(claimed) + " " + std::string(items) + " at " + hex(offset()) +
             ", more than its remaining " + std::to_string(remaining()) + " bytes can hold");
    return static_cast<std::size_t>(claimed);
}

void ByteReader::fail(std::string_view problem) const { throw AcsError(what_ + ": " + std::string(problem)); }

void ByteWriter::string(std::string_view utf8)
{
    const std::u16string units = utf8ToUtf16(utf8);
    u32(static_cast<std::uint32_t>(units.size()));
    if (units.empty()) return;
    for (char16_t c : units) u16(c);
    u16(0);
}

void ByteWriter::guid(const Guid& g)
{
    u32(g.data1);
    u16(g.data2);
    u16(g.data3);
    append(g.data4);
}

void ByteWriter::patch32(std::size_t at, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

std::string utf16ToUtf8(std::span<const std::uint8_t> littleEndianUnits)
{
    std::string out;
    out.reserve(littleEndianUnits.size() / 2);
    const std::size_t count = littleEndianUnits.size() / 2;
    const auto unit = [&](std::size_t i) -> char32_t {
        return littleEndianUnits[2 * i] | littleEndianUnits[2 * i + 1] << 8;
    };
    for (std::size_t i = 0; i < count; ++i) {
        char32_t c = unit(i);
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < count && unit(i + 1) >= 0xDC00 && unit(i + 1) < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (unit(i + 1) - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c < 0xE000) {
            c = replacement;
        }
        appendUtf8(out, c);
    }
    return out;
}

std::u16string utf8ToUtf16(std::string_view utf8)
{
    std::u16string out;
    std::size_t i = 0;
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(utf8[at]); };
    while (i < utf8.size()) {
        const unsigned char lead = byte(i);
        const int extra = lead < 0x80                 ? 0
                          : lead >= 0xC2 && lead < 0xE0 ? 1
                          : lead >= 0xE0 && lead < 0xF0 ? 2
                          : lead >= 0xF0 && lead < 0xF5 ? 3
                                                        : -1;
        bool valid = extra >= 0 && utf8.size() - i > static_cast<std::size_t>(extra);
        char32_t c = extra > 0 ? lead & (0x3F >> extra) : lead;
        for (int k = 1; valid && k <= extra; ++k) {
            if ((byte(i + k) & 0xC0) != 0x80) valid = false;
            c = c << 6 | (byte(i + k) & 0x3F);
        }
        if (valid && ((extra == 2 && (c < 0x800 || (c >= 0xD800 && c < 0xE000))) ||
                      (extra == 3 && (c < 0x10000 || c > 0x10FFFF))))
            valid = false;
        if (!valid) {
            out += static_cast<char16_t>(replacement);
            ++i;
            continue;
        }
        i += static_cast<std::size_t>(extra) + 1;
        if (c >= 0x10000) {
            out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
    }
    return out;
}

} // namespace corvel::acs::detail

#pragma once

// Internal to the reader and the writer: little-endian fields and UTF-16 strings, with every
// read checked against the end of the structure being read.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "character/acs/character.h"

namespace corvel::acs::detail {

std::string hex(std::uint64_t value);

// Reads one structure that starts at absolute file offset `base`. Errors name the structure.
class ByteReader {
public:
    ByteReader(std::span<const std::uint8_t> bytes, std::size_t base, std::string what)
        : bytes_(bytes), base_(base), what_(std::move(what))
    {
    }

    std::uint8_t u8() { return take(1)[0]; }
    std::uint16_t u16()
    {
        const auto b = take(2);
        return static_cast<std::uint16_t>(b[0] | b[1] << 8);
    }
    std::int16_t i16() { return static_cast<std::int16_t>(u16()); }
    std::uint32_t u32()
    {
        const auto b = take(4);
        return static_cast<std::uint32_t>(b[0]) | static_cast<std::uint32_t>(b[1]) << 8 |
               static_cast<std::uint32_t>(b[2]) << 16 | static_cast<std::uint32_t>(b[3]) << 24;
    }
    std::int32_t i32() { return static_cast<std::int32_t>(u32()); }
    std::span<const std::uint8_t> take(std::size_t n);
    std::vector<std::uint8_t> blob(std::size_t n)
    {
        const auto b = take(n);
        return {b.begin(), b.end()};
    }
    std::string string(); // u32 length in UTF-16 units, the units, a terminator unless empty
    Guid guid();

    // A count of items that each take at least `minimumSize` bytes: refused when they cannot fit.
    std::size_t count(std::uint64_t claimed, std::size_t minimumSize, std::string_view items);

    std::size_t remaining() const { return bytes_.size() - pos_; }
    std::size_t offset() const { return base_ + pos_; } // absolute, in the file
    const std::string& what() const { return what_; }
    [[noreturn]] void fail(std::string_view problem) const;

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t base_;
    std::size_t pos_ = 0;
    std::string what_;
};

class ByteWriter {
public:
    std::vector<std::uint8_t> bytes;

    std::size_t size() const { return bytes.size(); }
    void u8(std::uint8_t v) { bytes.push_back(v); }
    void u16(std::uint16_t v)
    {
        u8(static_cast<std::uint8_t>(v));
        u8(static_cast<std::uint8_t>(v >> 8));
    }
    void i16(std::int16_t v) { u16(static_cast<std::uint16_t>(v)); }
    void u32(std::uint32_t v)
    {
        u16(static_cast<std::uint16_t>(v));
        u16(static_cast<std::uint16_t>(v >> 16));
    }
    void i32(std::int32_t v) { u32(static_cast<std::uint32_t>(v)); }
    void append(std::span<const std::uint8_t> b) { bytes.insert(bytes.end(), b.begin(), b.end()); }
    void string(std::string_view utf8);
    void guid(const Guid& g);
    void patch32(std::size_t at, std::uint32_t v);
};

std::string utf16ToUtf8(std::span<const std::uint8_t> littleEndianUnits);
std::u16string utf8ToUtf16(std::string_view utf8); // invalid sequences become U+FFFD

} // namespace corvel::acs::detail

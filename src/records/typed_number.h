#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/text.h"

namespace corvel {

// The longest number a record keeps, as long as a caller ID's.
inline constexpr std::size_t maxTypedNumberBytes = 64;

// A telephone number as the user types it into the directory or the block list, without the
// "-", " " and "," that people write into numbers.
inline std::string compactNumber(std::string_view typed)
{
    return text::removeAll(text::removeAll(text::removeAll(typed, '-'), ' '), ',');
}

// Whether `number` is fit to keep: not empty, not absurdly long, and nothing that a caller's
// line could never deliver (controls, line breaks, broken text).
inline bool fitNumber(std::string_view number)
{
    return !number.empty() && number.size() <= maxTypedNumberBytes &&
           text::fromLine(number, maxTypedNumberBytes) == number;
}

} // namespace corvel

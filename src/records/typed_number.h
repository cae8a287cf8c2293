#pragma once

#include <string>
#include <string_view>

#include "base/text.h"

namespace corvel {

// A telephone number as the user types it into the directory or the block list, without the
// "-", " " and "," that people write into numbers.
inline std::string compactNumber(std::string_view typed)
{
    return text::removeAll(text::removeAll(text::removeAll(typed, '-'), ' '), ',');
}

} // namespace corvel

#pragma once

#include <cstddef>
#include <string_view>

namespace corvel {

// Length of the valid multi-byte UTF-8 sequence that starts at `text[at]`, or 0 when the
// bytes there are not one (overlong forms and surrogates included).
std::size_t utf8SequenceLength(std::string_view text, std::size_t at);

} // namespace corvel

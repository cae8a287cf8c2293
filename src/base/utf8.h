#pragma once

#include <cstddef>
#include <string_view>

namespace corvel {

// One character of UTF-8 text: how many bytes it takes and its code point.
struct Utf8Character {
    std::size_t length = 0; // 0: the bytes there are no valid UTF-8 (overlong forms and surrogates included)
    char32_t value = 0;
};

// The character that starts at `text[at]`.
Utf8Character utf8At(std::string_view text, std::size_t at);

// Characters that would end a line or turn text round wherever it is shown: the C0 and C1
// controls, the line and paragraph separators, and the bidirectional embeddings, overrides
// and isolates.
bool breaksText(char32_t character);

} // namespace corvel

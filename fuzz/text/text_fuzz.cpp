// libFuzzer target for text from outside: whatever a caller's number or name holds, what is
// kept of it is valid UTF-8 that breaks no line, within its bound, and a file-name part is
// one component; whatever the web site serves, reading the version list neither crashes nor
// offers an empty version.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/log.h"
#include "base/text.h"
#include "base/utf8.h"
#include "update/version_list.h"

namespace {

using namespace corvel;

// Valid UTF-8 with no character that would break a line.
bool keepsTheLine(std::string_view text)
{
    for (std::size_t at = 0; at < text.size();) {
        const Utf8Character character = utf8At(text, at);
        if (character.length == 0 || breaksText(character.value)) return false;
        at += character.length;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t bound = size == 0 ? 0 : data[0] % 300;

    const std::string shown = text::fromLine(input, bound);
    if (shown.size() > bound || !keepsTheLine(shown)) __builtin_trap();

    const std::string part = text::fileNamePart(input, bound);
    if (part.size() > bound || part.find('/') != std::string::npos || part == "." || part == ".." ||
        !keepsTheLine(part))
        __builtin_trap();

    if (!keepsTheLine(log::printable(input))) __builtin_trap();
    if (text::cut(input, bound).size() > bound) __builtin_trap();

    if (const auto offer = offeredVersion(input)) {
        if (offer->version.empty()) __builtin_trap();
        (void)isNewerVersion(offer->version, "1.2.3");
    }
    return 0;
}

#include "base/text.h"

#include <algorithm>

#include "base/utf8.h"

namespace corvel::text {
namespace {

char lowerChar(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Copies `text`, passing each whole UTF-8 character to `keep` and each stray byte to `stray`.
template <typename Keep, typename Stray>
std::string rebuild(std::string_view text, Keep keep, Stray stray)
{
    std::string out;
    for (std::size_t i = 0; i < text.size();) {
        const Utf8Character character = utf8At(text, i);
        if (character.length == 0) {
            stray(out);
            ++i;
            continue;
        }
        keep(out, text.substr(i, character.length), character.value);
        i += character.length;
    }
    return out;
}

} // namespace

std::string lower(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), lowerChar);
    return out;
}

std::string removeAll(std::string_view text, char unwanted)
{
    std::string out;
    std::copy_if(text.begin(), text.end(), std::back_inserter(out), [&](char c) { return c != unwanted; });
    return out;
}

std::string_view trim(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r\n\v\f";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool containsNoCase(std::string_view haystack, std::string_view needle)
{
    return !needle.empty() &&
           std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end(),
                       [](char a, char b) { return lowerChar(a) == lowerChar(b); }) != haystack.end();
}

long long leadingNumber(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    const bool negative = !text.empty() && text.front() == '-';
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) text.remove_prefix(1);
    long long value = 0;
    for (char c : text) {
        if (c < '0' || c > '9' || value > 1'000'000'000'000LL) break; // far beyond any count or time
        value = value * 10 + (c - '0');
    }
    return negative ? -value : value;
}

std::string_view cut(std::string_view text, std::size_t maxBytes)
{
    if (text.size() <= maxBytes) return text;
    std::size_t end = maxBytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end);
}

std::string fromLine(std::string_view text, std::size_t maxBytes)
{
    const std::string clean = rebuild(
        text,
        [](std::string& out, std::string_view character, char32_t value) {
            if (!breaksText(value) && value != '\\') out += character;
        },
        [](std::string& out) { out += '?'; });
    return std::string(cut(clean, maxBytes));
}

std::string fileNamePart(std::string_view text, std::size_t maxBytes)
{
    std::string part = rebuild(
        text,
        [](std::string& out, std::string_view character, char32_t value) {
            out += (breaksText(value) || value == '/') ? std::string_view("_") : character;
        },
        [](std::string& out) { out += '_'; });
    if (part == "." || part == "..") part = "_";
    return std::string(cut(part, maxBytes));
}

} // namespace corvel::text

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvel::text {

std::string lower(std::string_view text); // ASCII letters only, as the stored names are
std::string removeAll(std::string_view text, char unwanted);
// `text` without the blanks, tabs and line ends around it.
std::string_view trim(std::string_view text);
// Whether `needle` occurs in `haystack` without regard to case. An empty needle occurs
// nowhere: a number typed as nothing but dashes must not match every entry.
bool containsNoCase(std::string_view haystack, std::string_view needle);

// Text that came down the line (a caller's number or name) made fit to show, speak and log:
// anything that would break a line or turn it round (controls, line and paragraph
// separators, bidirectional controls) and backslashes (which would pass for speech tags) are
// dropped, bytes that are not UTF-8 become "?", and an absurd length is cut at `maxBytes`.
std::string fromLine(std::string_view text, std::size_t maxBytes);

// `text` made into one file-name component of at most `maxBytes` bytes: "/", characters that
// would break a line and bytes that are not UTF-8 become "_", and "." or ".." becomes "_". Text that
// needs none of that comes back unchanged.
std::string fileNamePart(std::string_view text, std::size_t maxBytes);

// The number that `text` starts with (after blanks), as a stored setting is read; 0 when it
// starts with none.
long long leadingNumber(std::string_view text);

// `text` cut to at most `maxBytes` without splitting a UTF-8 character.
std::string_view cut(std::string_view text, std::size_t maxBytes);

} // namespace corvel::text

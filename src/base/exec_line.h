#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvel {

// Splits a command line into its program and arguments the way a desktop entry's Exec key is
// split, so that a command the user knows from a launcher works here unchanged and no shell is
// ever involved: blanks separate arguments; an argument in double quotes keeps its blanks, and
// inside the quotes a backslash escapes `"`, "`", "$" and "\"; "%%" is a "%" and any other
// field code ("%f", "%u", ...) is dropped, since Corvel passes its own arguments after them.
// Nothing when the line is empty or a quote is left open.
std::optional<std::vector<std::string>> splitExecLine(std::string_view line);

} // namespace corvel

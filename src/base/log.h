#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace corvel::log {

enum class Level { Debug, Info, Warning, Error };

// One event a line on standard error, with its level. Text that came from outside (a caller
// number, a file's contents) may be passed as it is: control characters are escaped so that
// it can never break or forge a log line.
void write(Level level, std::string_view message);

inline void info(std::string_view message) { write(Level::Info, message); }
inline void warning(std::string_view message) { write(Level::Warning, message); }
inline void error(std::string_view message) { write(Level::Error, message); }

// Replaces where lines go (tests capture them); an empty sink restores standard error.
using Sink = std::function<void(Level, std::string_view line)>;
void setSink(Sink sink);

// `text` with control characters and invalid UTF-8 bytes written as \xNN escapes.
std::string printable(std::string_view text);

} // namespace corvel::log

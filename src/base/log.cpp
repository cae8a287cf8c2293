#include "base/log.h"

#include <cstdio>
#include <utility>

#include "base/utf8.h"

namespace corvel::log {
namespace {

Sink& sink()
{
    static Sink current;
    return current;
}

std::string_view levelName(Level level)
{
    switch (level) {
    case Level::Debug: return "debug";
    case Level::Info: return "info";
    case Level::Warning: return "warning";
    case Level::Error: return "error";
    }
    return "info";
}

} // namespace

std::string printable(std::string_view text)
{
    static constexpr char hex[] = "0123456789abcdef";
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const Utf8Character character = utf8At(text, i);
        if (character.length != 0 && !breaksText(character.value)) {
            out.append(text.substr(i, character.length));
            i += character.length;
            continue;
        }
        // Each byte of anything that could break the line is spelled out.
        const std::size_t bytes = character.length == 0 ? 1 : character.length;
        for (std::size_t b = 0; b < bytes; ++b) {
            const auto byte = static_cast<unsigned char>(text[i + b]);
            out += "\\x";
            out += hex[byte >> 4];
            out += hex[byte & 0xF];
        }
        i += bytes;
    }
    return out;
}

void write(Level level, std::string_view message)
{
    const std::string line = std::string(levelName(level)) + ": " + printable(message);
    if (sink()) {
        sink()(level, line);
        return;
    }
    std::fprintf(stderr, "corvel %s\n", line.c_str());
}

void setSink(Sink newSink) { sink() = std::move(newSink); }

} // namespace corvel::log

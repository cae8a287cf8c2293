#include "app/log.h"

#include <cstdio>
#include <utility>

#include "app/utf8.h"

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
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte >= 0x20 && byte < 0x7F) {
            out += static_cast<char>(byte);
            ++i;
            continue;
        }
        if (const std::size_t length = byte >= 0x80 ? utf8SequenceLength(text, i) : 0) {
            out.append(text.substr(i, length));
            i += length;
            continue;
        }
        out += "\\x";
        out += hex[byte >> 4];
        out += hex[byte & 0xF];
        ++i;
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

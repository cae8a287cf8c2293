#include "telephony/modem/modem_stream.h"

namespace corvel::modem {

bool isKeyCode(char code)
{
    return (code >= '0' && code <= '9') || code == '*' || code == '#' || (code >= 'A' && code <= 'D');
}

void appendShielded(std::vector<std::uint8_t>& out, std::span<const std::uint8_t> audio)
{
    out.reserve(out.size() + audio.size() + audio.size() / 64);
    for (const std::uint8_t byte : audio) {
        out.push_back(byte);
        if (byte == DLE) out.push_back(DLE);
    }
}

void ModemStream::setMode(Mode mode)
{
    if (mode == mode_) return;
    flushAudio();
    mode_ = mode;
    line_.clear();
}

void ModemStream::reset()
{
    audio_.clear();
    line_.clear();
    afterDle_ = false;
    skipLf_ = false;
    inKey_ = false;
    keyReported_ = false;
}

void ModemStream::feed(std::span<const std::uint8_t> bytes)
{
    for (const std::uint8_t byte : bytes) {
        const bool skipLf = skipLf_;
        skipLf_ = false;
        if (afterDle_) {
            afterDle_ = false;
            code(byte);
            continue;
        }
        if (byte == DLE) {
            afterDle_ = true;
            continue;
        }
        if (mode_ == Mode::Receive) {
            if (skipLf && byte == '\n') continue;
            audio_.push_back(byte);
            continue;
        }
        if (byte == '\r' || byte == '\n') {
            if (skipLf && byte == '\n') continue;
            endLine();
            skipLf_ = byte == '\r';
            continue;
        }
        if (line_.size() < maxLine) line_.push_back(static_cast<char>(byte));
    }
    flushAudio();
}

void ModemStream::flushAudio()
{
    if (audio_.empty()) return;
    std::vector<std::uint8_t> out;
    out.swap(audio_);
    handler_.audio(out);
}

void ModemStream::endLine()
{
    // Blank lines (and lines of nothing but spaces) frame every response: they say nothing.
    if (line_.find_first_not_of(" \t") == std::string::npos) {
        line_.clear();
        return;
    }
    std::string text;
    text.swap(line_);
    handler_.line(text);
}

void ModemStream::code(std::uint8_t byte)
{
    if (mode_ == Mode::Receive) {
        if (byte == DLE) {
            audio_.push_back(DLE);
            return;
        }
        if (byte == SUB) {
            audio_.push_back(DLE);
            audio_.push_back(DLE);
            return;
        }
        if (byte == ETX) {
            flushAudio();
            mode_ = Mode::Command;
            line_.clear();
            inKey_ = false;
            handler_.endOfData();
            return;
        }
    }
    const char c = static_cast<char>(byte);
    if (c == '/') { // tone start: the key inside counts once, however often it repeats
        inKey_ = true;
        keyReported_ = false;
        return;
    }
    if (c == '~' || byte == 0x7F) {
        inKey_ = false;
        return;
    }
    if (isKeyCode(c)) {
        if (inKey_) {
            if (keyReported_) return;
            keyReported_ = true;
        }
    }
    flushAudio();
    handler_.event(c);
}

} // namespace corvel::modem

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace corvel::modem {

// Bytes that frame the voice data stream.
inline constexpr std::uint8_t DLE = 0x10;
inline constexpr std::uint8_t ETX = 0x03;
inline constexpr std::uint8_t CAN = 0x18;
inline constexpr std::uint8_t SUB = 0x1A;

// Whether a <DLE> code is a key on the caller's telephone.
bool isKeyCode(char code);

// Audio for the modem with every DLE doubled, as the modem expects it in transmit state.
void appendShielded(std::vector<std::uint8_t>& out, std::span<const std::uint8_t> audio);

// Reads what a voice modem sends: text lines in command state; audio in receive state; and
// <DLE> codes in both. Its state is kept between calls to feed(), so a <DLE> pair or a line
// split across two reads comes out whole. The handler may switch the mode from inside a
// callback (on CONNECT, say); the switch takes effect from the very next byte.
class ModemStream {
public:
    enum class Mode { Command, Receive };

    class Handler {
    public:
        // A line that is not blank, without its CR or LF; DLE codes inside it are taken out.
        virtual void line(std::string_view text) = 0;
        // A <DLE> code. A key comes once per press even when the modem repeats it inside the
        // tone start and end codes; those two codes themselves are not passed on.
        virtual void event(char code) = 0;
        // Audio, unshielded, in receive state only.
        virtual void audio(std::span<const std::uint8_t> bytes) = 0;
        // <DLE><ETX> in receive state: the mode is back to Command when this is called.
        virtual void endOfData() = 0;

    protected:
        ~Handler() = default;
    };

    // A line longer than this is cut here: nothing a modem sends is that long, garbage can be.
    static constexpr std::size_t maxLine = 512;

    explicit ModemStream(Handler& handler) : handler_(handler) {}

    void setMode(Mode mode);
    Mode mode() const { return mode_; }
    void feed(std::span<const std::uint8_t> bytes);
    // Forgets a half-read line, a pending <DLE> and an open key bracket (after a reset).
    void reset();

private:
    void flushAudio();
    void endLine();
    void code(std::uint8_t byte);

    Handler& handler_;
    Mode mode_ = Mode::Command;
    bool afterDle_ = false;
    bool skipLf_ = false;     // the LF of a CR LF whose CR ended the last line
    bool inKey_ = false;      // between a tone-start and a tone-end code
    bool keyReported_ = false;
    std::string line_;
    std::vector<std::uint8_t> audio_;
};

} // namespace corvel::modem

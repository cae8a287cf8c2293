#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace corvel::modem {

// A serial port for a modem: raw 8N1 with RTS/CTS hardware flow control and never XON/XOFF
// (audio is full of those bytes), non-blocking, so that the event loop drives every read and
// write. Failures come back as errno values; nothing here blocks or logs.
class SerialPort {
public:
    SerialPort() = default;
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;
    ~SerialPort() { close(); }

    // 0, or the errno of the step that failed (the port is then closed again). ENODEV for a
    // serial port that has no hardware behind it.
    int open(const std::filesystem::path& device, int baud);
    bool isOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    const std::filesystem::path& device() const { return device_; }

    // Bytes read; 0 when nothing is waiting; -errno on failure, -EIO when the device hung up.
    long read(std::span<std::uint8_t> into);
    // Bytes taken; 0 when the port cannot take more now; -errno on failure.
    long write(std::span<const std::uint8_t> bytes);
    // Throws away what was written but not yet sent, so that a stop overtakes the audio.
    void discardOutput();
    int setDtr(bool on);
    // Waits, at most `limitMs`, for written bytes to leave: only for the last words at exit,
    // when no event loop will run again.
    void drainFor(int limitMs);
    // Restores the port's settings and closes it: 0, or the errno of the first step that failed.
    int close();

private:
    int fd_ = -1;
    std::filesystem::path device_;
    bool haveSaved_ = false;
    std::string saved_; // the termios the port had before, restored on close
};

} // namespace corvel::modem

#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/event_loop.h"
#include "telephony/modem/modem_stream.h"
#include "telephony/modem/responses.h"
#include "telephony/modem/serial_port.h"
#include "telephony/modem/uucp_lock.h"

namespace corvel::modem {

// The answer to one command.
struct Reply {
    LineKind result = LineKind::Error; // the final result, when there was one
    bool timedOut = false;
    bool lost = false;                 // the port failed before the answer came
    std::vector<std::string> lines;    // the information lines before it

    bool ok() const { return !timedOut && !lost && (result == LineKind::Ok || result == LineKind::Vcon); }
    bool connect() const { return !timedOut && !lost && result == LineKind::Connect; }
    std::string describe() const;      // "OK", "ERROR", "no answer" ... for the log
    std::string text() const;          // the information lines, joined by spaces
};

// One conversation with a modem over a serial port, all of it driven by the event loop:
// commands go one at a time, each after the final result of the one before and a short gap,
// with a time limit; their information lines are gathered; what the modem says unasked
// (RING, caller ID, <DLE> codes) goes to the listener as it comes; data goes out behind
// whatever was written before it.
class ModemChannel : private ModemStream::Handler {
public:
    using Done = std::function<void(const Reply&)>;

    class Listener {
    public:
        // A line the modem sent that answers no command: RING, caller ID, DRON, a stray
        // result. `duringCommand` when a command was waiting (its information lines come
        // here too, so that caller ID in the middle of a response is never lost).
        virtual void unsolicited(std::string_view line, LineKind kind, bool duringCommand) = 0;
        virtual void event(char code) = 0;
        virtual void audio(std::span<const std::uint8_t> bytes) = 0;
        virtual void endOfData() = 0;
        // The port failed (the device hung up or went away): errno.
        virtual void lost(int error) = 0;

    protected:
        ~Listener() = default;
    };

    ModemChannel(EventLoop& loop, Listener& listener);
    ~ModemChannel();

    // Takes the lock, opens and sets up the port: 0 or an errno (EBUSY when another program
    // holds the lock: see lock().holder()).
    int open(const std::filesystem::path& device, int baud, const std::filesystem::path& lockFolder);
    bool isOpen() const { return port_.isOpen(); }
    // Closes the port and gives up the lock: 0 or the errno of the close. Queued commands are
    // dropped without their callbacks.
    int close();
    const UucpLock& lock() const { return lock_; }
    const std::filesystem::path& device() const { return port_.device(); }
    SerialPort& port() { return port_; }
    ModemStream& stream() { return stream_; }

    void setGap(Milliseconds gap) { gap_ = gap; }
    // Queues `text` (sent with a CR).
    void command(std::string text, Milliseconds timeout, Done done);
    // Waits for a final result without sending anything: after the host has ended a data
    // state and the modem is to answer OK.
    void awaitFinal(Milliseconds timeout, Done done);
    // Nothing queued and nothing waiting for an answer.
    bool idle() const { return !outstanding_ && queue_.empty(); }
    // Forgets the queue and the command waiting for its answer, without calling them back.
    void cancelCommands();

    // Bytes as they are (shield audio first), behind anything written before.
    void send(std::span<const std::uint8_t> bytes);
    void send(std::string_view text);
    // What is held here because the port would not take it yet.
    std::size_t pendingOutput() const { return out_.size() - outAt_; }
    // Throws away every byte not yet sent, here and in the kernel.
    void discardOutput();

    // A copy of every byte in each direction, for a debugging log.
    std::function<void(bool toModem, std::span<const std::uint8_t> bytes)> trace;

private:
    struct Pending {
        std::string text; // empty: wait only
        Milliseconds timeout;
        Done done;
    };

    void line(std::string_view text) override;
    void event(char code) override;
    void audio(std::span<const std::uint8_t> bytes) override;
    void endOfData() override;

    void readable();
    void writable();
    void flush();
    void fail(int error);
    void next();
    void finish(Reply reply);
    Milliseconds now() const;

    EventLoop& loop_;
    Listener& listener_;
    SerialPort port_;
    UucpLock lock_;
    ModemStream stream_{*this};
    std::unique_ptr<Watch> readWatch_;
    std::unique_ptr<Watch> writeWatch_;
    std::vector<std::uint8_t> out_;
    std::size_t outAt_ = 0;
    std::deque<Pending> queue_;
    std::unique_ptr<Pending> outstanding_;
    Reply reply_;
    Milliseconds gap_{100};
    Milliseconds lastAnswerAt_{-1000000};
    std::unique_ptr<Timer> timeout_;
    std::unique_ptr<Timer> gapTimer_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    bool failed_ = false;
};

} // namespace corvel::modem

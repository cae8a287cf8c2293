#include "telephony/modem/modem_channel.h"

#include <cerrno>
#include <cstring>

#include "base/log.h"

namespace corvel::modem {
namespace {

constexpr std::size_t maxReplyLines = 64; // a response longer than this is garbage
constexpr std::size_t readChunk = 4096;
constexpr int readsPerTurn = 16; // then the loop gets a turn; the watch calls again

} // namespace

std::string Reply::describe() const
{
    if (lost) return "the port failed";
    if (timedOut) return "no answer";
    return toString(result);
}

std::string Reply::text() const
{
    std::string out;
    for (const std::string& line : lines) {
        if (!out.empty()) out += ' ';
        out += line;
    }
    return out;
}

ModemChannel::ModemChannel(EventLoop& loop, Listener& listener)
    : loop_(loop), listener_(listener),
      timeout_(loop.createTimer(
          [this] {
              Reply reply = std::move(reply_);
              reply.timedOut = true;
              finish(std::move(reply));
          },
          TimerKind::SingleShot)),
      gapTimer_(loop.createTimer([this] { next(); }, TimerKind::SingleShot))
{
}

ModemChannel::~ModemChannel()
{
    *alive_ = false;
    close();
}

Milliseconds ModemChannel::now() const
{
    return std::chrono::duration_cast<Milliseconds>(loop_.now().time_since_epoch());
}

int ModemChannel::open(const std::filesystem::path& device, int baud, const std::filesystem::path& lockFolder)
{
    close();
    switch (lock_.acquire(lockFolder, device)) {
    case UucpLock::Outcome::Busy: return EBUSY;
    case UucpLock::Outcome::Unlocked:
        log::warning("opening " + device.string() + " without a lock file: " + lock_.problem());
        break;
    case UucpLock::Outcome::Taken: break;
    }
    if (const int error = port_.open(device, baud); error != 0) {
        lock_.release();
        return error;
    }
    failed_ = false;
    stream_.reset();
    stream_.setMode(ModemStream::Mode::Command);
    readWatch_ = loop_.watchReadable(port_.fd(), [this] { readable(); });
    writeWatch_ = loop_.watchWritable(port_.fd(), [this] { writable(); });
    writeWatch_->setEnabled(false);
    return 0;
}

int ModemChannel::close()
{
    cancelCommands();
    readWatch_.reset();
    writeWatch_.reset();
    out_.clear();
    outAt_ = 0;
    const int error = port_.close();
    lock_.release();
    return error;
}

void ModemChannel::cancelCommands()
{
    queue_.clear();
    outstanding_.reset();
    reply_ = {};
    timeout_->setEnabled(false);
    gapTimer_->setEnabled(false);
}

void ModemChannel::command(std::string text, Milliseconds timeout, Done done)
{
    queue_.push_back({std::move(text), timeout, std::move(done)});
    next();
}

void ModemChannel::awaitFinal(Milliseconds timeout, Done done)
{
    queue_.push_front({std::string(), timeout, std::move(done)});
    next();
}

void ModemChannel::next()
{
    if (outstanding_ || queue_.empty()) return;
    if (!port_.isOpen() || failed_) {
        Pending pending = std::move(queue_.front());
        queue_.pop_front();
        Reply reply;
        reply.lost = true;
        pending.done(reply);
        return;
    }
    // Modems drop commands that come too soon after their last answer.
    const Milliseconds since = now() - lastAnswerAt_;
    if (!queue_.front().text.empty() && since < gap_) {
        if (!gapTimer_->enabled()) {
            gapTimer_->setInterval(gap_ - since);
            gapTimer_->setEnabled(true);
        }
        return;
    }
    outstanding_ = std::make_unique<Pending>(std::move(queue_.front()));
    queue_.pop_front();
    reply_ = {};
    if (!outstanding_->text.empty()) send(outstanding_->text + "\r");
    timeout_->setInterval(outstanding_->timeout);
    timeout_->setEnabled(true);
}

void ModemChannel::finish(Reply reply)
{
    timeout_->setEnabled(false);
    lastAnswerAt_ = now();
    const std::unique_ptr<Pending> done = std::move(outstanding_);
    if (!done) return;
    const std::weak_ptr<bool> alive = alive_;
    done->done(reply);
    if (!alive.expired()) next();
}

void ModemChannel::line(std::string_view text)
{
    const LineKind kind = classify(text);
    if (kind == LineKind::Echo) return; // the modem repeating our command back
    if (kind == LineKind::Ring || kind == LineKind::Cadence) {
        listener_.unsolicited(text, kind, outstanding_ != nullptr);
        return;
    }
    if (!outstanding_) {
        listener_.unsolicited(text, kind, false);
        return;
    }
    if (isFinal(kind)) {
        Reply reply = std::move(reply_);
        reply.result = kind;
        finish(std::move(reply));
        return;
    }
    if (reply_.lines.size() < maxReplyLines) reply_.lines.emplace_back(text);
    listener_.unsolicited(text, kind, true);
}

void ModemChannel::event(char code) { listener_.event(code); }
void ModemChannel::audio(std::span<const std::uint8_t> bytes) { listener_.audio(bytes); }
void ModemChannel::endOfData() { listener_.endOfData(); }

void ModemChannel::readable()
{
    const std::weak_ptr<bool> alive = alive_;
    std::uint8_t buffer[readChunk];
    for (int turn = 0; turn < readsPerTurn; ++turn) {
        const long n = port_.read(buffer);
        if (n == 0) return;
        if (n < 0) {
            fail(static_cast<int>(-n));
            return;
        }
        const std::span<const std::uint8_t> bytes(buffer, static_cast<std::size_t>(n));
        if (trace) trace(false, bytes);
        const int fd = port_.fd();
        stream_.feed(bytes);
        // A handler may have closed or reopened the port while the bytes were read.
        if (alive.expired() || port_.fd() != fd || !readWatch_) return;
    }
}

void ModemChannel::send(std::string_view text)
{
    send(std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

void ModemChannel::send(std::span<const std::uint8_t> bytes)
{
    if (!port_.isOpen() || failed_) return;
    if (outAt_ > 0 && outAt_ == out_.size()) {
        out_.clear();
        outAt_ = 0;
    }
    out_.insert(out_.end(), bytes.begin(), bytes.end());
    flush();
}

void ModemChannel::flush()
{
    while (outAt_ < out_.size()) {
        const std::span<const std::uint8_t> rest(out_.data() + outAt_, out_.size() - outAt_);
        const long n = port_.write(rest);
        if (n < 0) {
            fail(static_cast<int>(-n));
            return;
        }
        if (n == 0) break;
        if (trace) trace(true, rest.first(static_cast<std::size_t>(n)));
        outAt_ += static_cast<std::size_t>(n);
    }
    if (outAt_ == out_.size()) {
        out_.clear();
        outAt_ = 0;
    } else if (outAt_ > 65536) {
        out_.erase(out_.begin(), out_.begin() + static_cast<std::ptrdiff_t>(outAt_));
        outAt_ = 0;
    }
    if (writeWatch_) writeWatch_->setEnabled(outAt_ < out_.size());
}

void ModemChannel::writable() { flush(); }

void ModemChannel::discardOutput()
{
    out_.clear();
    outAt_ = 0;
    port_.discardOutput();
    if (writeWatch_) writeWatch_->setEnabled(false);
}

void ModemChannel::fail(int error)
{
    if (failed_) return;
    failed_ = true;
    if (readWatch_) readWatch_->setEnabled(false);
    if (writeWatch_) writeWatch_->setEnabled(false);
    const std::weak_ptr<bool> alive = alive_;
    if (outstanding_) {
        Reply reply = std::move(reply_);
        reply.lost = true;
        finish(std::move(reply));
        if (alive.expired()) return;
    }
    while (!queue_.empty() && !alive.expired()) next();
    if (!alive.expired()) listener_.lost(error);
}

} // namespace corvel::modem

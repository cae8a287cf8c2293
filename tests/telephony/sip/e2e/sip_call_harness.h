#pragma once

// Whole calls on the SIP line: a headless Corvel in a folder of its own, SIPp and other SIP
// clients as callers, all on the loopback address, every wait bounded.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace corvel::e2e {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// A program found on PATH, or nothing.
std::optional<std::filesystem::path> findProgram(const std::string& name);

// A loopback port that is free for UDP and TCP now; `span` ports from it when asked for more
// (RTP and RTCP pairs).
int freePort(int span = 1);

// A child process with its output in a file; killed when it goes out of scope.
class Process {
public:
    Process(std::vector<std::string> arguments, const std::map<std::string, std::string>& environment,
            const std::filesystem::path& output, const std::filesystem::path& workingFolder = {},
            bool withInput = false);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Its exit code when it ends within `limit`; nothing (and it is killed) otherwise.
    std::optional<int> wait(std::chrono::milliseconds limit);
    bool running();
    void terminate();
    // Writes a line to its standard input.
    void say(const std::string& line);
    int pid() const { return pid_; }

private:
    int pid_ = -1;
    int input_ = -1;
    std::optional<int> status_;
};

// The text of a file; empty when it is missing.
std::string readText(const std::filesystem::path& path);

// Waits until `done` holds or `limit` passes, looking every 50 ms.
bool eventually(const std::function<bool()>& done, std::chrono::milliseconds limit);

// A headless Corvel on the SIP line (or one with windows on the test line), with its own
// settings, data, cache and runtime folders, working in its root folder, where any file a
// command it starts makes lands too.
class Corvel {
public:
    Corvel();
    ~Corvel();

    // Settings written before the start: application "withheld", the section and the key.
    void set(const std::string& section, const std::string& key, const std::string& value);
    // Starts it and waits for the SIP line to listen. `line` is given to --line.
    bool start(const std::string& line = "sip");
    // Starts it with its windows (drawn offscreen) on the test line, and waits for it on the
    // session bus, where the test line's caller is driven.
    bool startOnTheDesktop();
    void stop();
    // Sends it `number` and gives its exit code when it ends within `limit`.
    std::optional<int> signal(int number, std::chrono::milliseconds limit);
    // Runs "corvel OPTION" beside it, as the user does from the command line, and gives its
    // exit code (nothing when it did not end in time).
    std::optional<int> tell(const std::string& option) const;
    // Its environment: the folders of its own, and the runtime folder where it is found.
    std::map<std::string, std::string> environment() const;

    int port() const { return port_; }
    const std::filesystem::path& root() const { return root_; }
    std::filesystem::path data() const { return root_ / "data"; }
    std::string log() const;
    bool logHas(const std::string& text) const;
    // Waits for `text` in what it logs past `from` (an earlier size of its log).
    bool waitForLog(const std::string& text, std::chrono::milliseconds limit, std::size_t from = 0) const;
    // The lines of one of its record files in the data folder ("blocked.txt"); calls.txt for calls().
    std::vector<std::string> records(const std::string& file) const;
    std::vector<std::string> calls() const { return records("calls.txt"); }
    // Short prompts of the user's own in place of the greetings, "nobody" and "leave a message",
    // in formats the SIP stack cannot play as they are: 0.8 s, 1.5 s and 1 s. Before start().
    void useOwnPrompts();
    bool running() { return process_ && process_->running(); }
    int pid() const { return process_ ? process_->pid() : -1; }
    // The length of a prompt file it plays, read from its data folder.
    std::chrono::milliseconds promptLength(const std::string& file) const;

private:
    void writeSettings() const;

    std::filesystem::path root_;
    int port_ = 0;
    std::map<std::string, std::map<std::string, std::string>> settings_;
    std::unique_ptr<Process> process_;
};

// The computer's own microphone and speaker: a PulseAudio server in Corvel's runtime folder,
// started before Corvel, whose speaker's sound is kept and whose microphone hears a steady tone.
class DesktopSound {
public:
    static constexpr int rate = 8000;
    static constexpr double toneHz = 440;

    explicit DesktopSound(const Corvel& corvel);
    ~DesktopSound();
    bool ready() const { return ready_; }
    // Kills the server outright, as a crash does, and starts it again on the same socket, with
    // the same devices; what the speaker heard so far is kept. Whether it is back.
    bool restart();
    std::string log() const;
    // What came out of the speaker so far.
    std::vector<std::int16_t> heard() const;

private:
    void start();
    void closePipes();

    std::filesystem::path folder_;
    std::filesystem::path socket_;
    std::map<std::string, std::string> environment_;
    std::unique_ptr<Process> server_;
    int runs_ = 0;
    bool ready_ = false;
    std::atomic<bool> stop_{false};
    mutable std::mutex mutex_;
    std::vector<std::int16_t> heard_;
    std::thread microphone_;
    std::thread speaker_;
};

// How much of `samples` (at `rate`) is a tone of `hz`: its share of their energy, 0 to 1.
double toneShare(const std::vector<std::int16_t>& samples, double hz, int rate);

// One step of what a SIPp caller does once the call is up.
struct Step {
    enum class Kind { Pause, Key, Speech, Info, Renewal };
    Kind kind = Kind::Pause;
    std::chrono::milliseconds length{0}; // Pause; Renewal: how long to wait for it
    char key = 0;                        // Key (RFC 4733 from SIPp's pcaps), Info
    std::string contentType;             // Info
    std::string body;                    // Info
};
Step pause(std::chrono::milliseconds length);
Step key(char k);
Step speech();
Step info(std::string contentType, std::string body);
// Corvel renews the call (a re-INVITE) within `within`; the caller takes it up as before.
Step renewal(std::chrono::milliseconds within);
// The steps as SIPp scenario XML.
std::string stepsXml(const std::vector<Step>& steps);
// What a caller who leaves a message does once the "nobody" prompt has begun: press 1 a few
// seconds after it (Corvel waits 10 s for it), speak once the leave-a-message prompt is over,
// then press a key.
std::vector<Step> leaveAMessage(std::chrono::milliseconds nobody, std::chrono::milliseconds leave);

// A SIPp run: the scenario from the test tree with its {{placeholders}} filled in.
struct SippResult {
    std::optional<int> exitCode; // nothing when it did not end in time
    std::string output;
};
class Sipp {
public:
    explicit Sipp(const Corvel& corvel);
    void fill(const std::string& placeholder, const std::string& value) { fills_[placeholder] = value; }
    // Further command-line options (several calls, a call rate).
    void options(std::vector<std::string> more) { options_ = std::move(more); }
    // Sends its requests to `port` on loopback, a proxy in front of Corvel, rather than to Corvel.
    void via(int port) { target_ = port; }
    // The messages SIPp sent and received, with their times.
    std::string messages() const;
    // Runs `scenario` against Corvel (or as a server when `server`), bounded by `limit`.
    SippResult run(const std::string& scenario, std::chrono::milliseconds limit, bool server = false);
    // Starts it and returns at once; `finish` waits for the result.
    void start(const std::string& scenario, std::chrono::milliseconds limit, bool server = false);
    SippResult finish();
    int port() const { return port_; }
    int mediaPort() const { return mediaPort_; }

private:
    std::vector<std::string> prepare(const std::string& scenario, std::chrono::milliseconds limit, bool server);

    const Corvel& corvel_;
    std::filesystem::path folder_;
    int port_;
    int mediaPort_;
    std::map<std::string, std::string> fills_;
    std::vector<std::string> options_;
    std::optional<int> target_;
    std::unique_ptr<Process> process_;
    std::chrono::milliseconds limit_{0};
    std::filesystem::path output_;
};

// The audio Corvel sends to a caller, received on a port of its own that the caller's SDP
// names: packets and G.711 samples, decoded.
class RtpSink {
public:
    RtpSink();
    ~RtpSink();
    int port() const { return port_; }
    std::size_t packets() const;
    std::vector<std::int16_t> samples() const;
    // When the last G.711 packet came.
    Clock::time_point lastAudio() const;
    // Sends an RFC 4733 key to `port` on loopback from this sink's own port.
    void sendKey(int port, char key);

private:
    int socket_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    mutable std::mutex mutex_;
    std::size_t packets_ = 0;
    std::vector<std::int16_t> samples_;
    Clock::time_point lastAudio_{};
    std::thread thread_;
};

// What a wave file holds, as a player would find it.
struct WaveFacts {
    bool readable = false;
    int rate = 0;
    int channels = 0;
    bool pcm16 = false;
    double seconds = 0;
    double rms = 0;
    bool headerSizesRight = false; // RIFF and data sizes agree with the file's length
};
WaveFacts waveFacts(const std::filesystem::path& path);
double rms(const std::vector<std::int16_t>& samples);

// What a process uses, from /proc: its user and system time in clock ticks, a field of one of
// its files in kB ("status", "VmRSS:"; "smaps_rollup", "Pss:"), and its open descriptors.
long cpuTicks(int pid);
long kilobytes(int pid, const std::string& file, const std::string& field);
long openDescriptors(int pid);

} // namespace corvel::e2e

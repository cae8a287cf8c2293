#include "sip_soak.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <thread>

#include "sip_speech.h"
#include "support/shuffled_rounds.h"
#include "support/wave_files.h"

namespace corvel::e2e {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
namespace fs = std::filesystem;

constexpr milliseconds transferWait{1500}; // "transfer" is 2: its countdown runs out after 1 to 2 s
constexpr const char* trustedNumber = "0123456";

// One kind of call: how SIPp places it, the lines it adds to calls.txt and whether the caller
// leaves a message, speaking once.
struct CallKind {
    const char* name;
    std::size_t logLines;
    bool leavesMessage;
    std::function<SippResult(Corvel&, const std::string& number)> place;
};

bool seenThrough(const SippResult& result) { return result.exitCode == 0; }

// What SIPp said last: enough to tell why a call went wrong without its whole trace.
std::string lastWords(const std::string& output)
{
    constexpr std::size_t kept = 1200;
    return output.size() <= kept ? output : "..." + output.substr(output.size() - kept);
}

// How long a caller waits for Corvel's BYE once their steps are done; none when they hang up.
constexpr milliseconds callerHangsUp{0};
constexpr milliseconds corvelHangsUp{10000};

SippResult answered(Corvel& corvel, const std::string& from, const std::vector<Step>& steps, milliseconds byeWithin,
              const std::string& headers = "")
{
    Sipp caller(corvel);
    caller.fill("from", from);
    caller.fill("headers", headers);
    caller.fill("steps", stepsXml(steps));
    caller.fill("caller_hangs_up", byeWithin == callerHangsUp ? "1" : "0");
    caller.fill("bye_within", std::to_string(byeWithin.count()));
    return caller.run("answered_call.xml", 90s);
}

std::string delivered(const std::string& number) { return "<sip:" + number + "@127.0.0.1>"; }
const std::string withheld = "\"Anonymous\" <sip:anonymous@anonymous.invalid>";

// The number read back: "from" and its digits, after the greeting (0.8 s of the soak's own).
milliseconds readBack(const Corvel& corvel, const std::string& digits)
{
    milliseconds length = 800ms + corvel.promptLength("from.wav");
    for (const char digit : digits) length += corvel.promptLength(std::string(1, digit) + ".wav");
    return length;
}

std::vector<Step> then(std::vector<Step> steps, const std::vector<Step>& more)
{
    steps.insert(steps.end(), more.begin(), more.end());
    return steps;
}

std::vector<CallKind> callKinds()
{
    const auto message = leaveAMessage(1500ms, 1000ms);
    return {
        {"withheld caller keys a number and leaves a message", 2, true,
         [=](Corvel& corvel, const std::string&) {
             return answered(corvel, withheld,
                             then({pause(1500ms), key('0'), key('1'), key('2'), key('#'),
                                   pause(readBack(corvel, "012") - 800ms + transferWait)},
                                  message),
                             corvelHangsUp, "Privacy: id\n");
         }},
        {"number read back, then a message", 1, true,
         [=](Corvel& corvel, const std::string& number) {
             return answered(corvel, delivered(number), then({pause(readBack(corvel, number))}, message), corvelHangsUp);
         }},
        {"star during the greeting", 1, false,
         [](Corvel& corvel, const std::string& number) {
             return answered(corvel, delivered(number), {pause(500ms), key('*')}, corvelHangsUp);
         }},
        {"caller hangs up during a prompt", 1, false,
         [](Corvel& corvel, const std::string& number) {
             return answered(corvel, delivered(number), {pause(500ms)}, callerHangsUp);
         }},
        {"caller hangs up during the transfer wait", 1, false,
         [](Corvel& corvel, const std::string& number) {
             return answered(corvel, delivered(number), {pause(readBack(corvel, number) + 500ms)}, callerHangsUp);
         }},
        {"caller hangs up while recording", 1, true,
         [](Corvel& corvel, const std::string& number) {
             // Once they have said all they had to say (7.4 s): what they said is all in the message.
             return answered(corvel, delivered(number),
                             {pause(readBack(corvel, number) + transferWait + 3000ms), key('1'), pause(2000ms),
                              speech(), pause(8000ms)},
                             callerHangsUp);
         }},
        {"CANCEL before the answer", 1, false,
         [](Corvel& corvel, const std::string&) {
             Sipp caller(corvel);
             caller.fill("from", delivered(trustedNumber));
             caller.fill("ring_for", "1200");
             return caller.run("cancelled_call.xml", 20s);
         }},
        {"a second INVITE during a call (486)", 1, false,
         [](Corvel& corvel, const std::string& number) {
             const auto answers = [&] {
                 const std::string log = corvel.log();
                 std::size_t count = 0;
                 for (auto at = log.find("answering the SIP call"); at != std::string::npos;
                      at = log.find("answering the SIP call", at + 1))
                     ++count;
                 return count;
             };
             const std::size_t before = answers();
             Sipp first(corvel);
             first.fill("from", delivered(number));
             first.fill("steps", stepsXml({pause(4000ms)}));
             first.fill("caller_hangs_up", "1");
             first.fill("bye_within", "0");
             first.start("answered_call.xml", 30s);
             if (!eventually([&] { return answers() > before; }, 10s)) {
                 SippResult unanswered = first.finish();
                 unanswered.exitCode = -1;
                 unanswered.output += "\n(Corvel never answered the first call)";
                 return unanswered;
             }
             Sipp second(corvel);
             second.fill("from", delivered("0200"));
             second.fill("refusal", "486");
             const SippResult busy = second.run("refused_call.xml", 15s);
             const SippResult answered = first.finish();
             return seenThrough(busy) ? answered : busy;
         }},
        {"keys sent as SIP INFO", 2, false,
         [](Corvel& corvel, const std::string&) {
             return answered(corvel, withheld,
                             {pause(1500ms), info("application/dtmf-relay", "Signal=0\nDuration=160"),
                              info("application/dtmf-relay", "Signal=1\nDuration=160"), info("application/dtmf", "2"),
                              info("application/dtmf", "#"), pause(1000ms)},
                             callerHangsUp);
         }},
        {"silence, hung up on", 1, false,
         [](Corvel& corvel, const std::string& number) {
             // Corvel's countdowns end it: the read-back, the transfer wait, "nobody" and ten
             // seconds for a "1".
             const milliseconds countdowns = readBack(corvel, number) + 2s + 1500ms + 10s;
             return answered(corvel, delivered(number), {}, countdowns + 5s);
         }},
    };
}

// The new messages in the data folder, and the recordings the SIP line has under way.
std::vector<fs::path> newMessages(const Corvel& corvel)
{
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(corvel.data())) {
        if (entry.path().filename().string().rfind("1-", 0) == 0) found.push_back(entry.path());
    }
    return found;
}

std::vector<fs::path> halfDone(const Corvel& corvel)
{
    std::vector<fs::path> found;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(corvel.data(), error)) {
        if (entry.path().extension() == ".part") found.push_back(entry.path());
    }
    for (const auto& entry : fs::directory_iterator(corvel.root() / "cache" / "corvel" / "sip" / "recordings", error))
        found.push_back(entry.path());
    return found;
}

std::string asMilliseconds(double seconds) { return std::to_string(std::lround(seconds * 1000)) + " ms"; }

// What is wrong with the one message a caller left, having spoken for `spoken` seconds; nothing
// when it is whole. The voice in it is measured, not its length: the recording begins with the
// caller's first packet and ends when Corvel hears the key or the BYE, later on a busy machine,
// while what the caller said is fixed. A recording begun late or cut short, packets missing
// from the file or written twice all move the voice's ends; a late packet the stack conceals
// keeps its 30 ms, and the 100 ms allowed leaves room for the stack's small shifts of its buffer.
std::string messageFault(const std::vector<fs::path>& messages, double spoken)
{
    if (messages.size() != 1) return std::to_string(messages.size()) + " messages, not one";
    const WaveFacts facts = waveFacts(messages.front());
    if (!facts.readable || !facts.headerSizesRight) return "the message is not a whole WAV";
    const testing::Wave message = testing::readWave(messages.front());
    const double voiced = voicedSeconds(message.samples, message.rate);
    if (std::abs(voiced - spoken) > 0.1)
        return "the message holds " + asMilliseconds(voiced) + " of the caller's " + asMilliseconds(spoken) + " of speech";
    return {};
}

} // namespace

void prepareForSoak(Corvel& corvel)
{
    corvel.useOwnPrompts();
    corvel.set("data", "rings", "1");
    corvel.set("data", "allcalls", "True");
    corvel.set("data", "ansall", "False"); // a delivered number is read back, not asked for
    corvel.set("data", "transfer", "2");
    corvel.set("data", "trusted", "True");
    corvel.set("sip", "ringinterval", "300");
    fs::create_directories(corvel.data());
    std::ofstream(corvel.data() / "directory.ini", std::ios::binary) << trustedNumber << ",Jane\r\n";
}

SoakReport soak(Corvel& corvel, int calls, unsigned seed, const std::function<void(int, const std::string&)>& progress)
{
    const std::vector<CallKind> kinds = callKinds();
    const double spoken = voicedSeconds(speechSamples(), speechRate);
    testing::ShuffledRounds order(kinds.size(), seed);
    SoakReport report;
    const int pid = corvel.pid();
    const long ticksBefore = cpuTicks(pid);

    for (int call = 1; call <= calls; ++call) {
        const CallKind& kind = kinds[order.next()];
        const std::string number = order.number();
        progress(call, kind.name);
        ++report.kinds[kind.name];
        const auto fail = [&](const std::string& what) {
            report.failures.push_back("call " + std::to_string(call) + " (" + kind.name + ", " + number + "): " + what);
        };
        const std::size_t linesBefore = corvel.calls().size();

        if (const SippResult caller = kind.place(corvel, number); !seenThrough(caller)) {
            ++report.callerFailures;
            fail("SIPp did not see it through: " + lastWords(caller.output));
        }
        // Corvel keeps its line closed for a second after each call; the message is filed then.
        std::this_thread::sleep_for(1500ms);
        if (!corvel.running()) {
            report.corvelAlive = false;
            fail("Corvel is not running");
            break;
        }
        if (corvel.calls().size() != linesBefore + kind.logLines) {
            ++report.callLogMisses;
            fail("calls.txt gained " + std::to_string(corvel.calls().size() - linesBefore) + " lines, not " +
                 std::to_string(kind.logLines));
        }
        std::vector<fs::path> messages;
        eventually([&] { return !(messages = newMessages(corvel)).empty() || !kind.leavesMessage; }, 5s);
        if (kind.leavesMessage) {
            if (const std::string fault = messageFault(messages, spoken); !fault.empty()) {
                ++report.lostMessages;
                fail(fault);
            }
        } else if (!messages.empty()) {
            ++report.strayFiles;
            fail("a message appeared from a call that left none");
        }
        for (const fs::path& message : messages) fs::remove(message); // heard and deleted, as a user would
        if (const auto left = halfDone(corvel); !left.empty()) {
            report.strayFiles += static_cast<int>(left.size());
            fail("left behind: " + left.front().string());
        }

        const long open = openDescriptors(pid);
        if (call == 1) report.descriptorsAfterFirst = open;
        report.descriptorsMost = std::max(report.descriptorsMost, open);
        report.descriptorsAtEnd = open;
        if (call == 50) report.residentKbAfter50 = kilobytes(pid, "status", "VmRSS:");
        report.residentKbAtEnd = kilobytes(pid, "status", "VmRSS:");
        ++report.calls;
    }
    report.cpuMillisecondsPerCall = report.calls == 0 ? 0
                                                      : 1000.0 * static_cast<double>(cpuTicks(pid) - ticksBefore) /
                                                            static_cast<double>(::sysconf(_SC_CLK_TCK)) / report.calls;
    return report;
}

} // namespace corvel::e2e

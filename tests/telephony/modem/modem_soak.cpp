#include "modem_soak.h"

#include <algorithm>
#include <filesystem>

#include "emulated_modem_line.h"
#include "support/answer_phone_harness.h"
#include "support/shuffled_rounds.h"
#include "support/wave_files.h"

namespace corvel::testing {
namespace {

using namespace std::chrono_literals;
using Identity = ScriptedCall::Identity;
using Key = ScriptedCall::Key;
namespace fs = std::filesystem;

// One kind of call: the caller's script (keys and hang-up from the answer, 24 s in on the
// fifth ring), the lines it adds to calls.txt and whether it leaves a message.
struct CallKind {
    const char* name;
    Identity identity;
    std::vector<Key> keys;
    std::optional<Milliseconds> hangUpAt;
    std::size_t logLines;
    bool message;
};

const std::vector<CallKind> callKinds{
    {"keys a number and leaves a message", Identity::Withheld,
     {{4s, '0'}, {5s, '1'}, {6s, '2'}, {7s, '#'}, {31s, '1'}, {39s, '9'}}, std::nullopt, 2, true},
    {"star during the greeting", Identity::Withheld, {{2s, '*'}}, std::nullopt, 1, false},
    {"hangs up during a prompt", Identity::Withheld, {}, 3s, 1, false},
    {"hangs up during the transfer wait", Identity::Withheld, {{4s, '5'}, {5s, '#'}}, 12s, 2, false},
    {"hangs up while recording", Identity::Withheld, {{4s, '5'}, {5s, '#'}, {26s, '1'}}, 37s, 2, true},
    {"keys nothing and is hung up on", Identity::Withheld, {}, std::nullopt, 1, false},
    {"a delivered number rings out unanswered", Identity::Number, {}, std::nullopt, 1, false},
};

long openDescriptors()
{
    long count = 0;
    std::error_code error;
    for (auto it = fs::directory_iterator("/proc/self/fd", error); !error && it != fs::directory_iterator(); it.increment(error))
        ++count;
    return count;
}

class Soak : public BasicAnswerPhoneHarness<EmulatedModemLine> {
public:
    Soak()
    {
        readyForCalls();
        writeTone(top / "voice.wav", 3.0);
    }

    void place(const CallKind& kind, const std::string& number)
    {
        ScriptedCall call;
        call.identity = kind.identity;
        call.number = number;
        call.keys = kind.keys;
        call.speech = top / "voice.wav";
        call.speechAt = 34s;
        call.hangUpAt = kind.hangUpAt;
        line.placeCall(call);
        loop.runUntil([&] { return line.ringCount() >= 5 && !line.callActive() && !line.ringing() && !view.busy; });
        loop.runFor(15s); // past the end of the rings, and the line reopened
    }

    std::vector<fs::path> files(const std::function<bool(const fs::path&)>& wanted) const
    {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(data)) {
            if (wanted(entry.path())) found.push_back(entry.path());
        }
        return found;
    }
};

} // namespace

ModemSoakReport modemSoak(int calls, unsigned seed, const std::function<void(int, const std::string&)>& progress)
{
    Soak phone;
    ShuffledRounds order(callKinds.size(), seed);
    ModemSoakReport report;
    for (int call = 1; call <= calls; ++call) {
        const CallKind& kind = callKinds[order.next()];
        const std::string number = order.number();
        progress(call, kind.name);
        ++report.kinds[kind.name];
        const auto fail = [&](const std::string& what) {
            report.failures.push_back("call " + std::to_string(call) + " (" + kind.name + "): " + what);
        };
        const std::size_t linesBefore = phone.folder.readLines("calls.txt").size();

        phone.place(kind, number);

        const std::size_t lines = phone.folder.readLines("calls.txt").size();
        if (lines != linesBefore + kind.logLines) {
            ++report.callLogMisses;
            fail("calls.txt gained " + std::to_string(lines - linesBefore) + " lines, not " + std::to_string(kind.logLines));
        }
        const auto messages = phone.files([](const fs::path& file) { return file.filename().string().rfind("1-", 0) == 0; });
        if (kind.message) {
            const Wave message = messages.size() == 1 ? readWave(messages.front()) : Wave{};
            if (message.rate != 8000 || message.samples.size() < 8000) {
                ++report.lostMessages;
                fail("the message is missing or not whole (" + std::to_string(messages.size()) + " files)");
            }
        } else if (!messages.empty()) {
            ++report.strayFiles;
            fail("a message appeared from a call that left none");
        }
        for (const fs::path& message : messages) fs::remove(message); // heard and deleted, as a user would
        if (const auto left = phone.files([](const fs::path& file) { return file.extension() == ".part"; }); !left.empty()) {
            report.strayFiles += static_cast<int>(left.size());
            fail("left behind: " + left.front().string());
        }
        const CallState& state = phone.phone.calls.state();
        if (phone.line.callActive() || phone.line.recording() || !phone.line.lineOpen() || state.callInProgress) {
            ++report.notAtRest;
            fail("the line is not back at rest");
        }
        const long open = openDescriptors();
        if (call == 1) report.descriptorsAfterFirst = open;
        report.descriptorsMost = std::max(report.descriptorsMost, open);
        report.descriptorsAtEnd = open;
        ++report.calls;
    }
    return report;
}

} // namespace corvel::testing

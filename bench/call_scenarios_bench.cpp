// Whole calls back to back on the virtual loop and the test line: a withheld caller keys their
// number, waits to be put through, and leaves a message, which the user then plays and deletes.
// Reports calls a second and the memory in use after each batch; it must not grow with calls.

#include <benchmark/benchmark.h>

#include <fstream>
#include <string>

#include "support/answer_phone_harness.h"

namespace {

using namespace std::chrono_literals;
using corvel::ScriptedCall;

// Resident memory now, in kB, from /proc.
double residentKilobytes()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::stod(line.substr(6));
    }
    return 0;
}

void WholeCalls(benchmark::State& state)
{
    corvel::testing::AnswerPhoneHarness harness;
    harness.readyForCalls();
    corvel::testing::writeTone(harness.top / "voice.wav", 3.0);
    ScriptedCall call;
    call.identity = ScriptedCall::Identity::Withheld;
    call.keys = {{4s, '0'}, {5s, '1'}, {6s, '2'}, {7s, '#'}, {31s, '1'}, {39s, '9'}};
    call.speech = harness.top / "voice.wav";
    call.speechAt = 34s;
    harness.view.yesNoAnswers.assign(1u << 20, true); // every message deleted once heard

    std::int64_t calls = 0;
    double firstBatch = 0;
    for (auto _ : state) {
        harness.line.placeCall(call);
        harness.loop.runUntil([&] { return harness.line.ringCount() >= 5 && !harness.line.callActive() &&
                                           !harness.line.ringing() && !harness.view.busy; });
        harness.phone.playback.playNew();
        harness.phone.playback.playOld();
        // The test doubles keep everything they saw; that is theirs, not Corvel's, to measure.
        harness.agent.calls.clear();
        harness.view.events.clear();
        harness.view.questions.clear();
        harness.view.pickupCaptions.clear();
        if (++calls == 100) firstBatch = residentKilobytes();
    }
    state.SetItemsProcessed(calls);
    state.counters["rss_kB_after_100"] = firstBatch;
    state.counters["rss_kB_at_end"] = residentKilobytes();
}
BENCHMARK(WholeCalls)->Iterations(1000)->Unit(benchmark::kMillisecond);

} // namespace

// The recent-calls box is rebuilt from the whole call log after every call. Measured on a
// 100,000-line log against the line-by-line prepend that rebuilds it in quadratic time.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "support/answer_phone_harness.h"

namespace {

using corvel::testing::AnswerPhoneHarness;

constexpr int logLines = 100000;

void writeLog(const AnswerPhoneHarness& harness)
{
    std::ofstream log(harness.data / "calls.txt", std::ios::binary);
    for (int i = 0; i < logLines; ++i) {
        log << (i % 3 ? "01632-960" + std::to_string(i % 1000) : std::string("Withheld"))
            << ", on 14 November 2026, at 9:05:03 PM\r\n";
        if (i % 5 == 0) log << " keyed - 0123456789, on 14 November 2026, at 9:05:09 PM\r\n";
    }
}

void RecentCallsRebuild(benchmark::State& state)
{
    AnswerPhoneHarness harness;
    writeLog(harness);
    for (auto _ : state) harness.phone.callLog.rebuild();
    state.counters["bytes"] = static_cast<double>(harness.view.text("txt_reccalls").size());
}
BENCHMARK(RecentCallsRebuild)->Unit(benchmark::kMillisecond);

// Each line put in front of the text built so far, as a text box would be filled one line at
// a time.
void NaivePrepend(benchmark::State& state)
{
    AnswerPhoneHarness harness;
    writeLog(harness);
    for (auto _ : state) {
        std::string text;
        for (const std::string& line : harness.folder.readLines("calls.txt")) text = line + "\r\n" + text;
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(NaivePrepend)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace

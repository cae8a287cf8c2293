// The time from `say` to the character's first audio sample (target: 150 ms or less), with
// Phony shown and at rest, on the audio output when there is one and on the silent clock when
// there is not; and the speech engine alone, from a speech asked for to its first samples.

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>

#include <chrono>
#include <thread>

#include "character/speech_tags.h"
#include "ui/agent/qt_agent.h"
#include "ui/agent/speech_engine.h"
#include "ui/agent/speech_stream.h"

namespace {

using namespace corvel;
using Clock = std::chrono::steady_clock;

void ensureApplication()
{
    if (QCoreApplication::instance()) return;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "corvel_bench";
    static char* argv[] = {name, nullptr};
    new QApplication(argc, argv);
}

const char* const sentence = "\\Vol=65535\\Call from Anna Clarke, on 12 March, at 6:22 PM.";

void SayToFirstAudioSample(benchmark::State& state)
{
    ensureApplication();
    QtAgent::Options options;
    options.characterFolders = {CORVEL_CHARACTERS_DIR};
    options.voiceCommands = false;
    options.seed = 1;
    QtAgent agent(options);
    if (!agent.load("Phony")) {
        state.SkipWithError("Phony.acs is not built");
        return;
    }
    agent.moveTo(200, 200);
    agent.show();
    SpeechEngine::instance().waitReady();
    QElapsedTimer wait;
    wait.start();
    while (agent.queued() > 0 && wait.elapsed() < 5000) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);

    double worst = 0;
    for (auto _ : state) {
        agent.stop();
        agent.play("RestPose"); // the mouth can move where it stands
        while (agent.queued() > 0) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        const auto start = Clock::now();
        agent.speak(sentence);
        const auto stream = agent.currentSpeech();
        while (stream && !stream->firstPlayed()) QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        const double seconds = stream ? std::chrono::duration<double>(*stream->firstPlayed() - start).count() : 0;
        worst = std::max(worst, seconds);
        state.SetIterationTime(seconds);
    }
    agent.stop();
    state.counters["worst_ms"] = worst * 1000;
    state.counters["target_ms"] = 150;
}
BENCHMARK(SayToFirstAudioSample)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

void SpeechEngineFirstSamples(benchmark::State& state)
{
    SpeechEngine& engine = SpeechEngine::instance();
    engine.waitReady();
    const auto parts = parseSpeech(sentence);
    for (auto _ : state) {
        const auto start = Clock::now();
        const auto stream = engine.speak(parts, {"en-us+f3", 170, 38}, 1);
        while (stream->produced() == 0 && !stream->finished()) std::this_thread::yield();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        stream->cancel();
        while (!stream->finished()) std::this_thread::yield();
    }
}
BENCHMARK(SpeechEngineFirstSamples)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);

} // namespace

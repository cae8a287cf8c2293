// The modem driver against the emulator on the desktop's event loop, in real time.
//
// 1. Key to stop: the caller presses a key while a prompt plays; the call logic stops the
//    prompt on it. Measured from the moment the emulator writes the key's <DLE> code to the
//    moment the driver has written its abort (the listener's setPlaying(false) has returned),
//    and to the moment the modem reads the abort. Target: 60 ms at most.
// 2. CPU while a call waits: the process's processor time (driver and emulator both) while
//    an answered call waits for keys in command state, and while a prompt plays.

#include <QCoreApplication>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "emulated_modem_line.h"
#include "support/ignoring_line_events.h"
#include "support/wave_files.h"
#include "telephony/modem/modem_stream.h"
#include "ui/qt_event_loop.h"

namespace {

using namespace corvel;
using namespace corvel::testing;
using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

double millisecondsBetween(Steady::time_point a, Steady::time_point b)
{
    return std::chrono::duration<double, std::milli>(b - a).count();
}

double cpuSeconds()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

class Listener final : public testing::IgnoringLineEvents {
public:
    explicit Listener(Line& line) : line_(line) {}
    int rings = 0;
    bool up = false;
    std::vector<Steady::time_point> stopped; // when the abort had been written
    bool restart = true;

    void ring(std::int32_t) override { ++rings; }
    void connected() override { up = true; }
    void digitReceived(char16_t) override
    {
        line_.setPlaying(false);
        stopped.push_back(Steady::now());
        if (restart) line_.startPlay(); // the next prompt, for the next key
    }

private:
    Line& line_;
};

void runFor(QtEventLoop& loop, Steady::duration length, const std::function<bool()>& until = {})
{
    auto wake = loop.createTimer([] {}, TimerKind::Repeating);
    wake->setInterval(100ms);
    wake->setEnabled(true);
    const auto end = Steady::now() + length;
    while (Steady::now() < end && !(until && until())) loop.yield();
}

void report(const char* what, std::vector<double> values, const char* unit)
{
    if (values.empty()) {
        std::printf("%-40s no samples\n", what);
        return;
    }
    std::sort(values.begin(), values.end());
    std::printf("%-40s min %7.2f  median %7.2f  95%% %7.2f  max %7.2f %s  (%zu samples)\n", what, values.front(),
                values[values.size() / 2], values[values.size() * 95 / 100], values.back(), unit, values.size());
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    QtEventLoop loop;
    const int keys = 25;

    std::string pattern = (std::filesystem::temp_directory_path() / "corvel-modem-bench-XXXXXX").string();
    const std::filesystem::path folder = ::mkdtemp(pattern.data());
    writeTone(folder / "prompt.wav", 30.0, 600);

    EmulatedModemLine line(loop);
    Listener listener(line);
    line.setListener(&listener);
    std::vector<Steady::time_point> keyWritten, abortRead;
    bool afterDle = false;
    line.modem().onEventSent = [&](char code) {
        if (code >= '0' && code <= '9') keyWritten.push_back(Steady::now());
    };
    line.modem().onHostByte = [&](std::uint8_t byte) {
        if (afterDle && byte == modem::CAN) abortRead.push_back(Steady::now());
        afterDle = !afterDle && byte == modem::DLE;
    };

    line.setLineOpen(true);
    ScriptedCall call;
    call.identity = ScriptedCall::Identity::Withheld;
    call.ringCadence = 1s;
    for (int i = 0; i < keys; ++i) call.keys.push_back({Milliseconds(1500 + 700 * i + (i * 37) % 200), '5'});
    line.placeCall(call);
    runFor(loop, 10s, [&] { return listener.rings >= 1; });
    line.answer();
    runFor(loop, 10s, [&] { return listener.up; });
    line.setDigitMonitoring(true);
    line.setPlayList((folder / "prompt.wav").string());
    line.startPlay();
    runFor(loop, std::chrono::milliseconds(1500 + 700 * keys + 1000), [&] { return listener.stopped.size() >= keys; });

    std::vector<double> toStop, toModem;
    for (std::size_t i = 0; i < keyWritten.size() && i < listener.stopped.size(); ++i)
        toStop.push_back(millisecondsBetween(keyWritten[i], listener.stopped[i]));
    for (std::size_t i = 0; i < keyWritten.size() && i < abortRead.size(); ++i)
        toModem.push_back(millisecondsBetween(keyWritten[i], abortRead[i]));
    std::printf("Key to stop of the prompt (target <= 60 ms)\n");
    report("  key written -> abort written by driver", toStop, "ms");
    report("  key written -> abort read by the modem", toModem, "ms");

    // A prompt playing: the driver feeds the modem every 20 ms.
    listener.restart = false;
    line.startPlay();
    double cpu = cpuSeconds();
    auto wall = Steady::now();
    runFor(loop, 10s);
    std::printf("CPU while a prompt plays (driver + emulator): %.2f %%\n",
                100 * (cpuSeconds() - cpu) / std::chrono::duration<double>(Steady::now() - wall).count());

    // The call waits for keys in command state: nothing should run at all.
    line.setPlaying(false);
    runFor(loop, 1s);
    cpu = cpuSeconds();
    wall = Steady::now();
    runFor(loop, 10s);
    std::printf("CPU while an answered call waits (driver + emulator): %.3f %%\n",
                100 * (cpuSeconds() - cpu) / std::chrono::duration<double>(Steady::now() - wall).count());

    line.drop();
    runFor(loop, 2s, [&] { return !line.modem().offHook(); });
    line.setListener(nullptr);
    std::filesystem::remove_all(folder);
    return 0;
}

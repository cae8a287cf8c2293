// The SIP line's figures on loopback, with SIPp as the caller: run on demand, not by ctest.
//
//   corvel_sip_bench [--idle-seconds N] [--calls N] [--rounds N]
//
// Corvel (headless, "SIP (direct)", answering on ring 1) and baresip (auto-answer, its aufile
// source, ALSA's null device) side by side, the same SIPp caller alternating between them:
// 1. INVITE -> 100 Trying and INVITE -> 200 OK, median and worst of the rounds.
// 2. Idle: wake-ups (context switches of all threads) per second and CPU, over the same seconds.
// 3. Memory: VmRSS and PSS after start, and after N calls that follow the rounds' first ones.
// 4. exec -> the first OPTIONS answered.
// Then Corvel's alone: an RFC 4733 key sent during the request prompt to the prompt's last packet.

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <regex>
#include <sstream>
#include <string>

#include "support/wave_files.h"
#include "telephony/sip/e2e/sip_call_harness.h"

using namespace corvel::e2e;
using std::chrono::duration;
using std::chrono::milliseconds;

namespace {

// Every time one of the process's threads was woken: its context switches, all threads.
long wakeUps(int pid)
{
    long total = 0;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    std::error_code error;
    for (const auto& task : std::filesystem::directory_iterator(tasks, error)) {
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.find("ctxt_switches:") != std::string::npos) total += std::stol(line.substr(line.find(':') + 1));
        }
    }
    return total;
}

// From the first INVITE in SIPp's message log to the first `status` reply after it, in ms.
double replyMilliseconds(const std::string& messages, const std::string& status)
{
    const std::regex stamp(R"(-{10,} \d{4}-\d{2}-\d{2}\s+(\d{2}):(\d{2}):(\d{2}\.\d+))");
    double invite = -1, reply = -1;
    std::istringstream lines(messages);
    double at = 0;
    bool expectHeading = false;
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_search(line, match, stamp)) {
            at = std::stod(match[1]) * 3600 + std::stod(match[2]) * 60 + std::stod(match[3]);
            expectHeading = true;
            continue;
        }
        if (!expectHeading || line.find_first_not_of(" \t") == std::string::npos) continue;
        if (line.find("INVITE sip:") != std::string::npos && invite < 0) invite = at;
        if (line.find("SIP/2.0 " + status) != std::string::npos && reply < 0 && invite >= 0) reply = at;
        if (line.find("UDP message") == std::string::npos) expectHeading = false;
    }
    return invite >= 0 && reply >= 0 ? (reply - invite) * 1000 : -1;
}

// From `start` (which starts the peer) to the first answer to an OPTIONS sent to `port`, asked
// again every 2 ms; -1 when none came within ten seconds.
double optionsAnsweredAfter(int port, const std::function<void()>& start)
{
    const int probe = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in peer{AF_INET, htons(static_cast<std::uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
    sockaddr_in own{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    ::bind(probe, reinterpret_cast<sockaddr*>(&own), sizeof own);
    socklen_t length = sizeof own;
    ::getsockname(probe, reinterpret_cast<sockaddr*>(&own), &length);
    const timeval wait{0, 2000};
    ::setsockopt(probe, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    const auto began = Clock::now();
    start();
    double answered = -1;
    for (int attempt = 1; answered < 0 && Clock::now() - began < std::chrono::seconds(10); ++attempt) {
        const std::string n = std::to_string(attempt), target = "sip:probe@127.0.0.1:" + std::to_string(port);
        const std::string request = "OPTIONS " + target + " SIP/2.0\r\nVia: SIP/2.0/UDP 127.0.0.1:" +
                                    std::to_string(ntohs(own.sin_port)) + ";branch=z9hG4bK-probe-" + n +
                                    "\r\nFrom: <sip:bench@127.0.0.1>;tag=" + n + "\r\nTo: <" + target +
                                    ">\r\nCall-ID: probe-" + n + "@127.0.0.1\r\nCSeq: 1 OPTIONS\r\n"
                                    "Max-Forwards: 70\r\nContent-Length: 0\r\n\r\n";
        ::sendto(probe, request.data(), request.size(), 0, reinterpret_cast<sockaddr*>(&peer), sizeof peer);
        char reply[2048];
        if (::recv(probe, reply, sizeof reply, 0) > 0) answered = duration<double, std::milli>(Clock::now() - began).count();
    }
    ::close(probe);
    return answered;
}

// baresip as the comparison: auto-answer, a file as its microphone, ALSA's null device as its
// speaker, on `port`.
std::unique_ptr<Process> startBaresip(const std::filesystem::path& home, int port)
{
    std::filesystem::create_directories(home);
    corvel::testing::writeTone(home / "speech.wav", 4.0);
    std::ofstream(home / "config") << "poll_method epoll\nsip_listen 127.0.0.1:" << port << "\nsip_transports udp\n"
                                   << "audio_player alsa,null\naudio_alert alsa,null\n"
                                   << "audio_source aufile," << (home / "speech.wav").string() << "\n"
                                   << "module_path /usr/lib/baresip/modules\nmodule g711.so\nmodule aufile.so\n"
                                   << "module alsa.so\nmodule_app account.so\n";
    // The callers ask for "corvel", and baresip takes only calls to a user it has.
    std::ofstream(home / "accounts") << "<sip:corvel@127.0.0.1>;regint=0;answermode=auto\n";
    const auto program = findProgram("baresip");
    return std::make_unique<Process>(std::vector<std::string>{program->string(), "-4", "-f", home.string()},
                                     std::map<std::string, std::string>{{"HOME", home.string()}}, home / "baresip.out", home);
}

struct Figures {
    std::vector<double> trying, answer;
    double wakeUpsPerSecond = 0, cpuPercent = 0;
    long rssAfterStart = 0, pssAfterStart = 0, rssBeforeCalls = 0, rssAfterCalls = 0, pssAfterCalls = 0;
    double optionsAfterExec = -1;
};

double median(std::vector<double> values)
{
    if (values.empty()) return -1;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double worst(const std::vector<double>& values) { return values.empty() ? -1 : *std::max_element(values.begin(), values.end()); }

void printRow(const char* figure, double corvel, double baresip, const char* unit)
{
    std::printf("%-34s %10.2f %10.2f %8.2f  %s\n", figure, corvel, baresip, baresip > 0 ? corvel / baresip : 0.0, unit);
}

void prepare(Corvel& corvel)
{
    corvel.set("data", "rings", "1");
    corvel.set("data", "allcalls", "True");
    corvel.set("data", "ansall", "True");
    corvel.set("sip", "ringinterval", "300");
}

// Calls from SIPp to `port`, one after the other, each hung up by the caller once answered.
SippResult callsTo(Sipp& caller, int port, int count)
{
    caller.via(port);
    caller.fill("from", "<sip:0123@127.0.0.1>");
    caller.fill("steps", stepsXml({pause(milliseconds(200))}));
    caller.fill("caller_hangs_up", "1");
    caller.fill("bye_within", "0");
    caller.options({"-m", std::to_string(count), "-l", "1", "-r", "2"});
    return caller.run("answered_call.xml", std::chrono::seconds(10 + 4 * count));
}

// An RFC 4733 key sent during the request prompt to the prompt's last packet, in ms.
double keyToSilence()
{
    Corvel corvel;
    prepare(corvel);
    if (!corvel.start()) return -1;
    RtpSink ear;
    Sipp caller(corvel);
    caller.fill("from", "<sip:0123@127.0.0.1>");
    caller.fill("rtp_port", std::to_string(ear.port()));
    caller.fill("steps", stepsXml({pause(milliseconds(6000))}));
    caller.fill("caller_hangs_up", "1");
    caller.fill("bye_within", "0");
    caller.start("answered_call.xml", std::chrono::seconds(30));
    eventually([&] { return ear.packets() > 50; }, std::chrono::seconds(10));
    // The greeting is heard whole; the key goes into the request that follows it.
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const std::regex media(R"(m=audio (\d+) )");
    int corvelMedia = -1;
    eventually([&] {
        const std::string m = caller.messages();
        for (auto it = std::sregex_iterator(m.begin(), m.end(), media); it != std::sregex_iterator(); ++it) {
            if (std::stoi((*it)[1]) != ear.port()) corvelMedia = std::stoi((*it)[1]);
        }
        return corvelMedia > 0;
    }, std::chrono::seconds(2));
    const auto keyAt = Clock::now();
    ear.sendKey(corvelMedia, '5');
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    caller.finish();
    return duration<double, std::milli>(ear.lastAudio() - keyAt).count();
}

} // namespace

int main(int argc, char* argv[])
{
    int idleSeconds = 60, calls = 100, rounds = 9;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--idle-seconds") idleSeconds = std::atoi(argv[i + 1]);
        else if (option == "--calls") calls = std::atoi(argv[i + 1]);
        else if (option == "--rounds") rounds = std::atoi(argv[i + 1]);
    }
    if (!findProgram("sipp") || !findProgram("baresip")) {
        std::cerr << "SIPp and baresip are needed (Debian packages sip-tester and baresip-core)\n";
        return 1;
    }
    Figures corvelFigures, baresipFigures;

    // 4 first, on fresh processes: exec -> OPTIONS answered.
    {
        Corvel fresh;
        const int port = freePort();
        std::unique_ptr<Process> process;
        corvelFigures.optionsAfterExec = optionsAnsweredAfter(port, [&] {
            process = std::make_unique<Process>(
                std::vector<std::string>{CORVEL_BINARY, "--headless", "--line", "sip", "--sip-listen",
                                         "127.0.0.1:" + std::to_string(port), "--config-dir", (fresh.root() / "config").string(),
                                         "--data-dir", fresh.data().string()},
                fresh.environment(), fresh.root() / "corvel.log", fresh.root());
        });
        const int baresipPort = freePort();
        std::unique_ptr<Process> baresip;
        baresipFigures.optionsAfterExec =
            optionsAnsweredAfter(baresipPort, [&] { baresip = startBaresip(fresh.root() / "baresip-exec", baresipPort); });
    }

    Corvel corvel;
    prepare(corvel);
    if (!corvel.start()) {
        std::cerr << "Corvel did not start:\n" << corvel.log();
        return 1;
    }
    const int baresipPort = freePort();
    const auto baresip = startBaresip(corvel.root() / "baresip", baresipPort);
    std::this_thread::sleep_for(std::chrono::seconds(3));
    const int corvelPid = corvel.pid(), baresipPid = baresip->pid();
    corvelFigures.rssAfterStart = kilobytes(corvelPid, "status", "VmRSS:");
    corvelFigures.pssAfterStart = kilobytes(corvelPid, "smaps_rollup", "Pss:");
    baresipFigures.rssAfterStart = kilobytes(baresipPid, "status", "VmRSS:");
    baresipFigures.pssAfterStart = kilobytes(baresipPid, "smaps_rollup", "Pss:");

    // 2: both idle over the same seconds.
    const long corvelTicks = cpuTicks(corvelPid), baresipTicks = cpuTicks(baresipPid);
    const long corvelWakes = wakeUps(corvelPid), baresipWakes = wakeUps(baresipPid);
    std::this_thread::sleep_for(std::chrono::seconds(idleSeconds));
    const auto perSecond = [&](long count) { return static_cast<double>(count) / idleSeconds; };
    const auto cpu = [&](long ticks) { return 100.0 * static_cast<double>(ticks) / static_cast<double>(::sysconf(_SC_CLK_TCK)) / idleSeconds; };
    corvelFigures.wakeUpsPerSecond = perSecond(wakeUps(corvelPid) - corvelWakes);
    baresipFigures.wakeUpsPerSecond = perSecond(wakeUps(baresipPid) - baresipWakes);
    corvelFigures.cpuPercent = cpu(cpuTicks(corvelPid) - corvelTicks);
    baresipFigures.cpuPercent = cpu(cpuTicks(baresipPid) - baresipTicks);

    // 1: alternating, each peer first in every other round.
    for (int round = 0; round < rounds; ++round) {
        for (int turn = 0; turn < 2; ++turn) {
            const bool corvelsTurn = (round + turn) % 2 == 0;
            Figures& figures = corvelsTurn ? corvelFigures : baresipFigures;
            Sipp caller(corvel);
            callsTo(caller, corvelsTurn ? corvel.port() : baresipPort, 1);
            const std::string messages = caller.messages();
            figures.trying.push_back(replyMilliseconds(messages, "100"));
            figures.answer.push_back(replyMilliseconds(messages, "200"));
            // Corvel keeps its line closed for a second after each call, as a telephone line's
            // answer phone does; a call meanwhile would wait for it.
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        }
    }

    // 3: after the calls, measured from the end of the rounds: a first call maps the media stack.
    corvelFigures.rssBeforeCalls = kilobytes(corvelPid, "status", "VmRSS:");
    baresipFigures.rssBeforeCalls = kilobytes(baresipPid, "status", "VmRSS:");
    Sipp corvelCaller(corvel), baresipCaller(corvel);
    const bool corvelCalls = callsTo(corvelCaller, corvel.port(), calls).exitCode == 0;
    const bool baresipCalls = callsTo(baresipCaller, baresipPort, calls).exitCode == 0;
    // A SIP stack keeps an ended call's transactions for 32 s (64 x T1): memory is measured after.
    std::this_thread::sleep_for(std::chrono::seconds(34));
    corvelFigures.rssAfterCalls = kilobytes(corvelPid, "status", "VmRSS:");
    corvelFigures.pssAfterCalls = kilobytes(corvelPid, "smaps_rollup", "Pss:");
    baresipFigures.rssAfterCalls = kilobytes(baresipPid, "status", "VmRSS:");
    baresipFigures.pssAfterCalls = kilobytes(baresipPid, "smaps_rollup", "Pss:");

    std::printf("%-34s %10s %10s %8s\n", "", "Corvel", "baresip", "ratio");
    printRow("INVITE -> 100 Trying, median", median(corvelFigures.trying), median(baresipFigures.trying), "ms (-1: none sent)");
    printRow("INVITE -> 100 Trying, worst", worst(corvelFigures.trying), worst(baresipFigures.trying), "ms");
    printRow("INVITE -> 200 OK, median", median(corvelFigures.answer), median(baresipFigures.answer), "ms");
    printRow("INVITE -> 200 OK, worst", worst(corvelFigures.answer), worst(baresipFigures.answer), "ms");
    printRow("idle wake-ups", corvelFigures.wakeUpsPerSecond, baresipFigures.wakeUpsPerSecond, "per second");
    printRow("idle CPU", corvelFigures.cpuPercent, baresipFigures.cpuPercent, "% of a core");
    printRow("VmRSS after start", corvelFigures.rssAfterStart / 1024.0, baresipFigures.rssAfterStart / 1024.0, "MB");
    printRow("PSS after start", corvelFigures.pssAfterStart / 1024.0, baresipFigures.pssAfterStart / 1024.0, "MB");
    printRow("VmRSS growth over the calls", (corvelFigures.rssAfterCalls - corvelFigures.rssBeforeCalls) / 1024.0,
             (baresipFigures.rssAfterCalls - baresipFigures.rssBeforeCalls) / 1024.0, "MB");
    printRow("PSS after the calls", corvelFigures.pssAfterCalls / 1024.0, baresipFigures.pssAfterCalls / 1024.0, "MB");
    printRow("exec -> OPTIONS answered", corvelFigures.optionsAfterExec, baresipFigures.optionsAfterExec, "ms");
    std::printf("(%d rounds of one call each, %d idle seconds, %d calls: Corvel %s, baresip %s)\n", rounds, idleSeconds,
                calls, corvelCalls ? "took them all" : "failed some", baresipCalls ? "took them all" : "failed some");
    std::printf("Corvel: RFC 4733 key -> prompt silent  %.1f ms\n", keyToSilence());
    return 0;
}

// The SIP line's figures on loopback, with SIPp as the caller: run on demand, not by ctest.
//
//   corvel_sip_bench [--idle-seconds N] [--calls N]
//
// 1. Answer time: from the INVITE (the deciding ring, as Corvel answers on ring 1 here) to the
//    200 OK, as SIPp sees it.
// 2. Key to silence: from an RFC 4733 key sent during the request prompt to the last packet of
//    the prompt's sound.
// 3. Idle CPU of a headless Corvel with the SIP line open (target: at most 0.2 % of a core).
// 4. Memory: the resident size after the first call and after the last of N calls.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <regex>
#include <sstream>
#include <string>

#include "telephony/sip/e2e/sip_call_harness.h"

using namespace corvel::e2e;
using std::chrono::duration;
using std::chrono::milliseconds;

namespace {

// User and system time of a process, in clock ticks.
long cpuTicks(int pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::stringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    long utime = 0, stime = 0;
    for (int i = 3; fields >> field; ++i) {
        if (i == 14) utime = std::stol(field);
        if (i == 15) {
            stime = std::stol(field);
            break;
        }
    }
    return utime + stime;
}

long residentKb(int pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    }
    return 0;
}

// From the first INVITE in SIPp's message log to the first 200 after it, in milliseconds.
double answerMilliseconds(const std::string& messages)
{
    const std::regex stamp(R"(-{10,} \d{4}-\d{2}-\d{2}\s+(\d{2}):(\d{2}):(\d{2}\.\d+))");
    double invite = -1, ok = -1;
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
        if (line.find("SIP/2.0 200") != std::string::npos && ok < 0 && invite >= 0) ok = at;
        if (line.find("UDP message") == std::string::npos) expectHeading = false;
    }
    return invite >= 0 && ok >= 0 ? (ok - invite) * 1000 : -1;
}

void prepare(Corvel& corvel)
{
    corvel.set("data", "rings", "1");
    corvel.set("data", "allcalls", "True");
    corvel.set("data", "ansall", "True");
    corvel.set("sip", "ringinterval", "300");
}

} // namespace

int main(int argc, char* argv[])
{
    int idleSeconds = 60;
    int calls = 100;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--idle-seconds") idleSeconds = std::atoi(argv[i + 1]);
        else if (option == "--calls") calls = std::atoi(argv[i + 1]);
    }
    if (!findProgram("sipp")) {
        std::cerr << "SIPp is not installed (Debian package sip-tester)\n";
        return 1;
    }

    // 1 and 2: one call, five times over.
    std::vector<double> answers, silences;
    for (int round = 0; round < 5; ++round) {
        Corvel corvel;
        prepare(corvel);
        if (!corvel.start()) {
            std::cerr << "Corvel did not start:\n" << corvel.log();
            return 1;
        }
        RtpSink ear;
        Sipp caller(corvel);
        caller.fill("from", "<sip:0123@127.0.0.1>");
        caller.fill("rtp_port", std::to_string(ear.port()));
        caller.fill("steps", stepsXml({pause(milliseconds(6000))}));
        caller.fill("caller_hangs_up", "1");
        caller.fill("bye_within", "0");
        caller.start("answered_call.xml", std::chrono::seconds(30));
        // Once the request prompt is sounding, a key from the caller's media port.
        eventually([&] { return ear.packets() > 50; }, std::chrono::seconds(10));
        const std::regex media(R"(m=audio (\d+) )");
        std::smatch match;
        eventually([&] {
            const std::string m = caller.messages();
            return std::regex_search(m, match, media) && std::stoi(match[1]) != ear.port();
        }, std::chrono::seconds(2));
        const std::string m = caller.messages();
        int corvelMedia = -1;
        for (auto it = std::sregex_iterator(m.begin(), m.end(), media); it != std::sregex_iterator(); ++it) {
            if (std::stoi((*it)[1]) != ear.port()) corvelMedia = std::stoi((*it)[1]);
        }
        const auto keyAt = Clock::now();
        ear.sendKey(corvelMedia, '5');
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        silences.push_back(duration<double, std::milli>(ear.lastAudio() - keyAt).count());
        caller.finish();
        answers.push_back(answerMilliseconds(caller.messages()));
    }
    std::sort(answers.begin(), answers.end());
    std::sort(silences.begin(), silences.end());
    std::printf("answer: INVITE to 200 OK, ms    median %7.1f  worst %7.1f  (%zu calls)\n", answers[answers.size() / 2],
                answers.back(), answers.size());
    std::printf("key to silence, ms               median %7.1f  worst %7.1f\n", silences[silences.size() / 2],
                silences.back());

    // 3 and 4: one Corvel, idle and then through many calls.
    Corvel corvel;
    prepare(corvel);
    if (!corvel.start()) return 1;
    const int pid = corvel.pid();
    std::this_thread::sleep_for(std::chrono::seconds(3));
    const long ticksBefore = cpuTicks(pid);
    std::this_thread::sleep_for(std::chrono::seconds(idleSeconds));
    const long ticks = cpuTicks(pid) - ticksBefore;
    std::printf("idle CPU over %d s                %.3f %% of a core (target <= 0.2 %%)\n", idleSeconds,
                100.0 * static_cast<double>(ticks) / static_cast<double>(::sysconf(_SC_CLK_TCK)) / idleSeconds);

    const auto call = [&](int count) {
        Sipp caller(corvel);
        caller.fill("from", "<sip:0456@127.0.0.1>");
        caller.fill("steps", stepsXml({pause(milliseconds(500))}));
        caller.fill("caller_hangs_up", "1");
        caller.fill("bye_within", "0");
        caller.options({"-m", std::to_string(count), "-l", "1", "-r", "1"});
        return caller.run("answered_call.xml", std::chrono::seconds(10 + 4 * count));
    };
    call(1);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const long afterOne = residentKb(pid);
    const SippResult many = call(calls - 1);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const long afterAll = residentKb(pid);
    std::printf("resident memory after 1 call     %ld kB\n", afterOne);
    std::printf("resident memory after %d calls  %ld kB  (%+ld kB; SIPp %s)\n", calls, afterAll, afterAll - afterOne,
                many.exitCode == 0 ? "saw every call through" : "reported failed calls");
    return 0;
}

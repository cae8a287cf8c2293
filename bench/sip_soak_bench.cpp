// A long soak of one headless Corvel on its SIP line: run on demand, not by ctest.
//
//   corvel_sip_soak [--calls 1000] [--seed N]
//
// SIPp places calls of every kind a caller makes (messages left, keys, "*", hang-ups at every
// stage, CANCEL, a second INVITE, SIP INFO keys, silence until Corvel hangs up) in random
// order; after each the call log, the message and the files left behind are checked. Prints a
// line a call, then the figures.

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "telephony/sip/e2e/sip_soak.h"

using namespace corvel::e2e;

int main(int argc, char* argv[])
{
    int calls = 1000;
    unsigned seed = std::random_device{}();
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--calls") calls = std::atoi(argv[i + 1]);
        else if (option == "--seed") seed = static_cast<unsigned>(std::strtoul(argv[i + 1], nullptr, 10));
    }
    if (!findProgram("sipp")) {
        std::fprintf(stderr, "SIPp is not installed (Debian package sip-tester)\n");
        return 1;
    }
    Corvel corvel;
    prepareForSoak(corvel);
    if (!corvel.start()) {
        std::fprintf(stderr, "Corvel did not start:\n%s", corvel.log().c_str());
        return 1;
    }
    std::printf("seed %u\n", seed);
    const SoakReport report = soak(corvel, calls, seed, [](int call, const std::string& kind) {
        std::printf("%5d %s\n", call, kind.c_str());
        std::fflush(stdout);
    });
    for (const std::string& failure : report.failures) std::printf("FAILED %s\n", failure.c_str());
    std::printf("\ncalls                        %d of %d\n", report.calls, calls);
    for (const auto& [kind, count] : report.kinds) std::printf("  %-44s %d\n", kind.c_str(), count);
    std::printf("crashes                      %d\n", report.corvelAlive ? 0 : 1);
    std::printf("lost or truncated messages   %d\n", report.lostMessages);
    std::printf("files left behind            %d\n", report.strayFiles);
    std::printf("calls.txt lines missing      %d\n", report.callLogMisses);
    std::printf("calls SIPp saw go wrong      %d\n", report.callerFailures);
    std::printf("open descriptors             %ld after the first call, %ld at the end, %ld at most\n",
                report.descriptorsAfterFirst, report.descriptorsAtEnd, report.descriptorsMost);
    std::printf("VmRSS growth after call 50   %+ld kB (%ld kB at the end)\n",
                report.residentKbAfter50 > 0 ? report.residentKbAtEnd - report.residentKbAfter50 : 0L,
                report.residentKbAtEnd);
    std::printf("CPU per call                 %.1f ms\n", report.cpuMillisecondsPerCall);
    return report.failures.empty() && report.corvelAlive ? 0 : 1;
}

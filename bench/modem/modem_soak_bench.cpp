// A long soak of the answer phone over the modem driver and the modem emulator, on the virtual
// clock: run on demand, not by ctest.
//
//   corvel_modem_soak [--calls 300] [--seed N]

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "base/log.h"
#include "modem_soak.h"

int main(int argc, char* argv[])
{
    int calls = 300;
    unsigned seed = std::random_device{}();
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--calls") calls = std::atoi(argv[i + 1]);
        else if (option == "--seed") seed = static_cast<unsigned>(std::strtoul(argv[i + 1], nullptr, 10));
    }
    std::printf("seed %u\n", seed);
    // The calls' everyday log lines would bury the figures; warnings and errors still show.
    corvel::log::setSink([](corvel::log::Level level, std::string_view line) {
        if (level >= corvel::log::Level::Warning) std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
    });
    const auto report = corvel::testing::modemSoak(calls, seed, [](int call, const std::string& kind) {
        std::printf("%5d %s\n", call, kind.c_str());
        std::fflush(stdout);
    });
    for (const std::string& failure : report.failures) std::printf("FAILED %s\n", failure.c_str());
    std::printf("\ncalls                        %d of %d\n", report.calls, calls);
    for (const auto& [kind, count] : report.kinds) std::printf("  %-44s %d\n", kind.c_str(), count);
    std::printf("crashes                      0\n"); // a crash ends this program before it gets here
    std::printf("lost or truncated messages   %d\n", report.lostMessages);
    std::printf("files left behind            %d\n", report.strayFiles);
    std::printf("calls.txt lines missing      %d\n", report.callLogMisses);
    std::printf("line not back at rest        %d\n", report.notAtRest);
    std::printf("open descriptors             %ld after the first call, %ld at the end, %ld at most\n",
                report.descriptorsAfterFirst, report.descriptorsAtEnd, report.descriptorsMost);
    return report.failures.empty() ? 0 : 1;
}

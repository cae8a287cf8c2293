// Kills a busy headless Corvel with SIGKILL again and again: run on demand, not by ctest.
//
//   corvel_crash_soak [--kills 1000] [--seed N]
//
// Each round starts Corvel on the same folders, checks what the last kill left against what
// Corvel had acknowledged, sends a burst of writes (options, directory entries, caller
// pictures, a message recorded over the test line, new messages filed as old) and kills it at
// a random moment within it. Prints a line a kill, then the figures.

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "ui/desktop/crash_soak.h"

using namespace corvel::e2e;

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    int kills = 1000;
    unsigned seed = std::random_device{}();
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--kills") kills = std::atoi(argv[i + 1]);
        else if (option == "--seed") seed = static_cast<unsigned>(std::strtoul(argv[i + 1], nullptr, 10));
    }
    std::printf("seed %u\n", seed);
    const CrashReport report = crashSoak(kills, seed, [](int kill, const std::string& line) {
        std::printf("%5d %s\n", kill, line.c_str());
        std::fflush(stdout);
    });
    for (const std::string& failure : report.failures) std::printf("FAILED %s\n", failure.c_str());
    std::printf("\nkills                        %d of %d\n", report.kills, kills);
    std::printf("changes lost                 %d\n", report.lost);
    std::printf("lines doubled                %d\n", report.doubled);
    std::printf("torn files                   %d\n", report.tornFiles);
    std::printf("messages lost                %d\n", report.messagesLost);
    std::printf("messages doubled             %d\n", report.messagesDoubled);
    std::printf("messages miscounted          %d\n", report.messagesMiscounted);
    std::printf("messages that do not open    %d\n", report.brokenMessages);
    std::printf("scratch files left           %d\n", report.scratchLeft);
    std::printf("failed starts                %d\n", report.failedStarts);
    return report.faults() == 0 && report.kills == kills ? 0 : 1;
}

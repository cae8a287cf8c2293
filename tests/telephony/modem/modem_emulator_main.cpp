// The modem emulator as a program of its own, in real time, for clients in other processes
// (vgetty, a person with a terminal program): it prints its port and plays one scripted caller.
//
//   corvel_modem_emulator [--persona conexant|agere] [--uk] [--caller withheld|unavailable|NUMBER]
//                         [--ring-every MS] [--call-after MS] [--keys MS:K,...] [--speech FILE]
//                         [--hang-up-after MS] [--port-file FILE] [--transcript FILE] [--run-for MS]

#include <QCoreApplication>
#include <QTimer>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

#include "modem_emulator.h"
#include "ui/qt_event_loop.h"

namespace {

using namespace corvel;
using namespace std::chrono_literals;

volatile std::sig_atomic_t stopRequested = 0;

[[noreturn]] void usage(const std::string& problem)
{
    std::cerr << "corvel_modem_emulator: " << problem << "\n";
    std::exit(2);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    testing::ModemEmulator::Options options;
    ScriptedCall call;
    call.identity = ScriptedCall::Identity::Withheld;
    Milliseconds callAfter{1000};
    Milliseconds runFor{0};
    std::string portFile, transcriptFile;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const auto value = [&]() -> std::string {
            if (i + 1 >= argc) usage(option + " needs a value");
            return argv[++i];
        };
        const auto millis = [&] { return Milliseconds(std::stol(value())); };
        if (option == "--persona") {
            const std::string persona = value();
            options.persona = persona == "agere" ? testing::ModemEmulator::Persona::Agere : testing::ModemEmulator::Persona::Conexant;
        } else if (option == "--uk") {
            options.region = testing::ModemEmulator::Region::UnitedKingdom;
        } else if (option == "--caller") {
            const std::string who = value();
            if (who == "withheld") call.identity = ScriptedCall::Identity::Withheld;
            else if (who == "unavailable") call.identity = ScriptedCall::Identity::Unavailable;
            else if (who == "none") call.identity = ScriptedCall::Identity::None;
            else {
                call.identity = ScriptedCall::Identity::Number;
                call.number = who;
            }
        } else if (option == "--ring-every") {
            call.ringCadence = millis();
        } else if (option == "--call-after") {
            callAfter = millis();
        } else if (option == "--keys") {
            std::string list = value();
            for (std::size_t at = 0; at < list.size();) {
                const auto comma = std::min(list.find(',', at), list.size());
                const std::string item = list.substr(at, comma - at);
                const auto colon = item.find(':');
                if (colon == std::string::npos || colon + 1 >= item.size()) usage("a key is MS:KEY");
                call.keys.push_back({Milliseconds(std::stol(item.substr(0, colon))), item[colon + 1]});
                at = comma + 1;
            }
        } else if (option == "--speech") {
            call.speech = value();
        } else if (option == "--hang-up-after") {
            call.hangUpAt = millis();
        } else if (option == "--port-file") {
            portFile = value();
        } else if (option == "--transcript") {
            transcriptFile = value();
        } else if (option == "--run-for") {
            runFor = millis();
        } else {
            usage("unknown option " + option);
        }
    }

    QtEventLoop loop;
    testing::ModemEmulator emulator(loop, options);
    std::cout << emulator.port() << std::endl;
    if (!portFile.empty()) std::ofstream(portFile) << emulator.port() << "\n";

    const auto finish = [&] {
        if (!transcriptFile.empty()) std::ofstream(transcriptFile) << emulator.transcriptText();
        application.quit();
    };
    std::signal(SIGTERM, [](int) { stopRequested = 1; });
    std::signal(SIGINT, [](int) { stopRequested = 1; });
    QTimer watchdog;
    QObject::connect(&watchdog, &QTimer::timeout, [&] {
        if (stopRequested) finish();
    });
    watchdog.start(100);
    QTimer::singleShot(callAfter, [&] { emulator.placeCall(call); });
    if (runFor > Milliseconds{0}) QTimer::singleShot(runFor, finish);
    application.exec();
    return 0;
}

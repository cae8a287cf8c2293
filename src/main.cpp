// Corvel: an answer phone for the Linux desktop.

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include <QApplication>
#include <QCommandLineParser>
#include <QStandardPaths>

#include "app/answer_phone.h"
#include "app/headless_view.h"
#include "base/ini_settings_store.h"
#include "base/log.h"
#include "character/acs/character_info.h"
#include "character/character_loading.h"
#include "character/logging_agent.h"
#include "telephony/line_switch.h"
#include "telephony/modem/modem_line.h"
#include "telephony/sip/sip_line.h"
#include "telephony/testline/test_line.h"
#include "ui/agent/qt_agent.h"
#include "ui/desktop/bus_service.h"
#include "ui/desktop/desktop_notifications.h"
#include "ui/desktop/test_line_bus.h"
#include "ui/main_window.h"
#include "ui/qt_event_loop.h"
#include "ui/qt_http.h"
#include "ui/qt_locale_texts.h"
#include "ui/qt_microphone.h"
#include "ui/qt_shell.h"
#include "ui/qt_sound_output.h"
#include "ui/single_instance.h"
#include "ui/splash_window.h"
#include "ui/termination_signals.h"
#include "ui/test_line_panel.h"

namespace {

using namespace corvel;

// A request for the Corvel that is running: a method of its bus interface with its arguments,
// and for those a Corvel without a session bus takes as well, the word its local socket knows.
struct Request {
    QString method;
    QVariantList arguments;
    std::string socketWord; // empty: over the bus only
};

struct CommandLine {
    bool headless = false;
    std::string configDir;
    std::string dataDir;
    std::string line;
    std::string webSite;
    std::optional<std::string> sipListen;
    std::string acsInfo;
    std::optional<Request> request;
};

// Read before the windowing system is touched, so that --help and --version work anywhere.
CommandLine readCommandLine(int argc, char* argv[])
{
    QCommandLineParser options;
    options.setApplicationDescription("Corvel, the intelligent answer phone");
    const QCommandLineOption help = options.addHelpOption();
    const QCommandLineOption version = options.addVersionOption();
    const QCommandLineOption headless("headless", "Run without windows: boxes and speech go to the log.");
    const QCommandLineOption configDir("config-dir", "Keep the settings in DIR.", "DIR");
    const QCommandLineOption dataDir("data-dir", "Keep the call log, directory, pictures and messages in DIR.", "DIR");
    const QCommandLineOption line("line", "Use the line NAME, as if chosen from the list: test, modem:PORT, sip or a name as listed.",
                                  "NAME");
    const QCommandLineOption webSite("web-site", "Look for updates and Corvel's page at URL.", "URL");
    const QCommandLineOption sipListen("sip-listen", "Take SIP calls on ADDR:PORT rather than the setting.", "ADDR:PORT");
    const QCommandLineOption acsInfo("acs-info", "Describe the character file FILE and end.", "FILE");
    const QCommandLineOption pickUp("pick-up", "Take the caller waiting in the running Corvel, as a click on its pick-up window does.");
    const QCommandLineOption hangUp("hang-up", "End the running Corvel's call: the one on the computer's microphone and speaker, else the answered call.");
    const QCommandLineOption block("block", "Add NUMBER, or a prefix ending in *, to the running Corvel's block list.", "NUMBER");
    const QCommandLineOption unblock("unblock", "Take NUMBER off the running Corvel's block list.", "NUMBER");
    const QCommandLineOption blockLast("block-last-caller", "Block the newest caller with a number in the call log.");
    options.addOptions({headless, configDir, dataDir, line, webSite, sipListen, acsInfo, pickUp, hangUp, block, unblock, blockLast});
    QStringList arguments;
    for (int i = 0; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);
    if (!options.parse(arguments)) {
        log::error(options.errorText().toStdString());
        std::exit(2);
    }
    if (options.isSet(help)) {
        // Qt names the program "<executable_name>" before the application exists, and its path
        // otherwise; it is "corvel" however it was started.
        const QString text = options.helpText();
        std::cout << "Usage: corvel [options]" << text.mid(text.indexOf('\n')).toStdString();
        std::exit(0);
    }
    if (options.isSet(version)) options.showVersion();
    return {options.isSet(headless), options.value(configDir).toStdString(), options.value(dataDir).toStdString(),
            options.value(line).toStdString(), options.value(webSite).toStdString(),
            options.isSet(sipListen) ? std::optional(options.value(sipListen).toStdString()) : std::nullopt,
            options.value(acsInfo).toStdString(),
            options.isSet(pickUp)      ? std::optional<Request>({"PickUp", {}, "pick-up"})
            : options.isSet(hangUp)    ? std::optional<Request>({"HangUp", {}, "hang-up"})
            : options.isSet(block)     ? std::optional<Request>({"Block", {options.value(block), QString()}, ""})
            : options.isSet(unblock)   ? std::optional<Request>({"Unblock", {options.value(unblock)}, ""})
            : options.isSet(blockLast) ? std::optional<Request>({"BlockLastCaller", {}, ""})
                                       : std::nullopt};
}

// Passes the command line's request to the Corvel that is running, without starting another:
// over the session bus, or the local socket of a Corvel that has none.
int tellRunning(const Request& request, int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    if (const auto done = BusService::ask(request.method, request.arguments)) {
        if (!*done) log::error("Corvel could not do that");
        return *done ? 0 : 1;
    }
    if (request.socketWord.empty() || !SingleInstance().tell(QString::fromStdString(request.socketWord))) {
        log::error(request.socketWord.empty() ? "no Corvel runs on the session bus" : "Corvel is not running");
        return 1;
    }
    return 0;
}

constexpr std::string_view modemPrefix = "modem:";

// The device the --line option names, among those the line offers: "test", "modem:" and the port
// of a voice modem, "sip" for the direct SIP line, or a device's name as listed.
std::optional<int> lineNamed(const std::string& name, const Line& line)
{
    const auto devices = line.devices();
    for (std::size_t i = 0; i < devices.size(); ++i) {
        const bool test = name == "test" && devices[i].name == TestLine::name;
        const bool modem = name.starts_with(modemPrefix) &&
                           devices[i].name.find(name.substr(modemPrefix.size())) != std::string::npos;
        const bool sip = name == "sip" && devices[i].name == SipLine::directName;
        if (test || modem || sip || name == devices[i].name) return static_cast<int>(i);
    }
    return std::nullopt;
}

// Whether the line that start-up is to open (the --line option's, else the one chosen before)
// is listed already, before the search for voice modems has ended.
bool lineToOpenListed(const std::string& named, const SettingsStore& settings, const Line& line)
{
    if (!named.empty()) return lineNamed(named, line).has_value();
    const std::string stored = settings::readData(settings, "modemname", "");
    const auto devices = line.devices();
    return std::ranges::any_of(devices, [&](const LineDevice& device) { return device.name == stored; });
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication::setApplicationName("corvel");
    QApplication::setApplicationVersion(CORVEL_VERSION);
    QGuiApplication::setDesktopFileName("org.corvel.Corvel");
    const CommandLine command = readCommandLine(argc, argv);
    if (!command.acsInfo.empty()) return acs::printCharacterInfo(command.acsInfo, std::cout, std::cerr);
    if (command.request) return tellRunning(*command.request, argc, argv);
    // Without windows there is no display to need either.
    if (command.headless && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");

    QApplication application(argc, argv);
    SingleInstance instance;
    IniSettingsStore settings(IniSettingsStore::defaultPath(command.configDir));
    const DataFolder folder(DataFolder::defaultRoot(command.dataDir));
    folder.installShipped((QCoreApplication::applicationDirPath() + "/../share/corvel").toStdString());

    QtEventLoop loop;
    QtSoundOutput speaker;
    QtLocaleTexts locale;
    QtShell shell;
    QtHttp http;
    const char* path = std::getenv("PATH");
    Autostart autostart(Autostart::defaultEntry(),
                        Autostart::program(QCoreApplication::applicationFilePath().toStdString(), path ? path : "",
                                           CORVEL_INSTALL_BINDIR));
    TestLine testLine(loop);
    modem::ModemOptions modemOptions;
    // The caller-ID country for the modem (AT+GCI): "B4" for the UK, "B5" for North America.
    modemOptions.country = settings::readData(settings, "modemcountry", "");
    if (command.line.starts_with(modemPrefix)) modemOptions.ports = {command.line.substr(modemPrefix.size())};
    modem::ModemLine modemLine(loop, modemOptions);
    // The SIP stack keeps its own files and the converted prompts with Corvel's cache.
    SipLine sipLine(loop, settings,
                    {std::filesystem::path(QStandardPaths::writableLocation(QStandardPaths::CacheLocation).toStdString()) / "sip",
                     command.sipListen});
    // The lines known at once come first and the voice modems the search finds after them, so
    // that no line moves in the list when the search ends.
    LineSwitch line({&testLine, &sipLine, &modemLine});
    // On the desktop the character is drawn and speaks; without windows it speaks into the log.
    LoggingAgent loggingAgent(loop);
    std::unique_ptr<QtAgent> desktopAgent;
    if (!command.headless) {
        QtAgent::Options agentOptions;
        agentOptions.characterFolders = characterFolders(folder.root(), std::getenv("XDG_DATA_DIRS"));
        desktopAgent = std::make_unique<QtAgent>(std::move(agentOptions));
    }
    Agent& agent = desktopAgent ? static_cast<Agent&>(*desktopAgent) : loggingAgent;
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<HeadlessView> headlessView;
    View* view = nullptr;
    if (command.headless) {
        headlessView = std::make_unique<HeadlessView>([] { QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection); });
        view = headlessView.get();
    } else {
        window = std::make_unique<MainWindow>();
        view = window.get();
    }
    AnswerPhone phone({loop, settings, line, agent, *view, speaker, locale, folder, shell, autostart, http,
                       QStandardPaths::writableLocation(QStandardPaths::DesktopLocation).toStdString(),
                       QStandardPaths::writableLocation(QStandardPaths::CacheLocation).toStdString(),
                       command.webSite});

    // Other programs and the desktop follow the calls on the session bus.
    BusService bus({line, phone.calls.state(), phone.handling, phone.blocking, phone.newCalls, phone.messages,
                    phone.blockedCalls, phone.directory, phone.pictures, settings, phone.playback, phone.events});
    TestLineBus testLineBus(testLine);
    DesktopNotifications notifications(settings, phone.handling, phone.playback, phone.events);

    // On the desktop the test line is a telephone the user plays the caller on.
    QtSoundOutput callerEar;
    QtMicrophone callerMouth;
    std::unique_ptr<TestLinePanel> testPhone;
    if (window) {
        testLine.setLiveCaller(&callerEar, &callerMouth);
        testPhone = std::make_unique<TestLinePanel>(testLine);
        window->attach(phone);
        window->setTestPhone(testPhone.get());
    }
    std::unique_ptr<TerminationSignals> termination; // until start-up, a signal ends the process at once
    bool startUpWaitsForModems = false;
    const auto startUp = [&] {
        if (!instance.isFirst()) {
            log::info("Corvel is already running; this one ends");
            QCoreApplication::exit(0);
            return;
        }
        if (modemLine.probing() && !lineToOpenListed(command.line, settings, line)) {
            startUpWaitsForModems = true; // the line to open may be a modem not found yet
            return;
        }
        std::optional<int> chosen;
        if (!command.line.empty() && !(chosen = lineNamed(command.line, line))) {
            log::error("there is no line \"" + command.line + "\" on this computer");
            QCoreApplication::exit(2);
            return;
        }
        phone.startUp(chosen);
        testLineBus.publish(); // the objects before the name, so that whoever sees the name finds them
        bus.publish();
        // However the program is made to end from now on (a signal, the desktop session's end),
        // it ends as a close does: the call hung up, a recording kept, the line released.
        termination = std::make_unique<TerminationSignals>();
        QObject::connect(termination.get(), &TerminationSignals::received, &application, [&] { phone.shutdown(); });
        QObject::connect(&application, &QCoreApplication::aboutToQuit, [&] { phone.shutdown(); });
        if (window) window->showTestPhone();
    };
    QObject::connect(&instance, &SingleInstance::requested, &application, [&](const QString& request) {
        if (request == "pick-up") {
            phone.handling.takeCall();
        } else if (request == "hang-up") {
            phone.handling.hangUp();
        } else if (request == "show") {
            if (window) phone.trayMenuClicked("max"); // a second start brings the running Corvel to the front
        } else {
            log::warning("ignored the request \"" + request.left(64).toStdString() + "\" from another Corvel");
        }
    });
    // A serial port with nothing on it takes seconds to give up, so the search runs while the
    // other lines already take calls; what it finds joins the list.
    modemLine.probe([&] {
        if (std::exchange(startUpWaitsForModems, false)) startUp();
        else phone.listLines();
    });
    if (window) {
        // The splash first; a second Corvel learns it is one only when the splash is over.
        SplashWindow::showFor(std::chrono::milliseconds(2000), startUp);
    } else {
        QMetaObject::invokeMethod(&application, startUp, Qt::QueuedConnection);
    }
    log::info(std::string("Corvel " CORVEL_VERSION " started") + (command.headless ? " without windows" : "") +
              "; settings in " + settings.path().string() + ", data in " + folder.root().string());
    return QApplication::exec();
}

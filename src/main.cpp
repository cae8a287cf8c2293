// Corvel: an answer phone for the Linux desktop.

#include <QApplication>
#include <QCommandLineParser>

#include "app/ini_settings_store.h"
#include "app/log.h"
#include "character/character_speech.h"
#include "character/logging_agent.h"
#include "telephony/call_control.h"
#include "telephony/testline/test_line.h"
#include "ui/main_window.h"
#include "ui/qt_event_loop.h"

int main(int argc, char* argv[])
{
    using namespace corvel;

    QApplication::setApplicationName("corvel");
    QApplication::setApplicationVersion(CORVEL_VERSION);

    // Read before the windowing system is touched, so that --help and --version work anywhere.
    QCommandLineParser options;
    options.setApplicationDescription("Corvel, the intelligent answer phone");
    const QCommandLineOption help = options.addHelpOption();
    const QCommandLineOption version = options.addVersionOption();
    const QCommandLineOption configDir("config-dir", "Keep the settings in DIR.", "DIR");
    options.addOption(configDir);
    QStringList arguments;
    for (int i = 0; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);
    if (!options.parse(arguments)) {
        log::error(options.errorText().toStdString());
        return 2;
    }
    if (options.isSet(help)) options.showHelp();
    if (options.isSet(version)) options.showVersion();

    QApplication application(argc, argv);

    IniSettingsStore settings(IniSettingsStore::defaultPath(options.value(configDir).toStdString()));

    QtEventLoop loop;
    TestLine line(loop);
    MainWindow window;
    CallControl calls(loop, line, window);
    LoggingAgent agent(loop);
    CharacterSpeech speech(agent, settings, loop, window);

    window.show();
    log::info("Corvel " CORVEL_VERSION " started; settings in " + settings.path().string());
    return QApplication::exec();
}

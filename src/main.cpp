// Corvel: an answer phone for the Linux desktop.

#include <QApplication>
#include <QCommandLineParser>
#include <QStandardPaths>

#include "app/answer_phone.h"
#include "app/ini_settings_store.h"
#include "app/log.h"
#include "app/text.h"
#include "character/logging_agent.h"
#include "telephony/testline/test_line.h"
#include "ui/main_window.h"
#include "ui/qt_event_loop.h"
#include "ui/qt_locale_texts.h"
#include "ui/qt_sound_output.h"

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
    const QCommandLineOption dataDir("data-dir", "Keep the call log, directory, pictures and messages in DIR.",
                                     "DIR");
    options.addOption(configDir);
    options.addOption(dataDir);
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
    const DataFolder folder(DataFolder::defaultRoot(options.value(dataDir).toStdString()));
    folder.installShipped((QCoreApplication::applicationDirPath() + "/../share/corvel").toStdString());

    QtEventLoop loop;
    QtSoundOutput speaker;
    QtLocaleTexts locale;
    TestLine line(loop);
    MainWindow window;
    LoggingAgent agent(loop);
    AnswerPhone phone({loop, settings, line, agent, window, speaker, locale, folder,
                       QStandardPaths::writableLocation(QStandardPaths::DesktopLocation).toStdString()});
    window.attach(phone);
    phone.loadRecords();
    std::vector<std::string> devices;
    for (const LineDevice& device : line.devices()) devices.push_back(device.name);
    window.setListItems("ComboDevice", devices);
    if (const std::string modem = settings::readData(settings, "modem", ""); !modem.empty()) {
        line.setDeviceNumber(static_cast<std::int32_t>(text::leadingNumber(modem)));
        window.setListIndex("ComboDevice", line.deviceNumber());
        phone.handling.start();
    }

    window.show();
    log::info("Corvel " CORVEL_VERSION " started; settings in " + settings.path().string() + ", data in " +
              folder.root().string());
    return QApplication::exec();
}

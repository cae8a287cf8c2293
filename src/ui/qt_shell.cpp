#include "ui/qt_shell.h"

#include <QDesktopServices>
#include <QDir>
#include <QProcess>
#include <QTemporaryFile>
#include <QUrl>

#include "base/log.h"
#include "base/text.h"

namespace corvel {
namespace {

// What xdg-mime answers, or nothing when it cannot be asked.
QString askXdgMime(const QStringList& arguments)
{
    QProcess query;
    query.start("xdg-mime", arguments);
    if (!query.waitForFinished(5000) || query.exitStatus() != QProcess::NormalExit || query.exitCode() != 0) return {};
    return QString::fromUtf8(query.readAllStandardOutput()).trimmed();
}

} // namespace

bool QtShell::openFile(const std::filesystem::path& file)
{
    if (QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(file.string())))) return true;
    log::warning("nothing on this desktop could open " + file.string());
    return false;
}

std::optional<std::string> QtShell::webBrowser()
{
    // The program that opens a web page is the one the desktop associates with an HTML file:
    // a throwaway one is made to ask about, in a private temporary name rather than at a fixed
    // path another user could plant something at.
    QTemporaryFile page(QDir::tempPath() + "/temphtm-XXXXXX.HTM");
    if (!page.open()) return std::nullopt;
    page.write("\"<HTML> <\\HTML>\"\n");
    page.flush();
    const QString type = askXdgMime({"query", "filetype", page.fileName()});
    const QString program = type.isEmpty() ? QString() : askXdgMime({"query", "default", type});
    if (program.isEmpty()) return std::nullopt;
    return program.toStdString();
}

bool QtShell::startBrowser(const std::string& program, const std::string& address)
{
    log::info("opening " + address + " with " + program);
    return QDesktopServices::openUrl(QUrl(QString::fromStdString(address)));
}

void QtShell::startCommand(const std::vector<std::string>& arguments,
                           const std::vector<std::pair<std::string, std::string>>& environment)
{
    if (arguments.empty()) return;
    // Owned by itself: it goes once it has ended or failed to start, whenever that is.
    auto* process = new QProcess;
    const QString program = QString::fromStdString(arguments.front());
    QStringList rest;
    for (auto argument = arguments.begin() + 1; argument != arguments.end(); ++argument)
        rest << QString::fromStdString(*argument);
    process->setProgram(program);
    process->setArguments(rest);
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    for (const auto& [name, value] : environment) variables.insert(QString::fromStdString(name), QString::fromStdString(value));
    process->setProcessEnvironment(variables);
    process->setStandardInputFile(QProcess::nullDevice());
    process->setProcessChannelMode(QProcess::MergedChannels);
    const std::string name = arguments.front();
    QObject::connect(process, &QProcess::readyRead, process, [process, name] {
        while (process->canReadLine() || process->bytesAvailable() > 0) {
            const QByteArray line = process->canReadLine() ? process->readLine() : process->readAll();
            // The command's output is its own business, but one line of it stays one log line.
            log::info(name + ": " + text::fromLine(line.trimmed().toStdString(), 1000));
        }
    });
    QObject::connect(process, &QProcess::finished, process, [process, name](int code, QProcess::ExitStatus status) {
        if (status != QProcess::NormalExit) log::warning(name + " ended abnormally");
        else if (code != 0) log::warning(name + " failed with exit status " + std::to_string(code));
        else log::info(name + " done");
        process->deleteLater();
    });
    QObject::connect(process, &QProcess::errorOccurred, process, [process, name](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart) return;
        log::warning("cannot start " + name + ": " + process->errorString().toStdString());
        process->deleteLater();
    });
    log::info("starting " + name);
    process->start();
}

} // namespace corvel

#include "ui/qt_shell.h"

#include <QDesktopServices>
#include <QDir>
#include <QProcess>
#include <QTemporaryFile>
#include <QUrl>

#include "base/log.h"

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

} // namespace corvel

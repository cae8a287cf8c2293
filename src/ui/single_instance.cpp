#include "ui/single_instance.h"

#include <unistd.h>

#include <chrono>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalSocket>
#include <QStandardPaths>

#include "base/log.h"

namespace corvel {
namespace {

using namespace std::chrono_literals;

// A lock file older than this whose holder cannot be seen running is taken over. A holder
// that is still running keeps it regardless: it holds the file open and locked.
constexpr auto staleAfter = 10s;
constexpr int socketWaitMs = 1000;
// Requests are single words; anything longer is no request of Corvel's.
constexpr qint64 longestRequest = 64;

} // namespace

SingleInstance::SingleInstance(QString key, QObject* parent) : QObject(parent), key_(std::move(key)) {}

SingleInstance::~SingleInstance()
{
    server_.close();
    if (lock_) lock_->unlock();
}

QString SingleInstance::folder()
{
    if (!qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR"))
        return QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    const QString own = QDir::tempPath() + "/corvel-" + QString::number(::getuid());
    QDir().mkpath(own);
    // Anyone may make a folder in /tmp: one that is not the user's own is not trusted.
    if (QFileInfo(own).ownerId() != ::getuid()) {
        log::warning(own.toStdString() + " belongs to someone else");
        return QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    }
    QFile::setPermissions(own, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    return own;
}

QString SingleInstance::lockPath() const { return folder() + '/' + key_ + ".lock"; }
QString SingleInstance::socketPath() const { return folder() + '/' + key_ + ".socket"; }

bool SingleInstance::isFirst()
{
    if (first_) return *first_;
    lock_ = std::make_unique<QLockFile>(lockPath());
    lock_->setStaleLockTime(staleAfter);
    if (lock_->tryLock(0)) {
        first_ = true;
        listen();
    } else if (lock_->error() == QLockFile::LockFailedError) {
        first_ = false;
        tell(QStringLiteral("show"));
    } else {
        // Nothing can be told about other processes; running twice beats not running.
        log::warning("cannot take the lock " + lockPath().toStdString() + "; starting anyway");
        first_ = true;
    }
    return *first_;
}

void SingleInstance::listen()
{
    // A socket left by a process that died would stop the listening.
    QLocalServer::removeServer(socketPath());
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_.listen(socketPath())) {
        log::warning("cannot listen on " + socketPath().toStdString() + ": " + server_.errorString().toStdString());
        return;
    }
    connect(&server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* other = server_.nextPendingConnection()) {
            connect(other, &QLocalSocket::disconnected, other, &QObject::deleteLater);
            connect(other, &QLocalSocket::readyRead, this, [this, other] {
                while (other->canReadLine()) {
                    const QString request = QString::fromUtf8(other->readLine(longestRequest + 1)).trimmed();
                    // Later, not inside the socket's own signal: a request may run the event loop,
                    // in which the socket may be deleted.
                    if (!request.isEmpty()) {
                        QMetaObject::invokeMethod(this, [this, request] { emit requested(request); }, Qt::QueuedConnection);
                    }
                }
                if (other->bytesAvailable() > longestRequest) {
                    log::warning("a request on " + socketPath().toStdString() + " was too long; ignored");
                    other->abort();
                }
            });
        }
    });
}

bool SingleInstance::tell(const QString& request) const
{
    QLocalSocket socket;
    socket.connectToServer(socketPath());
    if (!socket.waitForConnected(socketWaitMs)) return false;
    socket.write(request.toUtf8() + '\n');
    const bool written = socket.waitForBytesWritten(socketWaitMs);
    socket.disconnectFromServer();
    return written;
}

} // namespace corvel

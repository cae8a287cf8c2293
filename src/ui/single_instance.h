#pragma once

#include <memory>
#include <optional>

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>

namespace corvel {

// Keeps Corvel to one process per user: the first holds a lock file in the user's runtime
// folder and listens on a local socket beside it; a later start finds the lock taken, tells
// the first through the socket and learns that it is not first. A lock left by a process that
// died is taken over; a running holder keeps its lock however long it runs. The socket also
// carries the user's requests from the command line (take the waiting call, hang up).
class SingleInstance final : public QObject {
    Q_OBJECT

public:
    // `key` names the lock and the socket; tests use their own.
    explicit SingleInstance(QString key = QStringLiteral("corvel"), QObject* parent = nullptr);
    ~SingleInstance() override;

    // Decided on the first call and kept; false in every process but the first, which is
    // asked to "show" itself.
    bool isFirst();
    // Passes a request, one short line, to the first process; false when none is running.
    bool tell(const QString& request) const;

    // $XDG_RUNTIME_DIR, or /tmp/corvel-UID where there is none.
    static QString folder();
    QString lockPath() const;
    QString socketPath() const;

signals:
    // In the first process: "show" when another start was turned away, or a request told.
    void requested(const QString& request);

private:
    void listen();

    QString key_;
    std::optional<bool> first_;
    std::unique_ptr<QLockFile> lock_;
    QLocalServer server_;
};

} // namespace corvel

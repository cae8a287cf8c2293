#pragma once

#include <QObject>
#include <QSocketNotifier>

namespace corvel {

// SIGTERM, SIGINT and SIGHUP (the session ending, Ctrl+C, a closed terminal, systemd
// stopping the service) delivered as a Qt signal on the event loop, where the program can end
// as it does when the user closes it. The handler only writes the signal's number to a pipe.
class TerminationSignals final : public QObject {
    Q_OBJECT

public:
    explicit TerminationSignals(QObject* parent = nullptr);
    ~TerminationSignals() override;

signals:
    void received(int signal);

private:
    void readPipe();

    QSocketNotifier* notifier_ = nullptr;
};

} // namespace corvel

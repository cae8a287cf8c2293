#pragma once

#include <QObject>

#include "base/event_loop.h"

namespace corvel {

// The desktop's event loop: Qt's, with QTimer for timers and the system clock.
class QtEventLoop final : public EventLoop {
public:
    std::unique_ptr<Timer> createTimer(std::function<void()> handler, TimerKind kind) override;
    void post(std::function<void()> task) override;
    std::unique_ptr<Watch> watchReadable(int fd, std::function<void()> ready) override;
    std::unique_ptr<Watch> watchWritable(int fd, std::function<void()> ready) override;
    void yield() override;
    void processPending() override;
    std::chrono::system_clock::time_point now() const override;
    LocalTime localNow() const override;

private:
    QObject context_; // posted tasks die with the loop
};

} // namespace corvel

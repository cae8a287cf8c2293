#include "ui/qt_event_loop.h"

#include <ctime>

#include <QCoreApplication>
#include <QMetaObject>
#include <QSocketNotifier>
#include <QTimer>

namespace corvel {
namespace {

class QtTimer final : public Timer {
public:
    QtTimer(std::function<void()> handler, TimerKind kind) : handler_(std::move(handler))
    {
        timer_.setSingleShot(kind == TimerKind::SingleShot);
        timer_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer_, &QTimer::timeout, [this] { fire(); });
    }

    void setInterval(Milliseconds interval) override
    {
        interval_ = interval;
        apply();
    }
    Milliseconds interval() const override { return interval_; }
    void setEnabled(bool enabled) override
    {
        if (enabled_ == enabled) return;
        enabled_ = enabled;
        apply();
    }
    bool enabled() const override { return enabled_; }

private:
    // An interval of 0 means stopped, as for the timer controls, not Qt's "whenever idle".
    void apply()
    {
        if (enabled_ && interval_ > Milliseconds{0}) timer_.start(interval_);
        else timer_.stop();
    }

    void fire()
    {
        if (timer_.isSingleShot()) enabled_ = false;
        if (running_) return;
        running_ = true;
        struct Reset {
            bool& flag;
            ~Reset() { flag = false; }
        } reset{running_};
        handler_();
    }

    QTimer timer_;
    std::function<void()> handler_;
    Milliseconds interval_{0};
    bool enabled_ = false;
    bool running_ = false;
};

class QtWatch final : public Watch {
public:
    QtWatch(int fd, QSocketNotifier::Type type, std::function<void()> ready)
        : notifier_(new QSocketNotifier(fd, type)), ready_(std::move(ready))
    {
        QObject::connect(notifier_, &QSocketNotifier::activated, [this] { ready_(); });
    }
    // A handler may end its own watch: the notifier, which is still emitting, goes later.
    ~QtWatch() override
    {
        notifier_->disconnect();
        notifier_->setEnabled(false);
        notifier_->deleteLater();
    }

    void setEnabled(bool enabled) override { notifier_->setEnabled(enabled); }
    bool enabled() const override { return notifier_->isEnabled(); }

private:
    QSocketNotifier* notifier_;
    std::function<void()> ready_;
};

} // namespace

std::unique_ptr<Watch> QtEventLoop::watchReadable(int fd, std::function<void()> ready)
{
    return std::make_unique<QtWatch>(fd, QSocketNotifier::Read, std::move(ready));
}

std::unique_ptr<Watch> QtEventLoop::watchWritable(int fd, std::function<void()> ready)
{
    return std::make_unique<QtWatch>(fd, QSocketNotifier::Write, std::move(ready));
}

std::unique_ptr<Timer> QtEventLoop::createTimer(std::function<void()> handler, TimerKind kind)
{
    return std::make_unique<QtTimer>(std::move(handler), kind);
}

void QtEventLoop::post(std::function<void()> task)
{
    QMetaObject::invokeMethod(&context_, std::move(task), Qt::QueuedConnection);
}

void QtEventLoop::yield() { QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents); }

void QtEventLoop::processPending() { QCoreApplication::processEvents(QEventLoop::AllEvents); }

std::chrono::system_clock::time_point QtEventLoop::now() const
{
    return std::chrono::system_clock::now();
}

LocalTime QtEventLoop::localNow() const
{
    using namespace std::chrono;
    const auto wall = time_point_cast<milliseconds>(system_clock::now());
    const std::time_t whole = system_clock::to_time_t(wall);
    std::tm local{};
    localtime_r(&whole, &local);
    const local_days date{year{local.tm_year + 1900} / month(static_cast<unsigned>(local.tm_mon + 1)) /
                         day(static_cast<unsigned>(local.tm_mday))};
    return date + hours{local.tm_hour} + minutes{local.tm_min} + seconds{local.tm_sec} +
           (wall - floor<seconds>(wall));
}

} // namespace corvel

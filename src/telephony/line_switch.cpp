#include "telephony/line_switch.h"

#include "base/log.h"

namespace corvel {

class LineSwitch::Relay final : public LineEvents {
public:
    Relay(LineSwitch& owner, Line& driver) : owner_(owner), driver_(driver) { driver_.setListener(this); }
    ~Relay() { driver_.setListener(nullptr); }

    void ring(std::int32_t count) override { pass([=](LineEvents& e) { e.ring(count); }); }
    void callerId() override { pass([](LineEvents& e) { e.callerId(); }); }
    void connected() override { pass([](LineEvents& e) { e.connected(); }); }
    void digitReceived(char16_t digit) override { pass([=](LineEvents& e) { e.digitReceived(digit); }); }
    void callOwnerChanged() override { pass([](LineEvents& e) { e.callOwnerChanged(); }); }
    void callStateChanged() override { pass([](LineEvents& e) { e.callStateChanged(); }); }
    void mediaModeChanged() override { pass([](LineEvents& e) { e.mediaModeChanged(); }); }
    void callerHungUp() override { pass([](LineEvents& e) { e.callerHungUp(); }); }
    void playDone() override { pass([](LineEvents& e) { e.playDone(); }); }
    void desktopCallEnded() override { pass([](LineEvents& e) { e.desktopCallEnded(); }); }

private:
    template <typename Event> void pass(Event event)
    {
        if (owner_.active_ == &driver_ && owner_.listener()) event(*owner_.listener());
    }

    LineSwitch& owner_;
    Line& driver_;
};

LineSwitch::LineSwitch(std::vector<Line*> drivers) : drivers_(std::move(drivers)), active_(drivers_.front())
{
    for (Line* driver : drivers_) relays_.push_back(std::make_unique<Relay>(*this, *driver));
}

LineSwitch::~LineSwitch() = default;

std::vector<LineDevice> LineSwitch::devices() const
{
    std::vector<LineDevice> all;
    for (const Line* driver : drivers_) {
        for (LineDevice device : driver->devices()) {
            device.number = static_cast<std::int32_t>(all.size());
            all.push_back(std::move(device));
        }
    }
    return all;
}

void LineSwitch::setDeviceNumber(std::int32_t number)
{
    std::int32_t first = 0;
    for (Line* driver : drivers_) {
        const auto count = static_cast<std::int32_t>(driver->devices().size());
        if (number >= first && number < first + count) {
            // A line left behind is closed, so that it takes no calls nobody handles.
            if (driver != active_ && active_->lineOpen()) active_->setLineOpen(false);
            active_ = driver;
            active_->setDeviceNumber(driver->devices()[static_cast<std::size_t>(number - first)].number);
            deviceNumber_ = number;
            return;
        }
        first += count;
    }
    log::warning("there is no line device " + std::to_string(number) + "; the line stays as it was");
}

} // namespace corvel

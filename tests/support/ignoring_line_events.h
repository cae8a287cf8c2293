#pragma once

#include <cstdint>

#include "telephony/line.h"

namespace corvel::testing {

// A line listener that does nothing on any event: a test's own listener overrides the events it
// follows and inherits the rest.
class IgnoringLineEvents : public LineEvents {
public:
    void ring(std::int32_t) override {}
    void callerId() override {}
    void connected() override {}
    void digitReceived(char16_t) override {}
    void callOwnerChanged() override {}
    void callStateChanged() override {}
    void mediaModeChanged() override {}
    void callerHungUp() override {}
    void desktopCallEnded() override {}
    void playDone() override {}
};

} // namespace corvel::testing

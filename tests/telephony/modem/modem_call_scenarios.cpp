// The call scenarios of the test line, the very same source, run over the modem driver and the
// modem emulator: every expectation that holds on the simulated line must hold on a modem.
// Two of them are about the test line itself and are left out where this is registered (see
// CMakeLists.txt): its name in the device list, and a call owned by another program while it
// still rings, which a modem whose port another program holds cannot even see.

#include "emulated_modem_line.h"
#include "support/answer_phone_harness.h"

namespace corvel::testing {
using ModemAnswerPhoneHarness = BasicAnswerPhoneHarness<EmulatedModemLine>;
} // namespace corvel::testing

#define AnswerPhoneHarness ModemAnswerPhoneHarness
#include "telephony/call_scenarios_test.cpp"
#undef AnswerPhoneHarness

#include "app/answer_phone.h"

namespace corvel {

AnswerPhone::AnswerPhone(Ports ports_)
    : ports(std::move(ports_)),
      indicator(ports.view, ports.folder),
      calls(ports.loop, ports.line, ports.view),
      speech(ports.agent, ports.settings, ports.loop, ports.view),
      display(ports.loop, ports.view, ports.folder),
      directory(ports.folder, ports.view, speech),
      pictures(ports.folder, ports.view, speech, display),
      callLog(ports.folder, ports.loop, ports.locale, ports.view, speech),
      newCalls(indicator),
      callerIdentity(ports.line, calls.state(), ports.agent, speech, directory, display, callLog),
      messages(ports.folder, indicator),
      playback(ports.folder, ports.view, ports.speaker, speech, display, messages, newCalls, ports.desktop),
      handling(*this)
{
    calls.setRoutines(this);
}

AnswerPhone::~AnswerPhone() { calls.setRoutines(nullptr); }

void AnswerPhone::loadRecords()
{
    messages.checkmessages();
    callLog.rebuild();
    directory.loadcontacts();
}

void AnswerPhone::shutdown()
{
    calls.standby();
    ports.line.setLineOpen(false);
    ports.view.endProgram();
}

void AnswerPhone::ring(std::int32_t count) { handling.ring(count); }
void AnswerPhone::callerId() { callerIdentity.callerId(); }
void AnswerPhone::connected() { handling.connected(); }
void AnswerPhone::digitpressed(std::string_view digit) { handling.digitpressed(digit); }

void AnswerPhone::checkmessages() { messages.checkmessages(); }

} // namespace corvel

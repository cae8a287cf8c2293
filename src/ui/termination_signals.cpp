#include "ui/termination_signals.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "base/log.h"

namespace corvel {
namespace {

constexpr int handled[] = {SIGTERM, SIGINT, SIGHUP};
int pipeEnds[2] = {-1, -1}; // the handler writes to [0], the loop reads [1]

void onSignal(int number)
{
    const int saved = errno; // the interrupted code may be about to read it
    const auto byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t ignored = ::write(pipeEnds[0], &byte, 1);
    errno = saved;
}

} // namespace

TerminationSignals::TerminationSignals(QObject* parent) : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pipeEnds) != 0) {
        log::warning(std::string("cannot watch for the signals that end Corvel: ") + std::strerror(errno));
        return;
    }
    notifier_ = new QSocketNotifier(pipeEnds[1], QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &TerminationSignals::readPipe);
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int number : handled) ::sigaction(number, &action, nullptr);
}

TerminationSignals::~TerminationSignals()
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int number : handled) ::sigaction(number, &action, nullptr);
    if (pipeEnds[0] < 0) return;
    ::close(pipeEnds[0]);
    ::close(pipeEnds[1]);
    pipeEnds[0] = pipeEnds[1] = -1;
}

void TerminationSignals::readPipe()
{
    unsigned char byte = 0;
    while (::read(pipeEnds[1], &byte, 1) == 1) {
        log::info(std::string("Corvel was asked to end (") + ::sigabbrev_np(byte) + ")");
        emit received(byte);
    }
}

} // namespace corvel

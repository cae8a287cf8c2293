#include "telephony/sip/sip_line.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <linphone++/linphone.hh>

#include <algorithm>
#include <atomic>
#include <exception>
#include <system_error>

#include "base/log.h"
#include "base/text.h"
#include "telephony/line_audio.h"

namespace corvel {
namespace fs = std::filesystem;
namespace lp = linphone;

namespace {

// A line closed for longer than this is really closed (the user chose another line): the
// stack stops and frees its port. Shorter closes, like the one-second reopening of every
// standby, leave it running, registered and holding any call that rings meanwhile.
constexpr Milliseconds closedForGood{5000};
// The stack would turn an unanswered caller away after this long; the caller decides instead.
constexpr int ringingLimitSeconds = 600;
// An end of file later than this past a prompt's length is taken as lost.
constexpr Milliseconds promptSlack{3000};
constexpr int portsToTry = 20;

std::string describe(const sip::CallerIdentity& identity)
{
    if (identity.withheld) return "a withheld number";
    std::string text = identity.unavailable ? "an unavailable number" : identity.number;
    if (!identity.name.empty()) text += " (" + identity.name + ")";
    return text;
}

// The stack's own log: its errors, at info level, since most of them (no sound card, no
// database) are expected on a desktop line; it logs nothing that holds a password.
class StackLog final : public lp::LoggingServiceListener {
public:
    static void install()
    {
        static std::atomic<bool> installed{false};
        if (installed.exchange(true)) return;
        const auto service = lp::LoggingService::get();
        service->setLogLevelMask(static_cast<unsigned>(lp::LogLevel::Error) | static_cast<unsigned>(lp::LogLevel::Fatal));
        service->addListener(std::make_shared<StackLog>());
    }

    void onLogMessageWritten(const std::shared_ptr<lp::LoggingService>&, const std::string& domain, lp::LogLevel level,
                             const std::string& message) override
    {
        log::write(level == lp::LogLevel::Fatal ? log::Level::Warning : log::Level::Info,
                   "SIP stack (" + domain + "): " + message);
    }
};

// A port for both UDP and TCP at `host`, from `port` on; `port` itself when the host is no
// address that can be tried here (a name), since the stack then finds out for itself.
std::optional<int> freePort(const std::string& host, int port)
{
    sockaddr_storage storage{};
    socklen_t length = 0;
    const bool v6 = host.find(':') != std::string::npos;
    if (v6) {
        auto* address = reinterpret_cast<sockaddr_in6*>(&storage);
        address->sin6_family = AF_INET6;
        if (inet_pton(AF_INET6, host.c_str(), &address->sin6_addr) != 1) return port;
        length = sizeof(sockaddr_in6);
    } else {
        auto* address = reinterpret_cast<sockaddr_in*>(&storage);
        address->sin_family = AF_INET;
        if (inet_pton(AF_INET, host.c_str(), &address->sin_addr) != 1) return port;
        length = sizeof(sockaddr_in);
    }
    const auto bindable = [&](int type, int candidate) {
        const int fd = ::socket(v6 ? AF_INET6 : AF_INET, type | SOCK_CLOEXEC, 0);
        if (fd < 0) return false;
        const int on = 1;
        if (type == SOCK_STREAM) ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        if (v6) reinterpret_cast<sockaddr_in6*>(&storage)->sin6_port = htons(static_cast<std::uint16_t>(candidate));
        else reinterpret_cast<sockaddr_in*>(&storage)->sin_port = htons(static_cast<std::uint16_t>(candidate));
        const bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&storage), length) == 0;
        ::close(fd);
        return bound;
    };
    for (int candidate = port; candidate < port + portsToTry && candidate <= 65535; ++candidate) {
        if (bindable(SOCK_DGRAM, candidate) && bindable(SOCK_STREAM, candidate)) return candidate;
    }
    return std::nullopt;
}

} // namespace

struct SipLine::CurrentCall {
    enum class Phase { Ringing, Answered, HandedOver, Ended };
    std::shared_ptr<lp::Call> call;
    Phase phase = Phase::Ringing;
    int rings = 0;
    bool ringing = false;   // its rings are being reported
    bool connected = false; // the connected event has been reported
    fs::path recordPath;    // where the stack records this call
    std::string handedTo;
};

// Every callback of the stack becomes a task on the loop.
class SipLine::StackListener final : public lp::CoreListener {
public:
    explicit StackListener(SipLine& line) : line_(line), alive_(line.alive_) {}

    void onCallStateChanged(const std::shared_ptr<lp::Core>&, const std::shared_ptr<lp::Call>& call,
                            lp::Call::State state, const std::string& message) override
    {
        later([call, state, message](SipLine& line) { line.callStateChanged(call, static_cast<int>(state), message); });
    }

    void onDtmfReceived(const std::shared_ptr<lp::Core>&, const std::shared_ptr<lp::Call>& call, int dtmf) override
    {
        if (dtmf <= 0 || dtmf > 127) {
            log::warning("ignored a key code " + std::to_string(dtmf) + " from the SIP caller");
            return;
        }
        later([call, key = static_cast<char>(dtmf)](SipLine& line) { line.keyReceived(call, key); });
    }

    void onInfoReceived(const std::shared_ptr<lp::Core>&, const std::shared_ptr<lp::Call>& call,
                        const std::shared_ptr<const lp::InfoMessage>& message) override
    {
        const auto content = message ? message->getContent() : nullptr;
        if (!content) return;
        const std::string type = content->getType();
        const std::string subtype = content->getSubtype();
        const std::string body = content->getUtf8Text();
        if (const auto key = sip::keyFromInfo(type, subtype, body)) {
            later([call, key = *key](SipLine& line) { line.keyReceived(call, key); });
        } else {
            log::info("ignored a SIP INFO of type " + type + "/" + subtype + " with \"" +
                      std::string(text::cut(body, 64)) + "\"");
        }
    }

    void onTransferStateChanged(const std::shared_ptr<lp::Core>&, const std::shared_ptr<lp::Call>& call,
                                lp::Call::State state) override
    {
        later([call, state](SipLine& line) { line.transferStateChanged(call, static_cast<int>(state)); });
    }

    void onAccountRegistrationStateChanged(const std::shared_ptr<lp::Core>&, const std::shared_ptr<lp::Account>& account,
                                           lp::RegistrationState state, const std::string& message) override
    {
        const auto params = account ? account->getParams() : nullptr;
        const auto identity = params ? params->getIdentityAddress() : nullptr;
        const std::string who = identity ? identity->asStringUriOnly() : "the SIP account";
        switch (state) {
        case lp::RegistrationState::Ok: log::info(who + " is registered"); break;
        case lp::RegistrationState::Failed:
            log::warning(who + " could not register: " + message + "; the stack tries again");
            break;
        case lp::RegistrationState::Cleared: log::info(who + " is no longer registered"); break;
        default: break;
        }
    }

private:
    template <typename Task> void later(Task task)
    {
        line_.loop_.post([this, alive = std::weak_ptr<bool>(alive_), task = std::move(task)] {
            if (!alive.expired()) task(line_);
        });
    }

    SipLine& line_;
    std::weak_ptr<bool> alive_;
};

class SipLine::EofListener final : public lp::PlayerListener {
public:
    explicit EofListener(SipLine& line) : line_(line), alive_(line.alive_) {}

    void onEofReached(const std::shared_ptr<lp::Player>& player) override
    {
        line_.loop_.post([this, alive = std::weak_ptr<bool>(alive_), player] {
            if (!alive.expired()) line_.endOfFile(player);
        });
    }

private:
    SipLine& line_;
    std::weak_ptr<bool> alive_;
};

SipLine::SipLine(EventLoop& loop, const SettingsStore& settings, SipLineOptions options)
    : loop_(loop), settings_(settings), options_(std::move(options)), prompts_(options_.stateFolder / "prompts"),
      iterateTimer_(loop.createTimer([this] { iterate(); })),
      ringTimer_(loop.createTimer([this] { ring(); })),
      closedTimer_(loop.createTimer(
          [this] {
              if (!open_) stopStack();
          },
          TimerKind::SingleShot)),
      promptGuard_(loop.createTimer(
          [this] {
              log::warning("the SIP stack never said that \"" + queue_[prompt_].file.string() +
                           "\" had ended; going on");
              promptEnded();
          },
          TimerKind::SingleShot))
{
    stackListener_ = std::make_shared<StackListener>(*this);
    eofListener_ = std::make_shared<EofListener>(*this);
}

SipLine::~SipLine()
{
    stopStack();
    for (Recording& recording : unfinished_) sip::finishRecording(recording.recorded, recording.target);
}

// --- The stack ---

std::optional<sip::ListenAddress> SipLine::listening() const { return core_ ? listening_ : std::nullopt; }

const sip::Account* SipLine::chosenAccount(const std::vector<sip::Account>& accounts) const
{
    if (deviceNumber_ < 1 || static_cast<std::size_t>(deviceNumber_) > accounts.size()) return nullptr;
    return &accounts[static_cast<std::size_t>(deviceNumber_ - 1)];
}

// What the stack is set up from: a change to any of it takes a fresh stack.
std::string SipLine::wantedConfiguration() const
{
    std::string wanted = sip::listenAddress(settings_, options_.listen).text();
    const auto accounts = sip::accounts(settings_);
    if (const sip::Account* account = chosenAccount(accounts)) {
        wanted += '\n' + account->address + '\n' + account->user + '\n' + account->password;
    }
    wanted += '\n' + std::to_string(sip::mediaLossTime(settings_).count());
    return wanted;
}

bool SipLine::startStack()
{
    const std::string wanted = wantedConfiguration();
    if (core_ && wanted == configuration_) return true;
    stopStack();
    StackLog::install();

    sip::ListenAddress address = sip::listenAddress(settings_, options_.listen);
    const auto port = freePort(address.host, address.port);
    if (!port) {
        log::warning("cannot listen for SIP calls on " + address.text() + " nor on the " +
                     std::to_string(portsToTry - 1) + " ports after it: all are taken");
        return false;
    }
    if (*port != address.port) {
        log::info("SIP port " + std::to_string(address.port) + " is taken; listening on " + std::to_string(*port));
    }
    address.port = *port;

    // The stack keeps databases in its folders: a private one, given with a trailing slash
    // (without it the file names are glued to the folder's name).
    const fs::path folder = options_.stateFolder / "stack";
    std::error_code error;
    fs::create_directories(folder, error);
    fs::create_directories(options_.stateFolder / "recordings", error);
    if (error) {
        log::warning("cannot make the SIP line's folder " + folder.string() + ": " + error.message());
        return false;
    }
    try {
        const auto factory = lp::Factory::get();
        factory->setDataDir(folder.string() + "/");
        factory->setConfigDir(folder.string() + "/");
        auto core = factory->createCore("", "", nullptr);
        if (!core) {
            log::warning("the SIP stack could not be started");
            return false;
        }
        const auto config = core->getConfig();
        config->setString("sip", "bind_address", address.host);
        config->setString("rtp", "bind_address", address.host);
        core->setMaxCalls(1); // a second caller hears busy
        core->enableIpv6(address.ipv6());
        core->setUserAgent("Corvel", CORVEL_VERSION);

        // Files, not a sound card: prompts go out from wave files, the caller into recordings.
        core->setUseFiles(true);
        core->setPlayFile("");
        core->setRecordFile("");
        core->setRing("");
        core->setRingback("");
        core->enableVideoCapture(false);
        core->enableVideoDisplay(false);
        const auto video = factory->createVideoActivationPolicy();
        video->setAutomaticallyInitiate(false);
        video->setAutomaticallyAccept(false);
        core->setVideoActivationPolicy(video);
        core->setUseRfc2833ForDtmf(true);
        core->setIncTimeout(ringingLimitSeconds);
        core->setNortpTimeout(static_cast<int>(sip::mediaLossTime(settings_).count()));
        core->setAudioPort(-1); // any free port: two lines on one computer must not collide
        // Telephone codecs only, so that recordings come out at 8 kHz.
        for (const auto& payload : core->getAudioPayloadTypes()) {
            const std::string mime = payload->getMimeType();
            payload->enable(mime == "PCMA" || mime == "PCMU" || mime == "telephone-event");
        }
        const auto transports = factory->createTransports();
        transports->setUdpPort(address.port);
        transports->setTcpPort(address.port);
        transports->setTlsPort(0);
        transports->setDtlsPort(0);
        core->setTransports(transports);
        core->addListener(stackListener_);
        if (core->start() != 0) {
            log::warning("the SIP stack could not be started on " + address.text());
            core->removeListener(stackListener_);
            return false;
        }

        std::string registering;
        const auto accounts = sip::accounts(settings_);
        if (const sip::Account* account = chosenAccount(accounts)) {
            const auto identity = factory->createAddress(account->address);
            const auto server = factory->createAddress(account->server);
            const auto params = core->createAccountParams();
            if (!identity || !server || params->setIdentityAddress(identity) != 0 ||
                params->setServerAddress(server) != 0) {
                log::warning("cannot register " + account->address + ": the stack does not take the address");
            } else {
                params->enableRegister(true);
                core->addAuthInfo(factory->createAuthInfo(account->user, "", account->password, "", "", account->domain));
                const auto registered = core->createAccount(params);
                core->addAccount(registered);
                core->setDefaultAccount(registered);
                registering = "; registering " + account->address + " as " + account->user;
            }
        }
        core_ = std::move(core);
        configuration_ = wanted;
        listening_ = address;
        log::info("the SIP line listens on " + address.text() + " (UDP and TCP)" + registering);
    } catch (const std::exception& failure) {
        log::warning(std::string("the SIP stack could not be started: ") + failure.what());
        core_.reset();
        return false;
    }
    iterateTimer_->setInterval(options_.idleIterate);
    iterateTimer_->setEnabled(true);
    return true;
}

void SipLine::stopStack()
{
    closedTimer_->setEnabled(false);
    if (!core_) return;
    stopPlay();
    if (recording_) setRecording(false);
    ringTimer_->setEnabled(false);
    iterateTimer_->setEnabled(false);
    const auto core = std::move(core_);
    try {
        if (call_ && call_->phase != CurrentCall::Phase::Ended) {
            log::info("the SIP line closes: the call on it ends");
            call_->phase = CurrentCall::Phase::Ended;
        }
        core->terminateAllCalls();
        core->stop(); // unregisters and closes the ports
        core->removeListener(stackListener_);
    } catch (const std::exception& failure) {
        log::warning(std::string("the SIP stack did not stop cleanly: ") + failure.what());
    }
    call_.reset();
    player_.reset();
    playerOpen_ = false;
    bridged_ = false;
    listening_.reset();
    configuration_.clear();
    log::info("the SIP line no longer listens");
}

void SipLine::iterate()
{
    if (!core_) return;
    try {
        core_->iterate();
    } catch (const std::exception& failure) {
        log::warning(std::string("the SIP stack failed: ") + failure.what());
    }
}

void SipLine::setCallPace(bool inCall)
{
    iterateTimer_->setInterval(inCall ? options_.callIterate : options_.idleIterate);
}

// --- The line device ---

std::vector<LineDevice> SipLine::devices() const
{
    std::vector<LineDevice> list{{0, std::string(directName)}};
    for (const sip::Account& account : sip::accounts(settings_)) {
        list.push_back({static_cast<std::int32_t>(list.size()), "SIP account " + account.address});
    }
    return list;
}

void SipLine::setDeviceNumber(std::int32_t number)
{
    if (number < 0 || static_cast<std::size_t>(number) >= devices().size()) {
        log::warning("there is no SIP line device " + std::to_string(number));
        return;
    }
    deviceNumber_ = number;
}

std::string SipLine::deviceName() const
{
    const auto list = devices();
    if (deviceNumber_ < 0 || static_cast<std::size_t>(deviceNumber_) >= list.size()) return std::string(directName);
    return list[static_cast<std::size_t>(deviceNumber_)].name;
}

void SipLine::setLineOpen(bool open)
{
    lastError_ = 0;
    if (open) {
        closedTimer_->setEnabled(false);
        if (!startStack()) {
            lastError_ = 1;
            open_ = false;
            return;
        }
        open_ = true;
        // A caller who rang while the line was closed for a moment is reported now.
        if (call_ && call_->phase == CurrentCall::Phase::Ringing && !call_->ringing) startRinging();
        return;
    }
    if (!open_) return;
    open_ = false;
    ringTimer_->setEnabled(false);
    if (call_ && call_->phase == CurrentCall::Phase::Ringing) call_->ringing = false;
    if (call_ && call_->phase == CurrentCall::Phase::Answered) drop(); // nobody would handle it
    closedTimer_->setInterval(closedForGood);
    closedTimer_->setEnabled(true);
}

void SipLine::report(std::function<void(LineEvents&)> event)
{
    if (!open_) return; // nobody is listening to a closed line
    reportEvenWhenClosed([this, event = std::move(event)](LineEvents& e) {
        if (open_) event(e);
    });
}

void SipLine::reportEvenWhenClosed(std::function<void(LineEvents&)> event)
{
    loop_.post([this, alive = std::weak_ptr<bool>(alive_), event = std::move(event)] {
        if (!alive.expired() && listener()) event(*listener());
    });
}

bool SipLine::isCurrent(const std::shared_ptr<lp::Call>& call) const { return call_ && call && call_->call == call; }

bool SipLine::streamsRunning() const
{
    if (!call_ || call_->phase != CurrentCall::Phase::Answered) return false;
    const auto state = call_->call->getState();
    return state == lp::Call::State::StreamsRunning || state == lp::Call::State::UpdatedByRemote ||
           state == lp::Call::State::Updating;
}

// --- Calls ---

void SipLine::callStateChanged(const std::shared_ptr<lp::Call>& call, int state, const std::string& message)
{
    switch (static_cast<lp::Call::State>(state)) {
    case lp::Call::State::IncomingReceived: incomingCall(call); break;
    case lp::Call::State::StreamsRunning:
        if (isCurrent(call) && call_->phase == CurrentCall::Phase::Answered && !call_->connected) {
            call_->connected = true;
            report([](LineEvents& e) { e.connected(); });
        } else if (isCurrent(call) && bridged_) {
            log::info("the caller talks to the desktop now");
        }
        break;
    case lp::Call::State::Paused:
        // Held only to move its sound to the desktop: taken back at once.
        if (isCurrent(call) && bridged_ && call->resume() != 0) log::warning("the SIP stack would not take the call back");
        break;
    case lp::Call::State::End:
    case lp::Call::State::Error: callEnded(call, message); break;
    case lp::Call::State::Released: callReleased(call); break;
    default: break;
    }
}

void SipLine::incomingCall(const std::shared_ptr<lp::Call>& call)
{
    if (!core_ || !call) return;
    if (call_ && call_->phase != CurrentCall::Phase::Ended) {
        log::info("a second SIP caller hears busy");
        call->decline(lp::Reason::Busy);
        return;
    }
    sip::CallerHeaders headers;
    if (const auto from = call->getRemoteAddress()) {
        headers.fromDisplayName = from->getDisplayName();
        headers.fromUser = from->getUsername();
        headers.fromDomain = from->getDomain();
    }
    if (const auto remote = call->getRemoteParams()) {
        headers.assertedIdentity = remote->getCustomHeader("P-Asserted-Identity");
        headers.privacy = remote->getCustomHeader("Privacy");
        if (!headers.assertedIdentity.empty()) {
            // Anybody can write the header; it counts only from a peer that is known to check it.
            const std::string source = sip::viaSourceHost(remote->getCustomHeader("Via"));
            auto trusted = sip::trustedHosts(settings_);
            const auto accounts = sip::accounts(settings_);
            if (const sip::Account* account = chosenAccount(accounts)) trusted.push_back(account->domain);
            headers.assertedIdentityTrusted =
                !source.empty() && std::find(trusted.begin(), trusted.end(), source) != trusted.end();
        }
    }
    call_ = std::make_shared<CurrentCall>();
    call_->call = call;
    identity_ = sip::callerIdentity(headers);
    log::info("a SIP call from " + describe(identity_) + (open_ ? "" : " waits for the line to reopen"));
    setCallPace(true);
    if (open_) startRinging();
}

void SipLine::startRinging()
{
    call_->ringing = true;
    ring();
    // Between the first ring and the second, as the network delivers it on a telephone line.
    report([](LineEvents& e) { e.callerId(); });
}

void SipLine::ring()
{
    if (!call_ || call_->phase != CurrentCall::Phase::Ringing || !call_->ringing || !open_) {
        ringTimer_->setEnabled(false);
        return;
    }
    ++call_->rings;
    report([count = call_->rings](LineEvents& e) { e.ring(count); });
    const Milliseconds interval = sip::ringInterval(settings_);
    if (ringTimer_->interval() != interval) ringTimer_->setInterval(interval);
    ringTimer_->setEnabled(true);
}

void SipLine::callEnded(const std::shared_ptr<lp::Call>& call, const std::string& message)
{
    if (!isCurrent(call)) return;
    const CurrentCall::Phase phase = call_->phase;
    call_->phase = CurrentCall::Phase::Ended;
    ringTimer_->setEnabled(false);
    setCallPace(false);
    const lp::Reason reason = call->getReason();
    switch (phase) {
    case CurrentCall::Phase::Ringing:
        log::info("the SIP caller gave up before the answer" + (message.empty() ? "" : " (" + message + ")"));
        break;
    case CurrentCall::Phase::Answered:
        stopPlay();
        if (reason == lp::Reason::IOError) {
            log::warning("the SIP call was lost: no sound from the caller for " +
                         std::to_string(sip::mediaLossTime(settings_).count()) + " s");
        } else {
            log::info("the SIP caller hung up" + (message.empty() ? "" : " (" + message + ")"));
        }
        report([](LineEvents& e) { e.callerHungUp(); });
        break;
    case CurrentCall::Phase::HandedOver:
        log::info("the call handed over to " + call_->handedTo + " has ended");
        // The line may be closed for its reopening: the user's hang-up window must go all the same.
        if (bridged_) reportEvenWhenClosed([](LineEvents& e) { e.desktopCallEnded(); });
        break;
    case CurrentCall::Phase::Ended: break; // ended by this line
    }
}

void SipLine::callReleased(const std::shared_ptr<lp::Call>& call)
{
    // The stack closes a recording when the call's streams stop: only now is the file whole.
    for (auto it = unfinished_.begin(); it != unfinished_.end();) {
        if (it->call == call) {
            sip::finishRecording(it->recorded, it->target);
            it = unfinished_.erase(it);
        } else {
            ++it;
        }
    }
    if (recording_ && recording_->call == call) recording_->call.reset(); // finished when stopped
    if (!isCurrent(call)) return;
    if (bridged_ && core_) {
        core_->setUseFiles(true);
        bridged_ = false;
    }
    if (player_) player_->removeListener(eofListener_);
    player_.reset();
    playerOpen_ = false;
    call_.reset();
}

void SipLine::answer()
{
    if (!call_ || call_->phase != CurrentCall::Phase::Ringing || !core_) {
        log::info("the SIP line was answered with no call ringing");
        return;
    }
    ringTimer_->setEnabled(false);
    // The stack records into the file given at the answer, and adds to a file that is there:
    // each call gets a fresh one.
    call_->recordPath = options_.stateFolder / "recordings" /
                        ("call-" + std::to_string(::getpid()) + "-" + std::to_string(++recordings_) + ".wav");
    std::error_code ignored;
    fs::remove(call_->recordPath, ignored);
    try {
        const auto params = core_->createCallParams(call_->call);
        params->enableVideo(false);
        params->setRecordFile(call_->recordPath.string());
        call_->phase = CurrentCall::Phase::Answered;
        log::info("answering the SIP call");
        if (call_->call->acceptWithParams(params) != 0) {
            log::warning("the SIP call could not be answered");
            call_->phase = CurrentCall::Phase::Ended;
            call_->call->terminate();
        }
    } catch (const std::exception& failure) {
        log::warning(std::string("the SIP call could not be answered: ") + failure.what());
    }
}

bool SipLine::callActive() const { return call_ && call_->phase == CurrentCall::Phase::Answered; }

void SipLine::setCallActive(bool active)
{
    if (!active) drop();
    else if (call_ && call_->phase == CurrentCall::Phase::Ringing) answer();
}

void SipLine::drop()
{
    if (!call_) return;
    const CurrentCall::Phase phase = call_->phase;
    if (phase != CurrentCall::Phase::Ringing && phase != CurrentCall::Phase::Answered) return;
    stopPlay();
    if (recording_) setRecording(false);
    ringTimer_->setEnabled(false);
    call_->phase = CurrentCall::Phase::Ended;
    setCallPace(false);
    // The stack raises the end of the call before these return: that comes back as a task.
    if (phase == CurrentCall::Phase::Ringing) call_->call->decline(lp::Reason::Busy);
    else call_->call->terminate();
}

void SipLine::handOver()
{
    if (!callActive() || !core_) {
        log::info("there is no SIP call to hand over");
        return;
    }
    stopPlay();
    if (recording_) setRecording(false);
    const std::string phone = sip::handOverPhone(settings_);
    if (!phone.empty()) {
        const auto accounts = sip::accounts(settings_);
        const std::string target = sip::handOverAddress(phone, chosenAccount(accounts));
        const auto address = target.empty() ? nullptr : core_->createAddress(target);
        if (!address) {
            log::warning("cannot hand the caller over to \"" + phone +
                         "\": it is no SIP address (give sip:user@host); the desktop takes the call instead");
        } else if (call_->call->transferTo(address) != 0) {
            log::warning("the SIP stack would not hand the caller over to " + target +
                         "; the desktop takes the call instead");
        } else {
            call_->phase = CurrentCall::Phase::HandedOver;
            call_->handedTo = target;
            log::info("handing the caller over to " + target);
            return;
        }
    }
    bridgeToDesktop();
}

// The caller talks to the computer's own microphone and speaker, as on a desktop telephone.
void SipLine::bridgeToDesktop()
{
    call_->phase = CurrentCall::Phase::HandedOver;
    call_->handedTo = "the desktop";
    bridged_ = true;
    core_->reloadSoundDevices(); // a headset plugged in since the stack started counts too
    std::shared_ptr<lp::AudioDevice> microphone;
    std::shared_ptr<lp::AudioDevice> speaker;
    for (const auto& device : core_->getExtendedAudioDevices()) {
        if (!microphone && device->hasCapability(lp::AudioDevice::Capabilities::CapabilityRecord)) microphone = device;
        if (!speaker && device->hasCapability(lp::AudioDevice::Capabilities::CapabilityPlay)) speaker = device;
    }
    if (!microphone || !speaker) {
        log::warning("the computer has no microphone or speaker for the caller, who hears nothing until they hang up");
        return;
    }
    // The call's sound runs on files until now; the stack builds it anew on the devices only
    // when the call changes state, so the caller is held for a moment and taken back.
    core_->setUseFiles(false);
    call_->call->setInputAudioDevice(microphone);
    call_->call->setOutputAudioDevice(speaker);
    if (call_->call->pause() != 0) {
        log::warning("the SIP stack would not move the call to the desktop's microphone and speaker");
        return;
    }
    log::info("moving the caller to the desktop: microphone " + microphone->getId() + ", speaker " + speaker->getId());
}

bool SipLine::desktopCall() const
{
    return bridged_ && call_ && call_->phase == CurrentCall::Phase::HandedOver;
}

void SipLine::hangUpDesktopCall()
{
    if (!desktopCall()) return;
    log::info("hanging up the call on the desktop");
    call_->call->terminate(); // its end comes back as a task, which reports it
}

void SipLine::transferStateChanged(const std::shared_ptr<lp::Call>& call, int state)
{
    if (!call_ || call_->call != call) return;
    switch (static_cast<lp::Call::State>(state)) {
    case lp::Call::State::Connected: log::info("the caller has been handed over to " + call_->handedTo); break;
    case lp::Call::State::Error:
        log::warning("handing the caller over to " + call_->handedTo + " failed; the call ends");
        call->terminate();
        break;
    default: break;
    }
}

void SipLine::keyReceived(const std::shared_ptr<lp::Call>& call, char key)
{
    if (!isCurrent(call) || call_->phase != CurrentCall::Phase::Answered || !digitMonitoring()) return;
    log::info(std::string("the SIP caller keyed ") + key);
    report([digit = static_cast<char16_t>(static_cast<unsigned char>(key))](LineEvents& e) { e.digitReceived(digit); });
}

// --- Playing ---

bool SipLine::startPlay()
{
    stopPlay();
    ++playRun_;
    std::vector<Prompt> prompts;
    for (const std::string& entry : playListEntries(playList())) {
        const auto file = prompts_.playable(entry); // logs why a file cannot be played
        if (!file) return false;
        const auto length = playLength(*file);
        if (!length) return false;
        prompts.push_back({*file, *length});
    }
    if (prompts.empty()) {
        log::warning("cannot play an empty play list");
        return false;
    }
    if (recording_) {
        // The stack records what is played too: a recording only ever holds the caller.
        log::info("a prompt starts: the recording into \"" + recording_->target.string() + "\" ends");
        setRecording(false);
    }
    queue_ = std::move(prompts);
    prompt_ = 0;
    playing_ = true;
    log::info("the SIP line plays " + playList());
    startPrompt();
    return true;
}

void SipLine::startPrompt()
{
    const Prompt& prompt = queue_[prompt_];
    // The call's player exists only once its streams run: taken then, not at the answer.
    if (streamsRunning()) {
        const auto player = call_->call->getPlayer();
        if (player != player_) {
            if (player_) player_->removeListener(eofListener_);
            player_ = player;
            playerOpen_ = false;
            if (player_) player_->addListener(eofListener_);
        }
    }
    if (!streamsRunning() || !player_) {
        // Nobody is on the line to hear it: the list plays to nobody, at once.
        const bool silent = std::all_of(queue_.begin(), queue_.end(), [](const Prompt& p) {
            return p.length == Milliseconds{0};
        });
        if (playRepeat() && (silent || !call_)) return; // goes on "playing" until stopped
        loop_.post([this, alive = std::weak_ptr<bool>(alive_), run = playRun_] {
            if (!alive.expired() && run == playRun_ && playing_) promptEnded();
        });
        return;
    }
    try {
        if (playerOpen_) player_->close();
        playerOpen_ = player_->open(prompt.file.string()) == 0;
        if (!playerOpen_ || player_->start() != 0) {
            log::warning("the SIP stack cannot play \"" + prompt.file.string() + "\"; skipping it");
            loop_.post([this, alive = std::weak_ptr<bool>(alive_), run = playRun_] {
                if (!alive.expired() && run == playRun_ && playing_) promptEnded();
            });
            return;
        }
    } catch (const std::exception& failure) {
        log::warning(std::string("the SIP stack cannot play a prompt: ") + failure.what());
    }
    promptGuard_->setInterval(prompt.length + promptSlack);
    promptGuard_->setEnabled(true);
}

void SipLine::endOfFile(const std::shared_ptr<lp::Player>& player)
{
    if (!playing_ || player != player_) return;
    promptEnded();
}

void SipLine::promptEnded()
{
    promptGuard_->setEnabled(false);
    if (!playing_) return;
    if (++prompt_ < queue_.size()) {
        startPrompt();
        return;
    }
    if (playRepeat()) {
        prompt_ = 0;
        const bool silent = std::all_of(queue_.begin(), queue_.end(), [](const Prompt& p) {
            return p.length == Milliseconds{0};
        });
        // A list that takes no time would go round for ever within one instant.
        if (!silent) startPrompt();
        return;
    }
    playing_ = false;
    log::info("the SIP line has played its list");
    if (player_ && playerOpen_) player_->close();
    playerOpen_ = false;
    report([this, run = playRun_](LineEvents& e) {
        if (run == playRun_) e.playDone(); // not once another list has been started
    });
}

void SipLine::stopPlay()
{
    if (!playing_) return;
    playing_ = false;
    promptGuard_->setEnabled(false);
    if (!player_ || !playerOpen_) return;
    playerOpen_ = false;
    try {
        player_->pause();
        player_->close();
    } catch (const std::exception& failure) {
        log::warning(std::string("the SIP stack would not stop a prompt: ") + failure.what());
    }
}

void SipLine::setPlaying(bool playing)
{
    if (!playing) stopPlay();
    else if (!playing_) startPlay();
}

// --- Recording ---

void SipLine::setRecording(bool recording)
{
    if (!recording) {
        if (!recording_) return;
        Recording finished = std::move(*recording_);
        recording_.reset();
        finishRecording(std::move(finished));
        return;
    }
    if (recording_) return;
    if (recordFile().empty()) {
        log::warning("cannot record: no file was given to record into");
        return;
    }
    if (playing_) {
        log::info("a recording starts: the prompt stops, so that the message holds only the caller");
        stopPlay();
    }
    Recording started{recordFile(), {}, nullptr};
    if (streamsRunning()) {
        started.call = call_->call;
        started.recorded = call_->recordPath;
        call_->call->startRecording();
    } else {
        log::warning("there is no caller on the SIP line to record into \"" + recordFile() + "\"");
    }
    recording_ = std::move(started);
}

void SipLine::finishRecording(Recording recording)
{
    if (!recording.call) {
        if (recording.recorded.empty()) writeLineWave(recording.target, {});
        else sip::finishRecording(recording.recorded, recording.target);
        return;
    }
    const auto state = recording.call->getState();
    if (state == lp::Call::State::End || state == lp::Call::State::Error) {
        unfinished_.push_back(std::move(recording)); // the stack is still closing the file
        return;
    }
    if (state != lp::Call::State::Released) recording.call->stopRecording();
    sip::finishRecording(recording.recorded, recording.target);
}

} // namespace corvel

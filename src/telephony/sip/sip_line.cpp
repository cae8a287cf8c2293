// The SIP line: the stack that listens and registers, and the line device Corvel opens and closes.

#include "telephony/sip/sip_line.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <linphone++/linphone.hh>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>
#include <utility>

#include "base/log.h"
#include "base/text.h"
#include "telephony/sip/stack_sockets.h"

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
constexpr int portsToTry = 20;

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
        // A message the stack repeats on every tick (a sound device gone) is written once, then counted.
        const std::lock_guard lock(mutex_);
        if (message == last_) {
            ++repeats_;
            return;
        }
        if (repeats_ > 0) log::info("SIP stack: the message before came " + std::to_string(repeats_ + 1) + " times in all");
        repeats_ = 0;
        last_ = message;
        log::write(level == lp::LogLevel::Fatal ? log::Level::Warning : log::Level::Info,
                   "SIP stack (" + domain + "): " + message);
    }

private:
    std::mutex mutex_; // the stack logs from its media threads too
    std::string last_;
    unsigned long repeats_ = 0;
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
      iterateTimer_(loop.createTimer([this] { paceTick(); })),
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
          TimerKind::SingleShot)),
      desktopSoundCheck_(loop.createTimer([this] { checkDesktopSound(); }))
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
        // No media plugins: the only one Debian ships draws video (and brings Qt 5 and QML
        // along, 6 MB), and G.711 and telephone events are built into the stack.
        factory->setMspluginsDir((folder / "no-plugins").string());
        auto core = factory->createCore("", "", nullptr);
        if (!core) {
            log::warning("the SIP stack could not be started");
            return false;
        }
        const auto config = core->getConfig();
        config->setString("sip", "bind_address", address.host);
        config->setString("rtp", "bind_address", address.host);
        // No databases: Corvel keeps its own call log, and the stack's call history, chat and
        // key stores would only be written on every call and held in memory for nothing.
        config->setString("storage", "uri", "null");
        config->setString("storage", "call_logs_db_uri", "null");
        config->setString("storage", "zrtp_secrets_db_uri", "null");
        config->setInt("misc", "history_max_size", 0);
        core->setMaxCalls(1); // a second caller hears busy
        core->enableIpv6(address.ipv6());
        core->setUserAgent("Corvel", CORVEL_VERSION);

        // Files, not a sound card: prompts go out from wave files, the caller into recordings.
        core->setUseFiles(true);
        core->setPlayFile("");
        core->setRecordFile("");
        core->setRing("");
        core->setRingback("");
        // No tones at a call's end: they would go to the desktop's sound card, and on one whose
        // sound server has gone away the stack crashes.
        config->setInt("sound", "tone_indications", 0);
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
                registering_ = true;
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
    // A first turn now binds what the stack still has to, and its start-up tasks get a second.
    iterate();
    watchStackSockets();
    keepPace(registering_ ? options_.transactionLife : Milliseconds(1000));
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
    stackWatches_.clear(); // before the stack closes their sockets
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
    registering_ = false;
    inCall_ = false;
    socketsUnseen_ = false;
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

void SipLine::keepPace(Milliseconds span)
{
    paceUntil_ = std::max(paceUntil_, loop_.now() + span);
    const Milliseconds interval = inCall_ ? options_.callIterate : options_.afterTrafficIterate;
    if (iterateTimer_->interval() != interval) iterateTimer_->setInterval(interval);
    if (!iterateTimer_->enabled()) iterateTimer_->setEnabled(true);
}

void SipLine::paceTick()
{
    iterate();
    if (inCall_ || loop_.now() < paceUntil_) return;
    if (iterateTimer_->interval() == options_.registeredIterate) return; // quiet already
    // Quiet again: from now on the sockets wake the stack.
    watchStackSockets();
    if (stackWatches_.empty()) {
        // A line whose sockets cannot be seen (no /proc) would never hear a call: it runs on the clock.
        if (!std::exchange(socketsUnseen_, true)) log::warning("cannot see the SIP stack's sockets; it runs on a clock instead");
        keepPace(options_.transactionLife);
        return;
    }
    if (registering_) iterateTimer_->setInterval(options_.registeredIterate);
    else iterateTimer_->setEnabled(false);
}

void SipLine::setCallPace(bool inCall)
{
    inCall_ = inCall;
    keepPace(options_.transactionLife);
}

void SipLine::stackReadable(int fd)
{
    // The stack reads one datagram a turn: a burst takes a few.
    constexpr int turnsAtMost = 8;
    for (int turn = 0; turn < turnsAtMost && (turn == 0 || sip::readable(fd)); ++turn) iterate();
    keepPace(options_.transactionLife);
    const auto watch = stackWatches_.find(fd);
    // What the stack leaves unread the pace timer's turns take: a watch firing on would spin.
    if (watch != stackWatches_.end() && sip::readable(fd)) watch->second->setEnabled(false);
    // Not from inside the watch's own handler, which the new list may no longer hold.
    loop_.post([this, alive = std::weak_ptr<bool>(alive_)] {
        if (!alive.expired()) watchStackSockets();
    });
}

void SipLine::watchStackSockets()
{
    std::map<int, std::unique_ptr<Watch>> watches;
    if (core_ && listening_) {
        for (const int fd : sip::socketsOnPort(static_cast<std::uint16_t>(listening_->port))) {
            const auto kept = stackWatches_.find(fd);
            if (kept == stackWatches_.end()) {
                watches.emplace(fd, loop_.watchReadable(fd, [this, fd] { stackReadable(fd); }));
            } else {
                kept->second->setEnabled(true);
                watches.emplace(fd, std::move(kept->second));
            }
        }
    }
    stackWatches_ = std::move(watches);
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

} // namespace corvel

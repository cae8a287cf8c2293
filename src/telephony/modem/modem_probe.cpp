#include "telephony/modem/modem_probe.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "base/log.h"
#include "telephony/modem/modem_channel.h"
#include "telephony/modem/responses.h"

namespace corvel::modem {
namespace {

using namespace std::chrono_literals;

constexpr Milliseconds probeTimeout{1500};
constexpr Milliseconds probeGap{50};

// ttyS2 before ttyS10.
bool naturalLess(const std::filesystem::path& a, const std::filesystem::path& b)
{
    const std::string x = a.string(), y = b.string();
    const auto split = [](const std::string& s) {
        const auto digits = s.find_last_not_of("0123456789") + 1;
        return std::pair{s.substr(0, digits), digits < s.size() ? std::stol(s.substr(digits)) : -1L};
    };
    return split(x) < split(y);
}

} // namespace

std::vector<std::filesystem::path> candidatePorts()
{
    std::vector<std::filesystem::path> ports;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/dev", error)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("ttyACM") || name.starts_with("ttyUSB") || name.starts_with("ttyS")) {
            ports.push_back(entry.path());
        }
    }
    std::sort(ports.begin(), ports.end(), [](const auto& a, const auto& b) {
        const auto rank = [](const std::filesystem::path& p) {
            const std::string n = p.filename().string();
            return n.starts_with("ttyACM") ? 0 : n.starts_with("ttyUSB") ? 1 : 2;
        };
        if (rank(a) != rank(b)) return rank(a) < rank(b);
        return naturalLess(a, b);
    });
    return ports;
}

// One port's questions, in order.
class ModemProbe::Port final : private ModemChannel::Listener {
public:
    Port(EventLoop& loop, std::filesystem::path path, std::function<void()> finished)
        : path_(std::move(path)), channel_(loop, *this), finished_(std::move(finished))
    {
        channel_.setGap(probeGap);
    }

    void start(const std::filesystem::path& lockFolder, int baud)
    {
        const int error = channel_.open(path_, baud, lockFolder);
        if (error == EBUSY) {
            const auto& holder = channel_.lock().holder();
            return skip("it is in use by " + (holder ? holder->program : std::string("another program")));
        }
        if (error == ENODEV) return skip("no serial hardware behind it");
        if (error != 0) return skip(std::strerror(error));
        ask("AT", [this](const Reply& reply) {
            if (reply.ok()) return identify();
            ask("AT", [this](const Reply& again) { // the first may have been eaten by a wakening modem
                if (!again.ok()) return skip("no modem answers there (" + again.describe() + ")");
                identify();
            });
        });
    }

    std::optional<VoiceModem> found;

private:
    void ask(const std::string& command, ModemChannel::Done done) { channel_.command(command, probeTimeout, std::move(done)); }

    void identify()
    {
        ask("ATE0V1Q0", [this](const Reply&) {
            ask("ATI3", [this](const Reply& ati3) {
                if (ati3.ok()) identities_.push_back(ati3.text());
                ask("ATI", [this](const Reply& ati) {
                    if (ati.ok()) identities_.push_back(ati.text());
                    ask("AT+GMI", [this](const Reply& gmi) {
                        if (gmi.ok()) identities_.push_back(gmi.text());
                        askVoice();
                    });
                });
            });
        });
    }

    void askVoice()
    {
        ask("AT+FCLASS=?", [this](const Reply& classes) {
            if (!classes.ok() || !offersVoiceClass(classes.text())) return askHash();
            ask("AT+FCLASS=8", [this](const Reply& voice) {
                if (!voice.ok()) return askHash();
                ask("AT+VSM=?", [this](const Reply& list) {
                    std::vector<VoiceCompression> offered;
                    bool shortList = false;
                    for (const std::string& line : list.lines) {
                        if (auto c = parseCompression(line)) {
                            shortList = shortList || c->bits == 0;
                            offered.push_back(std::move(*c));
                        }
                    }
                    ask("AT+FCLASS=0", [this, ok = list.ok(), offered, shortList](const Reply&) {
                        if (!ok || !chooseCodec(offered)) return skip("its voice mode offers no sound format Corvel can use");
                        accept(Dialect::V253, shortList);
                    });
                });
            });
        });
    }

    void askHash()
    {
        ask("AT#CLS=?", [this](const Reply& classes) {
            if (!classes.ok() || !offersVoiceClass(classes.text())) return skip("it is a modem with no usable voice mode");
            accept(Dialect::Hash, false);
        });
    }

    void accept(Dialect dialect, bool shortList)
    {
        VoiceModem modem;
        modem.port = path_;
        modem.dialect = dialect;
        modem.family = chipsetFamily(identities_, shortList);
        modem.usRobotics = modem.family == "US Robotics";
        for (const std::string& identity : identities_) {
            // The most telling identity: the first with a letter in it (ATI often says only "56000").
            if (std::any_of(identity.begin(), identity.end(), [](char c) { return std::isalpha(static_cast<unsigned char>(c)); })) {
                modem.identity = identity;
                break;
            }
        }
        if (modem.identity.empty()) modem.identity = identities_.empty() ? "Voice modem" : identities_.front();
        if (modem.identity.size() > 60) modem.identity.resize(60);
        modem.identity = log::printable(modem.identity);
        log::info("found a voice modem on " + path_.string() + ": " + modem.identity + ", " + modem.family +
                  (dialect == Dialect::Hash ? " (# commands)" : ""));
        found = std::move(modem);
        done();
    }

    void skip(const std::string& why)
    {
        log::info("no voice modem on " + path_.string() + ": " + why);
        done();
    }

    void done()
    {
        channel_.close();
        if (finished_) std::exchange(finished_, nullptr)();
    }

    void unsolicited(std::string_view, LineKind, bool) override {}
    void event(char) override {}
    void audio(std::span<const std::uint8_t>) override {}
    void endOfData() override {}
    void lost(int error) override { skip(std::string("the port failed: ") + std::strerror(error)); }

    std::filesystem::path path_;
    ModemChannel channel_;
    std::function<void()> finished_;
    std::vector<std::string> identities_;
};

ModemProbe::ModemProbe(EventLoop& loop, const std::vector<std::filesystem::path>& ports,
                       const std::filesystem::path& lockFolder, int baud, Done done)
    : done_(std::move(done))
{
    left_ = ports.size();
    for (const auto& path : ports) ports_.push_back(std::make_unique<Port>(loop, path, [this] { finished(); }));
    if (ports_.empty()) {
        loop.post([this, alive = std::weak_ptr<bool>(alive_)] {
            if (!alive.expired() && done_) std::exchange(done_, nullptr)({});
        });
        return;
    }
    for (auto& port : ports_) port->start(lockFolder, baud);
}

ModemProbe::~ModemProbe() = default;

void ModemProbe::finished()
{
    if (--left_ > 0 || !done_) return;
    std::vector<VoiceModem> found;
    for (const auto& port : ports_) {
        if (port->found) found.push_back(*port->found);
    }
    std::exchange(done_, nullptr)(std::move(found));
}

} // namespace corvel::modem

#include "modem_emulator.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "base/log.h"
#include "telephony/modem/modem_stream.h"
#include "telephony/modem/voice_codec.h"

namespace corvel::testing {
namespace {

using namespace std::chrono_literals;
using modem::CAN;
using modem::DLE;
using modem::ETX;
using modem::SUB;
using modem::SampleFormat;

constexpr Milliseconds tick{20};
constexpr Milliseconds bufferLength{500}; // the modem's own sound buffer
constexpr Milliseconds busyEvery{4000};

std::string upper(std::string text)
{
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::string twoDigits(unsigned value)
{
    char text[8];
    std::snprintf(text, sizeof text, "%02u", value % 100);
    return text;
}

std::string hex(const std::vector<std::uint8_t>& bytes)
{
    std::string out;
    char pair[4];
    for (const std::uint8_t b : bytes) {
        std::snprintf(pair, sizeof pair, "%02X", b);
        out += pair;
    }
    return out;
}

std::string codeText(std::uint8_t code)
{
    if (code == ETX) return "<DLE><ETX>";
    if (code == CAN) return "<DLE><CAN>";
    if (code == SUB) return "<DLE><SUB>";
    if (code == DLE) return "<DLE><DLE>";
    if (code >= 0x20 && code < 0x7F) return std::string("<DLE>") + static_cast<char>(code);
    char text[16];
    std::snprintf(text, sizeof text, "<DLE>0x%02X", code);
    return text;
}

struct Compression {
    int id;
    const char* line;
    SampleFormat format;
};

const std::vector<Compression>& compressions(ModemEmulator::Persona persona)
{
    static const std::vector<Compression> conexant{
        {0, "0,\"SIGNED PCM\",8,0,8000,0,0", SampleFormat::Signed8},
        {1, "1,\"UNSIGNED PCM\",8,0,8000,0,0", SampleFormat::Unsigned8},
        {129, "129,\"IMA ADPCM\",4,0,8000,0,0", SampleFormat::Unsigned8},
        {130, "130,\"UNSIGNED PCM\",8,0,8000,0,0", SampleFormat::Unsigned8},
        {131, "131,\"Mu-Law\",8,0,8000,0,0", SampleFormat::MuLaw},
        {132, "132,\"A-Law\",8,0,8000,0,0", SampleFormat::ALaw},
        {133, "133,\"14 bit PCM\",14,0,8000,0,0", SampleFormat::Linear16},
    };
    static const std::vector<Compression> agere{
        {128, "128,\"8-BIT LINEAR\",(7200,8000,11025)", SampleFormat::Unsigned8},
        {129, "129,\"16-BIT LINEAR\",(7200,8000,11025)", SampleFormat::Linear16},
        {130, "130,\"8-BIT ALAW\",(8000)", SampleFormat::ALaw},
        {131, "131,\"8-BIT ULAW\",(8000)", SampleFormat::MuLaw},
        {132, "132,\"IMA ADPCM\",(7200,8000,11025)", SampleFormat::Unsigned8},
    };
    return persona == ModemEmulator::Persona::Conexant ? conexant : agere;
}

} // namespace

ModemEmulator::ModemEmulator(EventLoop& loop, Options options)
    : loop_(loop), options_(options),
      ringTimer_(loop.createTimer([this] {
          if (phase_ != Phase::Ringing) return;
          if (ringCount_ >= call_.ringsBeforeGivingUp) {
              phase_ = Phase::Idle; // nobody answered: the caller puts the phone down
              callerIdTimer_->setEnabled(false);
              record(false, "(the caller gave up ringing)");
              return;
          }
          ring();
      }, TimerKind::SingleShot)),
      callerIdTimer_(loop.createTimer([this] { sendCallerId(); }, TimerKind::SingleShot)),
      keyTimer_(loop.createTimer([this] {
          if (nextKey_ < keys_.size()) pressKey(keys_[nextKey_++].key);
          scheduleKeys();
      }, TimerKind::SingleShot)),
      hangUpTimer_(loop.createTimer([this] { hangUp(); }, TimerKind::SingleShot)),
      dataTimer_(loop.createTimer([this] {
          if (mode_ == Mode::Receive) receiveTick();
          else transmitTick();
      }, TimerKind::Repeating)),
      busyTimer_(loop.createTimer([this] { busyTick(); }, TimerKind::Repeating))
{
    master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0) {
        throw std::runtime_error(std::string("cannot make a pseudo-terminal: ") + std::strerror(errno));
    }
    port_ = ::ptsname(master_);
    // Raw before any client opens it, and held open so the master never reads a hang-up.
    slave_ = ::open(port_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (slave_ < 0) throw std::runtime_error("cannot open " + port_ + ": " + std::strerror(errno));
    termios raw{};
    ::tcgetattr(slave_, &raw);
    ::cfmakeraw(&raw);
    ::tcsetattr(slave_, TCSANOW, &raw);
    ::tcgetattr(master_, &raw);
    ::cfmakeraw(&raw);
    ::tcsetattr(master_, TCSANOW, &raw);
    watch_ = loop_.watchReadable(master_, [this] { readable(); });
    dataTimer_->setInterval(tick);
    busyTimer_->setInterval(busyEvery);
    reset();
}

ModemEmulator::~ModemEmulator()
{
    *alive_ = false;
    watch_.reset();
    if (master_ >= 0) ::close(master_);
    if (slave_ >= 0) ::close(slave_);
}

Milliseconds ModemEmulator::now() const
{
    return std::chrono::duration_cast<Milliseconds>(loop_.now().time_since_epoch());
}

modem::SampleFormat ModemEmulator::format() const
{
    for (const Compression& c : compressions(options_.persona))
        if (c.id == vsm_) return c.format;
    return SampleFormat::Unsigned8;
}

void ModemEmulator::record(bool fromHost, std::string text) { transcript_.push_back({now(), fromHost, std::move(text)}); }

std::string ModemEmulator::transcriptText() const
{
    std::string out;
    for (const Entry& entry : transcript_) {
        out += std::to_string((entry.at - transcript_.front().at).count()) + (entry.fromHost ? " H " : " M ") + log::printable(entry.text) + "\n";
    }
    return out;
}

std::vector<std::string> ModemEmulator::commands() const
{
    std::vector<std::string> out;
    for (const Entry& entry : transcript_)
        if (entry.fromHost && entry.text.starts_with("AT")) out.push_back(entry.text);
    return out;
}

std::optional<Milliseconds> ModemEmulator::heardFromHost(const std::string& text, Milliseconds from) const
{
    for (const Entry& entry : transcript_)
        if (entry.fromHost && entry.text == text && entry.at >= from) return entry.at;
    return std::nullopt;
}

std::optional<Milliseconds> ModemEmulator::sentToHost(const std::string& text, Milliseconds from) const
{
    for (const Entry& entry : transcript_)
        if (!entry.fromHost && entry.text == text && entry.at >= from) return entry.at;
    return std::nullopt;
}

void ModemEmulator::reset()
{
    echo_ = options_.faults.echoAfterReset ? true : echo_;
    verbose_ = true;
    quiet_ = false;
    fclass_ = "0";
    vcid_ = 0;
    vsm_ = options_.persona == Persona::Conexant ? 1 : 128;
    rate_ = 8000;
    silenceTenths_ = 50;
    ste_ = 0;
    if (offHook_) goOnHook();
}

// --- Bytes from the host ---

void ModemEmulator::readable()
{
    std::uint8_t buffer[4096];
    for (;;) {
        std::size_t want = sizeof buffer;
        if (mode_ == Mode::Transmit) {
            // Like a modem holding CTS low: no more is taken than its buffer has room for.
            const std::size_t capacity = static_cast<std::size_t>(bufferLength.count() * rate_ / 1000 *
                                                                  modem::bytesPerSample(format()));
            want = std::min(want, capacity > buffer_.size() ? capacity - buffer_.size() : 0);
            if (want == 0) {
                watch_->setEnabled(false); // the tick opens it again
                return;
            }
        }
        const ssize_t n = ::read(master_, buffer, want);
        if (n <= 0) return;
        if (onHostByte) {
            for (ssize_t i = 0; i < n; ++i) onHostByte(buffer[i]);
        }
        if (options_.faults.deaf) continue;
        std::size_t at = 0;
        while (at < static_cast<std::size_t>(n)) {
            const Mode mode = mode_;
            const std::size_t count = static_cast<std::size_t>(n) - at;
            // One byte at a time through a mode switch: CONNECT and what follows it.
            const std::size_t step = mode == Mode::Command ? 1 : count;
            if (mode == Mode::Command) commandBytes(buffer + at, step);
            else if (mode == Mode::Transmit) transmitBytes(buffer + at, step);
            else receiveBytes(buffer + at, step);
            at += step;
        }
        if (!*alive_) return;
    }
}

void ModemEmulator::commandBytes(const std::uint8_t* bytes, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t b = bytes[i];
        if (afterDle_) { // a stop for a data state that has already ended
            afterDle_ = false;
            record(true, codeText(b));
            continue;
        }
        if (b == DLE) {
            afterDle_ = true;
            continue;
        }
        if (echo_ && b != '\n') write(std::string(1, static_cast<char>(b)));
        if (b == '\r') {
            std::string line = std::move(line_);
            line_.clear();
            execute(std::move(line));
        } else if (b == '\b' || b == 0x7F) {
            if (!line_.empty()) line_.pop_back();
        } else if (b != '\n' && b >= 0x20 && line_.size() < 256) {
            line_.push_back(static_cast<char>(b));
        }
    }
}

void ModemEmulator::execute(std::string line)
{
    const auto first = line.find_first_not_of(' ');
    if (first == std::string::npos) return;
    line = line.substr(first);
    const std::string command = upper(line);
    if (!command.starts_with("AT")) {
        if (!command.empty()) record(true, line);
        return;
    }
    record(true, line);
    std::vector<std::string> info;
    std::string final = "OK";
    std::size_t i = 2;
    while (i < command.size()) {
        const char c = command[i];
        if (c == ' ' || c == ';') {
            ++i;
            continue;
        }
        if (c == '+' || c == '-' || c == '#') {
            const std::size_t end = std::min(command.find(';', i), command.size());
            if (!extended(command.substr(i, end - i), info, final)) return respond(info, "ERROR");
            i = end;
            if (final == "CONNECT") break;
            continue;
        }
        std::string letter(1, c);
        ++i;
        if (c == '&' && i < command.size()) letter += command[i++];
        std::string argument;
        if (c == 'S') {
            while (i < command.size() && (std::isdigit(static_cast<unsigned char>(command[i])) || command[i] == '=' || command[i] == '?'))
                argument += command[i++];
        } else {
            while (i < command.size() && std::isdigit(static_cast<unsigned char>(command[i]))) argument += command[i++];
        }
        if (!basic(letter.size() == 1 ? c : letter[1], letter.size() == 1 ? argument : "&" + argument, info, final))
            return respond(info, "ERROR");
    }
    respond(info, final);
}

bool ModemEmulator::basic(char letter, const std::string& argument, std::vector<std::string>& info, std::string& final)
{
    const bool ampersand = argument.starts_with("&");
    if (ampersand) return true; // &F &C &D &K &W ...: accepted, nothing to model
    const int value = argument.empty() ? 0 : std::atoi(argument.c_str());
    switch (letter) {
    case 'Z':
        reset();
        return true;
    case 'E': echo_ = value != 0; return true;
    case 'V': verbose_ = value != 0; return true;
    case 'Q': quiet_ = value != 0; return true;
    case 'H':
        if (value == 0) goOnHook();
        return true;
    case 'A':
        if (!voiceClass()) {
            final = "NO CARRIER";
            return true;
        }
        if (options_.faults.refuseAnswerInVoice) return false;
        connect();
        final = "VCON";
        return true;
    case 'I':
        if (options_.persona == Persona::Conexant) {
            if (value == 0) info.push_back("56000");
            else if (value == 3) info.push_back("CX93001-EIS_V0.2013-V92");
            else if (value == 9) info.push_back("(\x01$CXT0000\\\\Modem\\\\CX93001)");
            else if (value == 4) info.push_back("a007840284C6002F");
        } else {
            if (value == 0) info.push_back("5601");
            else if (value == 3) info.push_back("Agere SV92PP 56K Voice Modem V1.05");
            else if (value == 9) info.push_back("(\x01$AGR0001\\\\Modem\\\\SV92)");
        }
        return true;
    case 'S':
        if (argument.find('?') != std::string::npos) info.push_back("000");
        return true;
    case 'X':
    case 'L':
    case 'M':
    case 'P':
    case 'T': return true;
    default: return false;
    }
}

bool ModemEmulator::extended(const std::string& command, std::vector<std::string>& info, std::string& final)
{
    const auto equals = command.find('=');
    const std::string name = command.substr(0, std::min(equals, command.find('?')));
    const bool test = command.ends_with("=?");
    const bool query = !test && command.ends_with("?");
    const std::string value = equals == std::string::npos || test ? "" : command.substr(equals + 1);
    const auto field = [&](std::size_t index) -> std::string {
        std::size_t start = 0;
        for (std::size_t k = 0; k < index; ++k) {
            start = value.find(',', start);
            if (start == std::string::npos) return "";
            ++start;
        }
        return value.substr(start, value.find(',', start) - start);
    };
    const bool conexant = options_.persona == Persona::Conexant;

    if (name == "+FCLASS") {
        if (test) info.push_back(options_.faults.voiceClassAs80 ? "0,1,1.0,80" : conexant ? "0,1,1.0,8" : "(0,1,8)");
        else if (query) info.push_back(fclass_);
        else if (value == "0" || value == "1" || value == "1.0" || value == "8" || value == "80" || value == "8.0") fclass_ = value;
        else return false;
        return true;
    }
    if (name == "+GCI") {
        if (query) info.push_back("+GCI: B5");
        return true;
    }
    if (name == "+GMI" || name == "+FMI") {
        info.push_back(conexant ? "CONEXANT" : "AGERE SYSTEMS");
        return true;
    }
    if (name == "+GMM" || name == "+FMM") {
        info.push_back(conexant ? "CX93001" : "SV92PP");
        return true;
    }
    if (name == "+VCID") {
        if (test) info.push_back("(0-2)");
        else if (query) info.push_back(conexant ? std::to_string(vcid_) : "+VCID: " + std::to_string(vcid_));
        else if (value == "0" || value == "1" || value == "2") vcid_ = std::atoi(value.c_str());
        else return false;
        return true;
    }
    if (name == "+VRID") {
        if (value == "1" && !lastCallerId_.empty()) info.push_back(lastCallerId_);
        return true;
    }
    if (name == "+IFC") return !options_.faults.refuseFlowControl;
    if (name == "-STE") {
        if (!conexant) return false;
        if (test) info.push_back("(0-7)");
        else if (query) info.push_back(std::to_string(ste_));
        else ste_ = std::atoi(value.c_str()) & 7;
        return true;
    }
    if (!name.starts_with("+V")) return false; // # commands and the rest: not this modem's
    if (!voiceClass()) return false;

    if (name == "+VSM") {
        if (test) {
            for (const Compression& c : compressions(options_.persona)) info.push_back(c.line);
        } else if (query) {
            info.push_back(std::to_string(vsm_) + "," + std::to_string(rate_));
        } else {
            const int id = std::atoi(field(0).c_str());
            const std::string rateText = field(1);
            const int rate = rateText.empty() ? 8000 : std::atoi(rateText.c_str());
            const auto& list = compressions(options_.persona);
            const auto found = std::find_if(list.begin(), list.end(), [&](const Compression& c) { return c.id == id; });
            if (found == list.end() || std::string(found->line).find("ADPCM") != std::string::npos) return false;
            if (rate != 8000 && !(conexant ? false : (rate == 7200 || rate == 11025))) return false;
            vsm_ = id;
            rate_ = rate;
        }
        return true;
    }
    if (name == "+VLS") {
        if (test) {
            info.push_back("0,\"\",00000000,00000000,00000000");
            info.push_back("1,\"T\",0B8433C1,0FE431C1,0B8431C1");
        } else if (query) {
            info.push_back(offHook_ ? "1" : "0");
        } else if (value == "0") {
            goOnHook();
        } else if (value == "1") {
            connect();
        } else {
            return false;
        }
        return true;
    }
    if (name == "+VSD") {
        if (test) {
            info.push_back(conexant ? "(0,127,128,129),(0-255)" : "(0-255),(0-255)");
            return true;
        }
        if (query) {
            info.push_back("128," + std::to_string(silenceTenths_));
            return true;
        }
        const int level = std::atoi(field(0).c_str());
        if (options_.faults.strictSilenceSettings && level != 0 && level != 127 && level != 128 && level != 129) return false;
        silenceTenths_ = std::atoi(field(1).c_str());
        return true;
    }
    if (name == "+VTX") {
        if (!offHook_) return false;
        mode_ = Mode::Transmit;
        buffer_.clear();
        draining_ = false;
        dlesInARow_ = 0;
        plays_.push_back({phase_ == Phase::Connected ? now() - connectedAt_ : now(), format(), rate_, {}});
        dataTimer_->setEnabled(true);
        final = "CONNECT";
        return true;
    }
    if (name == "+VRX") {
        if (!offHook_) return false;
        mode_ = Mode::Receive;
        dlesInARow_ = 0;
        receiveFrom_ = phase_ == Phase::Connected ? now() - connectedAt_ : Milliseconds{0};
        heardSpeech_ = false;
        quietSince_ = now();
        silenceSent_ = false;
        dataTimer_->setEnabled(true);
        final = "CONNECT";
        return true;
    }
    if (name == "+VTR") return false;
    // +VGT +VGR +VIT +VRA +VRN +VNH +VDR +VIP +VTD +VTS +VBT +VLS ...: accepted as they are
    return true;
}

void ModemEmulator::respond(const std::vector<std::string>& info, const std::string& final)
{
    if (quiet_) return;
    for (const std::string& line : info) say(line);
    if (verbose_) {
        say(final);
        return;
    }
    static const std::vector<std::pair<std::string, std::string>> codes{
        {"OK", "0"}, {"CONNECT", "1"}, {"RING", "2"}, {"NO CARRIER", "3"}, {"ERROR", "4"}, {"BUSY", "7"}};
    for (const auto& [text, code] : codes) {
        if (text == final) {
            record(false, final);
            write(code + "\r");
            return;
        }
    }
    say(final);
}

// --- Bytes to the host ---

void ModemEmulator::write(const std::string& bytes)
{
    writeRaw(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
}

void ModemEmulator::writeRaw(const std::vector<std::uint8_t>& bytes)
{
    if (master_ < 0 || bytes.empty()) return;
    std::size_t at = 0;
    while (at < bytes.size()) {
        const ssize_t n = ::write(master_, bytes.data() + at, bytes.size() - at);
        if (n <= 0) {
            if (n < 0 && errno == EINTR) continue;
            record(false, "(" + std::to_string(bytes.size() - at) + " bytes lost: the host is not reading)");
            return;
        }
        at += static_cast<std::size_t>(n);
    }
}

void ModemEmulator::say(const std::string& line)
{
    record(false, line);
    write(verbose_ ? "\r\n" + line + "\r\n" : line + "\r\n");
}

void ModemEmulator::sendEvent(char code)
{
    if (options_.faults.dropEveryOtherEvent && (eventsSent_++ % 2 == 1)) {
        record(false, std::string("(lost <DLE>") + code + ")");
        return;
    }
    record(false, std::string("<DLE>") + code);
    if (onEventSent) onEventSent(code);
    if (options_.faults.splitDlePairs) {
        // The code a moment after its <DLE>: the host's read sees the pair cut in two.
        writeRaw({DLE});
        auto timer = std::make_shared<std::unique_ptr<Timer>>();
        *timer = loop_.createTimer(
            [this, code, timer, alive = std::weak_ptr<bool>(alive_)] {
                if (alive.expired()) return;
                writeRaw({static_cast<std::uint8_t>(code)});
                loop_.post([timer] { timer->reset(); }); // the timer goes once its handler has returned
            },
            TimerKind::SingleShot);
        (*timer)->setInterval(1ms);
        (*timer)->setEnabled(true);
        return;
    }
    writeRaw({DLE, static_cast<std::uint8_t>(code)});
}

void ModemEmulator::sendKey(char key)
{
    if (options_.faults.shieldedKeys) {
        // Tone start, the key repeated while it sounds, tone end: one press all the same.
        record(false, std::string("<DLE>/ <DLE>") + key + " x3 <DLE>~");
        writeRaw({DLE, '/', DLE, static_cast<std::uint8_t>(key), DLE, static_cast<std::uint8_t>(key), DLE,
                  static_cast<std::uint8_t>(key), DLE, '~'});
        return;
    }
    sendEvent(key);
}

// --- The line ---

void ModemEmulator::placeCall(ScriptedCall call)
{
    if (phase_ != Phase::Idle) {
        record(false, "(a second caller hears the engaged tone)");
        return;
    }
    call_ = std::move(call);
    callerAudio_ = CallerAudio(call_.speech, call_.speechAt);
    plays_.clear(); // each caller hears their own call
    phase_ = Phase::Ringing;
    ringCount_ = 0;
    callerGone_ = false;
    handedOver_ = false;
    extensionUp_ = false;
    record(false, "(a caller rings)");
    if (options_.region == Region::UnitedKingdom) {
        sendCallerId(); // before any ring on a UK line
        ringTimer_->setInterval(500ms);
        ringTimer_->setEnabled(true);
        return;
    }
    ring();
    if (call_.identity != ScriptedCall::Identity::None) {
        callerIdTimer_->setInterval(call_.ringCadence / 2);
        callerIdTimer_->setEnabled(true);
    }
}

void ModemEmulator::ring()
{
    ++ringCount_;
    if (options_.persona == Persona::Agere && ringCount_ > 1) {
        say("DROF=40");
        say("DRON=20");
    }
    if (verbose_) say("RING");
    else write("2\r");
    if (options_.faults.ringPerBurst) {
        record(false, "RING (second burst)");
        write(verbose_ ? "\r\nRING\r\n" : "2\r");
    }
    ringTimer_->setInterval(options_.region == Region::UnitedKingdom ? std::min<Milliseconds>(call_.ringCadence, 3000ms)
                                                                      : call_.ringCadence);
    ringTimer_->setEnabled(true);
}

void ModemEmulator::sendCallerId()
{
    if (phase_ != Phase::Ringing || call_.identity == ScriptedCall::Identity::None || vcid_ == 0) return;
    const LocalTime local = loop_.localNow();
    const auto day = std::chrono::floor<std::chrono::days>(local);
    const std::chrono::year_month_day date{day};
    const std::chrono::hh_mm_ss time{local - day};
    const std::string mmdd = twoDigits(static_cast<unsigned>(date.month())) + twoDigits(static_cast<unsigned>(date.day()));
    const std::string hhmm = twoDigits(static_cast<unsigned>(time.hours().count())) +
                             twoDigits(static_cast<unsigned>(time.minutes().count()));
    std::string number = call_.number;
    if (call_.identity == ScriptedCall::Identity::Withheld) number = "P";
    if (call_.identity == ScriptedCall::Identity::Unavailable) number = "O";

    if (vcid_ == 2) {
        // The whole packet in hex: multiple data message, date and time, number, name, checksum.
        std::vector<std::uint8_t> body;
        const auto parameter = [&](std::uint8_t type, const std::string& text) {
            body.push_back(type);
            body.push_back(static_cast<std::uint8_t>(text.size()));
            body.insert(body.end(), text.begin(), text.end());
        };
        parameter(0x01, mmdd + hhmm);
        parameter(number.size() == 1 && (number == "P" || number == "O") ? 0x04 : 0x02, number);
        if (!call_.name.empty()) parameter(0x07, call_.name);
        std::vector<std::uint8_t> packet{0x80, static_cast<std::uint8_t>(body.size())};
        packet.insert(packet.end(), body.begin(), body.end());
        unsigned sum = 0;
        for (const std::uint8_t b : packet) sum += b;
        packet.push_back(static_cast<std::uint8_t>(-sum & 0xFF));
        lastCallerId_ = hex(packet);
        say(lastCallerId_);
        return;
    }
    const std::string eq = options_.persona == Persona::Conexant ? " = " : "=";
    if (options_.faults.junkBeforeCallerId) {
        record(false, "<DLE>X junk <DLE>.");
        writeRaw({DLE, 'X', '0', '2', DLE, '.'});
    }
    std::vector<std::string> lines{"DATE" + eq + mmdd, "TIME" + eq + hhmm};
    if (options_.faults.numberAsMesg && number.size() > 1) {
        std::vector<std::uint8_t> item{0x03, static_cast<std::uint8_t>(number.size())};
        item.insert(item.end(), number.begin(), number.end());
        lines.push_back("MESG" + eq + hex(item));
    } else {
        lines.push_back("NMBR" + eq + number);
    }
    if (options_.faults.maskedNumber) lines.push_back("NMBR" + eq + "O");
    if (options_.faults.dialledNumber) lines.push_back("DDN_NMBR" + eq + "5551000");
    if (!call_.name.empty()) lines.push_back("NAME" + eq + call_.name);
    lastCallerId_.clear();
    for (const std::string& line : lines) {
        say(line);
        lastCallerId_ += (lastCallerId_.empty() ? "" : "\r\n") + line;
    }
}

void ModemEmulator::connect()
{
    offHook_ = true;
    if (phase_ != Phase::Ringing) return; // off-hook to a quiet line
    phase_ = Phase::Connected;
    ringTimer_->setEnabled(false);
    callerIdTimer_->setEnabled(false);
    connectedAt_ = now();
    record(false, "(off-hook: the caller is connected)");
    keys_ = call_.keys;
    std::stable_sort(keys_.begin(), keys_.end(), [](const auto& a, const auto& b) { return a.at < b.at; });
    nextKey_ = 0;
    scheduleKeys();
    if (call_.hangUpAt) {
        hangUpTimer_->setInterval(std::max(*call_.hangUpAt, Milliseconds{1}));
        hangUpTimer_->setEnabled(true);
    }
}

void ModemEmulator::scheduleKeys()
{
    if (nextKey_ >= keys_.size() || phase_ != Phase::Connected) return;
    keyTimer_->setInterval(std::max(Milliseconds{1}, keys_[nextKey_].at - (now() - connectedAt_)));
    keyTimer_->setEnabled(true);
}

void ModemEmulator::goOnHook()
{
    const bool wasUp = offHook_;
    offHook_ = false;
    if (mode_ != Mode::Command) {
        mode_ = Mode::Command;
        dataTimer_->setEnabled(false);
    }
    if (!wasUp || phase_ != Phase::Connected) return;
    if (extensionUp_ && !callerGone_) {
        handedOver_ = true;
        record(false, "(on-hook: the caller stays on the line with the handset)");
    } else {
        record(false, "(on-hook: the call is over)");
    }
    phase_ = Phase::Idle;
    keyTimer_->setEnabled(false);
    hangUpTimer_->setEnabled(false);
    busyTimer_->setEnabled(false);
}

void ModemEmulator::pressKey(char key)
{
    if (phase_ != Phase::Connected || callerGone_ || !offHook_) return;
    if (mode_ == Mode::Command && (options_.faults.noKeysInCommandState || !voiceClass())) {
        record(false, std::string("(key ") + key + " not reported in command state)");
        return;
    }
    sendKey(key);
}

void ModemEmulator::hangUp()
{
    if (phase_ == Phase::Ringing) {
        phase_ = Phase::Idle;
        ringTimer_->setEnabled(false);
        callerIdTimer_->setEnabled(false);
        return;
    }
    if (phase_ != Phase::Connected || callerGone_) return;
    callerGone_ = true;
    record(false, "(the caller hangs up)");
    keyTimer_->setEnabled(false);
    if (ste_ & 4) sendEvent('l');
    busyTick();
    busyTimer_->setEnabled(true);
}

void ModemEmulator::busyTick()
{
    if (!offHook_ || !callerGone_) {
        busyTimer_->setEnabled(false);
        return;
    }
    if (voiceClass()) sendEvent('b');
}

void ModemEmulator::liftExtension()
{
    extensionUp_ = true;
    record(false, "(a handset on the line is lifted)");
    if (offHook_ && voiceClass() && (ste_ & 2)) sendEvent('P');
}

void ModemEmulator::sendRaw(const std::string& bytes)
{
    record(false, "(" + std::to_string(bytes.size()) + " raw bytes)");
    write(bytes);
}

void ModemEmulator::unplug()
{
    record(false, "(unplugged)");
    watch_.reset();
    dataTimer_->setEnabled(false);
    busyTimer_->setEnabled(false);
    if (master_ >= 0) ::close(master_);
    if (slave_ >= 0) ::close(slave_);
    master_ = slave_ = -1;
}

// --- Playing ---

void ModemEmulator::transmitBytes(const std::uint8_t* bytes, std::size_t count)
{
    const bool triple = options_.faults.tripleDleToStop;
    for (std::size_t i = 0; i < count && mode_ == Mode::Transmit; ++i) {
        const std::uint8_t b = bytes[i];
        if (!afterDle_) {
            if (b == DLE) {
                afterDle_ = true;
                continue;
            }
            dlesInARow_ = 0;
            if (!draining_) buffer_.push_back(b);
            continue;
        }
        afterDle_ = false;
        if (b == DLE) {
            if (!draining_) buffer_.push_back(DLE);
            dlesInARow_ = 1;
            continue;
        }
        const bool wasTriple = dlesInARow_ == 1;
        dlesInARow_ = 0;
        if (b == SUB) {
            buffer_.push_back(DLE);
            buffer_.push_back(DLE);
            continue;
        }
        record(true, codeText(b));
        if (triple && (b == ETX || b == CAN || b == '!') && !wasTriple) continue; // deaf to the usual stops
        if (triple && wasTriple && !buffer_.empty()) buffer_.pop_back(); // that DLE was part of the stop
        if (b == CAN || b == '!') {
            buffer_.clear();
            if (b == '!') leaveData("OK");
            continue;
        }
        if (b == ETX) {
            record(true, "(" + std::to_string(plays_.back().sound.size() + buffer_.size()) + " bytes of sound)");
            if (options_.faults.okBeforeDrain) {
                leaveData("OK"); // and the buffer plays on
                draining_ = true;
                dataTimer_->setEnabled(true);
            } else {
                draining_ = true;
            }
        }
    }
}

void ModemEmulator::transmitTick()
{
    const std::size_t perTick =
        static_cast<std::size_t>(tick.count() * rate_ / 1000 * modem::bytesPerSample(format()));
    if (!plays_.empty()) {
        std::vector<std::uint8_t>& heard = plays_.back().sound;
        for (std::size_t i = 0; i < perTick && !buffer_.empty(); ++i) {
            heard.push_back(buffer_.front());
            buffer_.pop_front();
        }
    }
    if (mode_ == Mode::Transmit) {
        if (watch_) watch_->setEnabled(true);
        if (draining_ && buffer_.empty()) leaveData("OK");
        return;
    }
    if (buffer_.empty()) {
        draining_ = false;
        dataTimer_->setEnabled(false);
    }
}

void ModemEmulator::leaveData(const std::string& result)
{
    mode_ = Mode::Command;
    afterDle_ = false;
    if (buffer_.empty()) dataTimer_->setEnabled(false);
    if (watch_) watch_->setEnabled(true);
    say(result);
}

// --- Recording ---

void ModemEmulator::receiveBytes(const std::uint8_t* bytes, std::size_t count)
{
    for (std::size_t i = 0; i < count && mode_ == Mode::Receive; ++i) {
        const std::uint8_t b = bytes[i];
        if (!afterDle_) {
            if (b == DLE) afterDle_ = true;
            else dlesInARow_ = 0;
            continue;
        }
        afterDle_ = false;
        if (b == DLE) {
            dlesInARow_ = 1;
            continue;
        }
        const bool wasTriple = dlesInARow_ == 1;
        dlesInARow_ = 0;
        record(true, codeText(b));
        if (b != '!' && b != ETX) continue;
        if (options_.faults.tripleDleToStop && !wasTriple) continue;
        record(false, "<DLE><ETX>");
        writeRaw({DLE, ETX});
        leaveData("OK");
    }
}

void ModemEmulator::receiveTick()
{
    const Milliseconds from = receiveFrom_;
    receiveFrom_ += tick;
    std::vector<std::int16_t> samples;
    if (phase_ == Phase::Connected && !callerGone_) samples = callerAudio_.samples(from, receiveFrom_);
    else samples.assign(static_cast<std::size_t>(tick.count() * lineSamplesPerMillisecond), 0);
    if (rate_ != lineSampleRate) samples = modem::convertRate(samples, lineSampleRate, rate_);
    std::int32_t loudest = 0;
    for (const std::int16_t s : samples) loudest = std::max<std::int32_t>(loudest, std::abs(static_cast<std::int32_t>(s)));
    const std::vector<std::uint8_t> sound = modem::encode(samples, format());
    std::vector<std::uint8_t> shielded;
    modem::appendShielded(shielded, sound);
    recordedBytes_ += sound.size();
    writeRaw(shielded);

    // Silence detection: nothing heard since the recording began, or quiet after speech.
    if (loudest > 300) {
        heardSpeech_ = true;
        quietSince_ = now();
        silenceSent_ = false;
    } else if (silenceTenths_ > 0 && !silenceSent_ && now() - quietSince_ >= Milliseconds(silenceTenths_ * 100)) {
        silenceSent_ = true;
        sendEvent(heardSpeech_ ? 'q' : 's');
    }
}

} // namespace corvel::testing

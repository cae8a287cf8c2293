#include "sip_call_harness.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sndfile.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

#include "sip_speech.h"
#include "support/wave_files.h"

extern char** environ;

namespace corvel::e2e {
namespace fs = std::filesystem;

namespace {

bool bindable(int type, int port)
{
    const int fd = ::socket(AF_INET, type | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool ok = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return ok;
}

std::int16_t fromMuLaw(std::uint8_t code)
{
    code = static_cast<std::uint8_t>(~code);
    int magnitude = (((code & 0x0F) << 3) + 0x84) << ((code & 0x70) >> 4);
    magnitude -= 0x84;
    return static_cast<std::int16_t>((code & 0x80) ? -magnitude : magnitude);
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to)
{
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

std::uint32_t little32(const std::string& bytes, std::size_t at)
{
    return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at])) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + 1])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + 2])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + 3])) << 24;
}

} // namespace

std::optional<fs::path> findProgram(const std::string& name)
{
    const char* path = std::getenv("PATH");
    std::stringstream folders(path ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        const fs::path candidate = fs::path(folder) / name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return std::nullopt;
}

int freePort(int span)
{
    static std::mt19937 random(static_cast<unsigned>(::getpid()) * 7919u + static_cast<unsigned>(std::time(nullptr)));
    std::uniform_int_distribution<int> pick(12000, 30000);
    for (int attempt = 0; attempt < 500; ++attempt) {
        const int port = pick(random) & ~1;
        bool free = true;
        for (int p = port; p < port + span && free; ++p) free = bindable(SOCK_DGRAM, p) && bindable(SOCK_STREAM, p);
        if (free) return port;
    }
    throw std::runtime_error("no free loopback port");
}

// --- Process ---

Process::Process(std::vector<std::string> arguments, const std::map<std::string, std::string>& environment,
                 const fs::path& output, const fs::path& workingFolder, bool withInput)
{
    std::vector<std::string> variables;
    for (char** variable = environ; *variable; ++variable) {
        const std::string text(*variable);
        if (!environment.contains(text.substr(0, text.find('=')))) variables.push_back(text);
    }
    for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (std::string& variable : variables) envp.push_back(variable.data());
    envp.push_back(nullptr);

    int pipeFds[2] = {-1, -1};
    if (withInput && ::pipe2(pipeFds, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const int out = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (out < 0) throw std::runtime_error("cannot write " + output.string());
    pid_ = ::fork();
    if (pid_ == 0) {
        ::setpgid(0, 0);
        if (!workingFolder.empty() && ::chdir(workingFolder.c_str()) != 0) ::_exit(126);
        const int in = withInput ? pipeFds[0] : ::open("/dev/null", O_RDONLY);
        ::dup2(in, 0);
        ::dup2(out, 1);
        ::dup2(out, 2);
        ::execve(argv[0], argv.data(), envp.data());
        ::_exit(127);
    }
    ::close(out);
    if (withInput) {
        ::close(pipeFds[0]);
        input_ = pipeFds[1];
    }
    if (pid_ < 0) throw std::runtime_error("cannot start " + arguments.front());
}

Process::~Process()
{
    terminate();
    if (input_ >= 0) ::close(input_);
}

bool Process::running()
{
    if (status_ || pid_ <= 0) return false;
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return false;
    }
    return true;
}

std::optional<int> Process::wait(std::chrono::milliseconds limit)
{
    const auto until = Clock::now() + limit;
    while (running()) {
        if (Clock::now() >= until) {
            ::kill(-pid_, SIGKILL);
            ::kill(pid_, SIGKILL);
            int status = 0;
            ::waitpid(pid_, &status, 0);
            status_ = -1;
            return std::nullopt;
        }
        std::this_thread::sleep_for(20ms);
    }
    return status_;
}

void Process::terminate()
{
    if (!running()) return;
    ::kill(pid_, SIGTERM);
    if (!wait(5s)) return;
}

void Process::say(const std::string& line)
{
    const std::string text = line + "\n";
    if (input_ >= 0 && ::write(input_, text.data(), text.size()) < 0) input_ = -1;
}

std::string readText(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool eventually(const std::function<bool()>& done, std::chrono::milliseconds limit)
{
    const auto until = Clock::now() + limit;
    while (!done()) {
        if (Clock::now() >= until) return false;
        std::this_thread::sleep_for(50ms);
    }
    return true;
}

// --- Corvel ---

Corvel::Corvel()
{
    std::string pattern = (fs::temp_directory_path() / "corvel-sip-e2e-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    root_ = pattern;
    for (const char* folder : {"config", "data", "cache", "runtime", "home", "xdg-config", "xdg-data"}) {
        fs::create_directories(root_ / folder);
    }
    fs::permissions(root_ / "runtime", fs::perms::owner_all, fs::perm_options::replace);
}

Corvel::~Corvel()
{
    stop();
    // Kept when the test failed and CORVEL_KEEP_E2E is set, for a look at the files.
    if (!std::getenv("CORVEL_KEEP_E2E")) {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }
}

void Corvel::set(const std::string& section, const std::string& key, const std::string& value)
{
    settings_[section][key] = value;
}

void Corvel::writeSettings() const
{
    {
        std::ofstream conf(root_ / "config" / "corvel.conf");
        for (const auto& [section, values] : settings_) {
            conf << "[withheld/" << section << "]\n";
            for (const auto& [key, value] : values) conf << key << "=" << value << "\n";
        }
    }
    fs::permissions(root_ / "config" / "corvel.conf", fs::perms::owner_read | fs::perms::owner_write,
                    fs::perm_options::replace);
}

bool Corvel::start(const std::string& line)
{
    writeSettings();
    port_ = freePort();
    process_ = std::make_unique<Process>(
        std::vector<std::string>{CORVEL_BINARY, "--headless", "--line", line, "--sip-listen",
                                 "127.0.0.1:" + std::to_string(port_), "--config-dir", (root_ / "config").string(),
                                 "--data-dir", data().string(), "--web-site", "http://127.0.0.1:9/"},
        environment(), root_ / "corvel.log", root_);
    if (!waitForLog("the SIP line listens on 127.0.0.1:", 30s)) return false;
    // A port taken meanwhile moves the line to the next one.
    const std::string text = log();
    const auto at = text.find("the SIP line listens on 127.0.0.1:");
    port_ = std::atoi(text.c_str() + at + std::strlen("the SIP line listens on 127.0.0.1:"));
    return true;
}

bool Corvel::startOnTheDesktop()
{
    writeSettings();
    process_ = std::make_unique<Process>(
        std::vector<std::string>{CORVEL_BINARY, "--line", "test", "--config-dir", (root_ / "config").string(),
                                 "--data-dir", data().string(), "--web-site", "http://127.0.0.1:9/"},
        environment(), root_ / "corvel.log", root_);
    return waitForLog("on the session bus as org.corvel.Corvel", 30s);
}

void Corvel::stop()
{
    if (process_) process_->terminate();
}

std::optional<int> Corvel::signal(int number, std::chrono::milliseconds limit)
{
    if (!process_ || !process_->running()) return std::nullopt;
    ::kill(process_->pid(), number);
    return process_->wait(limit);
}

std::map<std::string, std::string> Corvel::environment() const
{
    return {{"XDG_CACHE_HOME", (root_ / "cache").string()},   {"XDG_RUNTIME_DIR", (root_ / "runtime").string()},
            {"XDG_CONFIG_HOME", (root_ / "xdg-config").string()}, {"XDG_DATA_HOME", (root_ / "xdg-data").string()},
            {"HOME", (root_ / "home").string()},              {"QT_QPA_PLATFORM", "offscreen"}};
}

std::optional<int> Corvel::tell(const std::string& option) const
{
    static int runs = 0;
    Process request({CORVEL_BINARY, option}, environment(), root_ / ("request-" + std::to_string(++runs) + ".log"));
    return request.wait(10s);
}

// --- The desktop's sound ---

DesktopSound::DesktopSound(const Corvel& corvel)
    : folder_(corvel.root() / "sound"), socket_(corvel.root() / "runtime" / "pulse" / "native"),
      environment_(corvel.environment())
{
    if (!findProgram("pulseaudio")) return;
    fs::create_directories(folder_);
    const std::string format = " format=s16le rate=" + std::to_string(rate) + " channels=1\n";
    std::ofstream(folder_ / "server.pa")
        << "load-module module-native-protocol-unix auth-anonymous=1\n"
        << "load-module module-pipe-sink sink_name=speaker use_system_clock_for_timing=yes file="
        << (folder_ / "speaker.fifo").string() << format
        << "load-module module-pipe-source source_name=microphone file=" << (folder_ / "microphone.fifo").string()
        << format << "set-default-sink speaker\nset-default-source microphone\n";
    start();
}

DesktopSound::~DesktopSound() { closePipes(); }

void DesktopSound::start()
{
    // The server makes both pipes; a killed one leaves its own behind.
    const fs::path microphone = folder_ / "microphone.fifo";
    const fs::path speaker = folder_ / "speaker.fifo";
    std::error_code ignored;
    fs::remove(microphone, ignored);
    fs::remove(speaker, ignored);
    server_ = std::make_unique<Process>(std::vector<std::string>{findProgram("pulseaudio")->string(), "-n", "-F",
                                                                 (folder_ / "server.pa").string(), "--daemonize=no",
                                                                 "--exit-idle-time=-1", "--log-target=stderr"},
                                        environment_, folder_ / ("server-" + std::to_string(++runs_) + ".log"));
    ready_ = eventually([&] { return fs::exists(socket_) && fs::exists(speaker) && fs::exists(microphone); }, 10s);
    if (!ready_) return;
    speaker_ = std::thread([this, speaker] {
        const int fd = ::open(speaker.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) return;
        std::vector<std::int16_t> chunk(rate / 10);
        while (!stop_) {
            pollfd ready{fd, POLLIN, 0};
            if (::poll(&ready, 1, 100) <= 0) continue;
            const ssize_t size = ::read(fd, chunk.data(), chunk.size() * sizeof(std::int16_t));
            if (size == 0) break; // the server is gone
            if (size < 0) continue;
            const std::lock_guard lock(mutex_);
            heard_.insert(heard_.end(), chunk.begin(), chunk.begin() + size / static_cast<ssize_t>(sizeof(std::int16_t)));
        }
        ::close(fd);
    });
    // The microphone hears a steady tone; a full pipe holds the writer to the server's pace.
    microphone_ = std::thread([this, microphone] {
        const int fd = ::open(microphone.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) return;
        // 20 ms a write: within the size a pipe writes whole.
        std::vector<std::int16_t> chunk(rate / 50);
        long n = 0;
        const auto next = [&] {
            for (auto& sample : chunk) sample = static_cast<std::int16_t>(8000 * std::sin(2 * M_PI * toneHz * n++ / rate));
        };
        // The pipe has no clock of its own: the tone is written as fast as it is spoken.
        auto due = Clock::now();
        while (!stop_) {
            next();
            // A full pipe (nobody listening yet) drops the chunk.
            if (::write(fd, chunk.data(), chunk.size() * sizeof(std::int16_t)) < 0 && errno != EAGAIN) break;
            due += 20ms;
            std::this_thread::sleep_until(due);
        }
        ::close(fd);
    });
}

void DesktopSound::closePipes()
{
    stop_ = true;
    if (microphone_.joinable()) microphone_.join();
    if (speaker_.joinable()) speaker_.join();
    stop_ = false;
}

bool DesktopSound::restart()
{
    if (!server_) return false;
    ::kill(server_->pid(), SIGKILL);
    server_->wait(5s);
    closePipes();
    start();
    return ready_;
}

std::string DesktopSound::log() const
{
    std::string text;
    for (int run = 1; run <= runs_; ++run) text += readText(folder_ / ("server-" + std::to_string(run) + ".log"));
    return text;
}

std::vector<std::int16_t> DesktopSound::heard() const
{
    const std::lock_guard lock(mutex_);
    return heard_;
}

double toneShare(const std::vector<std::int16_t>& samples, double hz, int rate)
{
    // Measured in blocks of 40 ms, each against its own phase: a lost packet or a late buffer
    // shifts the tone's phase, which would cancel a single sum over the whole stretch.
    const std::size_t block = static_cast<std::size_t>(rate) / 25;
    double tone = 0, energy = 0;
    for (std::size_t start = 0; start + block <= samples.size(); start += block) {
        double in = 0, quadrature = 0;
        for (std::size_t i = 0; i < block; ++i) {
            const double phase = 2 * M_PI * hz * static_cast<double>(i) / rate;
            const double sample = samples[start + i];
            in += sample * std::cos(phase);
            quadrature += sample * std::sin(phase);
            energy += sample * sample;
        }
        // A pure tone of amplitude A gives (n A / 2)^2 * 2 / n against n A^2 / 2 of energy: a share of 1.
        tone += 2 * (in * in + quadrature * quadrature) / static_cast<double>(block);
    }
    return energy == 0 ? 0 : tone / energy;
}

std::string Corvel::log() const { return readText(root_ / "corvel.log"); }

bool Corvel::logHas(const std::string& text) const { return log().find(text) != std::string::npos; }

bool Corvel::waitForLog(const std::string& text, std::chrono::milliseconds limit, std::size_t from) const
{
    return eventually([&] { return log().find(text, from) != std::string::npos; }, limit);
}

std::vector<std::string> Corvel::records(const std::string& file) const
{
    std::vector<std::string> lines;
    std::stringstream text(readText(data() / file));
    for (std::string line; std::getline(text, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

void Corvel::useOwnPrompts()
{
    const fs::path folder = root_ / "prompts";
    fs::create_directories(folder);
    const auto tone = [&](const std::string& name, double seconds, int rate, int channels, int format) {
        testing::Wave wave{rate, channels, {}, format};
        for (int i = 0; i < static_cast<int>(seconds * rate); ++i) {
            const auto s = static_cast<short>(6000 * std::sin(2 * M_PI * 523 * i / rate));
            for (int c = 0; c < channels; ++c) wave.samples.push_back(s);
        }
        testing::writeWave(folder / name, wave);
        return (folder / name).string();
    };
    const std::string greeting = tone("greeting.wav", 0.8, 22050, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    for (const char* key : {"morning", "afternoon", "evening"}) set("audio", key, greeting);
    set("audio", "nobody", tone("nobody.wav", 1.5, 8000, 1, SF_FORMAT_WAV | SF_FORMAT_ALAW));
    set("audio", "leavemessage", tone("leave.WAV", 1.0, 44100, 2, SF_FORMAT_WAV | SF_FORMAT_FLOAT));
}

std::chrono::milliseconds Corvel::promptLength(const std::string& file) const
{
    const WaveFacts facts = waveFacts(data() / file);
    return std::chrono::milliseconds(static_cast<long>(facts.seconds * 1000));
}

// --- SIPp ---

Step pause(std::chrono::milliseconds length) { return {Step::Kind::Pause, length, 0, {}, {}}; }
Step key(char k) { return {Step::Kind::Key, {}, k, {}, {}}; }
Step speech() { return {Step::Kind::Speech, {}, 0, {}, {}}; }
Step info(std::string contentType, std::string body)
{
    return {Step::Kind::Info, {}, 0, std::move(contentType), std::move(body)};
}
Step renewal(std::chrono::milliseconds within) { return {Step::Kind::Renewal, within, 0, {}, {}}; }

std::string stepsXml(const std::vector<Step>& steps)
{
    std::string xml;
    int cseq = 10;
    for (const Step& step : steps) {
        switch (step.kind) {
        case Step::Kind::Pause:
            xml += "<pause milliseconds=\"" + std::to_string(step.length.count()) + "\"/>\n";
            break;
        case Step::Kind::Key: {
            const std::string name = step.key == '*' ? "star" : step.key == '#' ? "pound" : std::string(1, step.key);
            xml += "<nop><action><exec play_pcap_audio=\"pcap/dtmf_2833_" + name + ".pcap\"/></action></nop>\n";
            // The pcap plays for 140 ms; the next key waits for it.
            xml += "<pause milliseconds=\"300\"/>\n";
            break;
        }
        case Step::Kind::Speech:
            xml += "<nop><action><exec play_pcap_audio=\"speech.pcap\"/></action></nop>\n";
            break;
        case Step::Kind::Info:
            xml += "<send retrans=\"500\"><![CDATA[\n"
                   "INFO sip:corvel@[remote_ip]:[remote_port] SIP/2.0\n"
                   "Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]\n"
                   "From: {{from}};tag=[pid]SIPpTag00[call_number]\n"
                   "To: <sip:corvel@[remote_ip]:[remote_port]>[peer_tag_param]\n"
                   "Call-ID: [call_id]\n"
                   "CSeq: " + std::to_string(cseq++) + " INFO\n"
                   "Contact: <sip:caller@[local_ip]:[local_port]>\n"
                   "Max-Forwards: 70\n"
                   "Content-Type: " + step.contentType + "\n"
                   "Content-Length: [len]\n\n" + step.body + "\n]]></send>\n"
                   "<recv response=\"200\"/>\n";
            break;
        case Step::Kind::Renewal:
            xml += "<recv request=\"INVITE\" timeout=\"" + std::to_string(step.length.count()) + "\">\n"
                   "  <action>\n"
                   "    <ereg regexp=\"a=rtpmap:([0-9]+) telephone-event\" search_in=\"body\" check_it=\"true\" "
                   "assign_to=\"event_line,event\"/>\n"
                   "  </action>\n"
                   "</recv>\n"
                   "<send><![CDATA[\n"
                   "SIP/2.0 200 OK\n"
                   "[last_Via:]\n[last_From:]\n[last_To:]\n[last_Call-ID:]\n[last_CSeq:]\n"
                   "Contact: <sip:caller@[local_ip]:[local_port]>\n"
                   "Content-Type: application/sdp\n"
                   "Content-Length: [len]\n\n"
                   "v=0\n"
                   "o=caller 53655765 2353687700 IN IP4 [local_ip]\n" // past the scenarios' own versions
                   "s=-\nc=IN IP4 [media_ip]\nt=0 0\n"
                   "m=audio {{rtp_port}} RTP/AVP 8 [$event]\n"
                   "a=rtpmap:8 PCMA/8000\na=rtpmap:[$event] telephone-event/8000\na=fmtp:[$event] 0-15\n"
                   "a=sendrecv\n]]></send>\n"
                   "<recv request=\"ACK\"/>\n";
            break;
        }
    }
    return xml;
}

std::vector<Step> leaveAMessage(std::chrono::milliseconds nobody, std::chrono::milliseconds leave)
{
    return {pause(nobody + 3000ms), key('1'), pause(leave + 1000ms), speech(), pause(7500ms), key('5')};
}

Sipp::Sipp(const Corvel& corvel) : corvel_(corvel), port_(freePort()), mediaPort_(freePort(4))
{
    static int runs = 0;
    folder_ = corvel.root() / ("sipp-" + std::to_string(++runs));
    fs::create_directories(folder_);
    // SIPp reads the pcaps it plays from beside it: the keys it ships from a "pcap" folder, the
    // caller's speech from the one made once for each Corvel.
    fs::create_directory_symlink("/usr/share/sip-tester", folder_ / "pcap");
    const fs::path speech = corvel.root() / "speech.pcap";
    if (!fs::exists(speech)) writeSpeechPcap(speech);
    fs::create_symlink(speech, folder_ / "speech.pcap");
    fills_["from"] = "\"Caller\" <sip:caller@127.0.0.1>";
    fills_["headers"] = "";
    fills_["rtp_port"] = "[media_port]";
}

std::vector<std::string> Sipp::prepare(const std::string& scenario, std::chrono::milliseconds limit, bool server)
{
    std::string xml = readText(fs::path(CORVEL_SIP_SCENARIOS) / scenario);
    if (xml.empty()) throw std::runtime_error("no scenario " + scenario);
    // Twice: a filling may hold placeholders of its own (the steps name {{from}}).
    for (int round = 0; round < 2; ++round) {
        for (const auto& [placeholder, value] : fills_) xml = replaceAll(xml, "{{" + placeholder + "}}", value);
    }
    std::ofstream(folder_ / scenario) << xml;
    const auto seconds = std::to_string((limit.count() + 999) / 1000) + "s";
    std::vector<std::string> arguments{findProgram("sipp").value_or("sipp").string()};
    if (!server) arguments.push_back("127.0.0.1:" + std::to_string(target_.value_or(corvel_.port())));
    for (const std::string& argument :
         {std::string("-i"), std::string("127.0.0.1"), std::string("-mi"), std::string("127.0.0.1"), std::string("-p"),
          std::to_string(port_), std::string("-mp"), std::to_string(mediaPort_), std::string("-m"), std::string("1"),
          std::string("-nostdin"), std::string("-timeout"), seconds, std::string("-timeout_error"),
          // A BYE during a pause is taken from its retransmission by the next <recv>.
          std::string("-pause_msg_ign"),
          std::string("-trace_msg"), std::string("-message_file"), (folder_ / "messages.log").string(),
          std::string("-sf"), (folder_ / scenario).string()}) {
        arguments.push_back(argument);
    }
    arguments.insert(arguments.end(), options_.begin(), options_.end());
    output_ = folder_ / "sipp.out";
    limit_ = limit;
    return arguments;
}

SippResult Sipp::run(const std::string& scenario, std::chrono::milliseconds limit, bool server)
{
    start(scenario, limit, server);
    return finish();
}

void Sipp::start(const std::string& scenario, std::chrono::milliseconds limit, bool server)
{
    process_ = std::make_unique<Process>(prepare(scenario, limit, server), std::map<std::string, std::string>{},
                                         output_, folder_);
}

SippResult Sipp::finish()
{
    SippResult result;
    result.exitCode = process_->wait(limit_ + 10s);
    result.output = readText(output_) + readText(folder_ / "messages.log");
    process_.reset();
    return result;
}

std::string Sipp::messages() const { return readText(folder_ / "messages.log"); }

// --- RTP ---

RtpSink::RtpSink()
{
    socket_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    port_ = freePort(2);
    address.sin_port = htons(static_cast<std::uint16_t>(port_));
    if (socket_ < 0 || ::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("cannot listen for RTP");
    }
    thread_ = std::thread([this] {
        std::vector<unsigned char> packet(2048);
        while (!stop_) {
            pollfd ready{socket_, POLLIN, 0};
            if (::poll(&ready, 1, 100) <= 0) continue;
            const ssize_t size = ::recv(socket_, packet.data(), packet.size(), 0);
            if (size < 12 || (packet[0] >> 6) != 2) continue;
            std::size_t header = 12 + 4 * static_cast<std::size_t>(packet[0] & 0x0F);
            if ((packet[0] & 0x10) && static_cast<std::size_t>(size) >= header + 4) {
                header += 4 + 4 * (static_cast<std::size_t>(packet[header + 2]) << 8 | packet[header + 3]);
            }
            const int type = packet[1] & 0x7F;
            if (type != 0 && type != 8) continue;
            const std::lock_guard lock(mutex_);
            ++packets_;
            lastAudio_ = Clock::now();
            for (std::size_t i = header; i < static_cast<std::size_t>(size); ++i) {
                samples_.push_back(type == 8 ? fromALaw(packet[i]) : fromMuLaw(packet[i]));
            }
        }
    });
}

RtpSink::~RtpSink()
{
    stop_ = true;
    thread_.join();
    ::close(socket_);
}

std::size_t RtpSink::packets() const
{
    const std::lock_guard lock(mutex_);
    return packets_;
}

std::vector<std::int16_t> RtpSink::samples() const
{
    const std::lock_guard lock(mutex_);
    return samples_;
}

Clock::time_point RtpSink::lastAudio() const
{
    const std::lock_guard lock(mutex_);
    return lastAudio_;
}

void RtpSink::sendKey(int port, char key)
{
    const std::string keys = "0123456789*#";
    const auto event = static_cast<unsigned char>(keys.find(key));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    static std::uint16_t sequence = 1000;
    static std::uint32_t timestamp = 160000;
    timestamp += 8000;
    // Three updates 50 ms apart, then the end of the event three times, as telephones send it.
    for (int i = 0; i < 6; ++i) {
        const bool end = i >= 3;
        const auto duration = static_cast<std::uint16_t>(400 * std::min(i + 1, 3));
        const unsigned char packet[16] = {0x80, static_cast<unsigned char>((i == 0 ? 0x80 : 0) | 101),
                                          static_cast<unsigned char>(sequence >> 8), static_cast<unsigned char>(sequence),
                                          static_cast<unsigned char>(timestamp >> 24), static_cast<unsigned char>(timestamp >> 16),
                                          static_cast<unsigned char>(timestamp >> 8), static_cast<unsigned char>(timestamp),
                                          0x12, 0x34, 0x56, 0x78, event, static_cast<unsigned char>((end ? 0x80 : 0) | 10),
                                          static_cast<unsigned char>(duration >> 8), static_cast<unsigned char>(duration)};
        ++sequence;
        ::sendto(socket_, packet, sizeof packet, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
        if (i < 3) std::this_thread::sleep_for(50ms);
    }
}

// --- Wave files ---

double rms(const std::vector<std::int16_t>& samples)
{
    if (samples.empty()) return 0;
    double sum = 0;
    for (const std::int16_t s : samples) sum += static_cast<double>(s) * s;
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

WaveFacts waveFacts(const fs::path& path)
{
    WaveFacts facts;
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) return facts;
    facts.readable = true;
    facts.rate = info.samplerate;
    facts.channels = info.channels;
    facts.pcm16 = (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV && (info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16;
    std::vector<std::int16_t> samples(static_cast<std::size_t>(info.frames * info.channels));
    samples.resize(static_cast<std::size_t>(sf_read_short(file, samples.data(), static_cast<sf_count_t>(samples.size()))));
    sf_close(file);
    facts.seconds = info.samplerate > 0 ? static_cast<double>(info.frames) / info.samplerate : 0;
    facts.rms = rms(samples);

    const std::string bytes = readText(path);
    if (bytes.size() >= 12 && little32(bytes, 4) == bytes.size() - 8) {
        for (std::size_t at = 12; at + 8 <= bytes.size();) {
            const std::uint32_t size = little32(bytes, at + 4);
            if (bytes.compare(at, 4, "data") == 0) {
                facts.headerSizesRight = size == bytes.size() - at - 8;
                break;
            }
            at += 8 + size + (size & 1);
        }
    }
    return facts;
}

// --- Processes ---

long cpuTicks(int pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    const std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    long ticks = 0;
    for (int i = 3; fields >> field && i <= 15; ++i) {
        if (i >= 14) ticks += std::stol(field); // utime and stime
    }
    return ticks;
}

long kilobytes(int pid, const std::string& file, const std::string& field)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/" + file);
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(field, 0) == 0) return std::stol(line.substr(field.size()));
    }
    return 0;
}

long openDescriptors(int pid)
{
    long count = 0;
    std::error_code error;
    for (auto it = fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error); !error && it != fs::directory_iterator();
         it.increment(error))
        ++count;
    return count;
}

} // namespace corvel::e2e

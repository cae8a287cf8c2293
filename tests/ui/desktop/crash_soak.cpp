#include "ui/desktop/crash_soak.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sndfile.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusReply>
#include <QDeadlineTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <optional>
#include <random>
#include <regex>
#include <set>
#include <utility>

namespace corvel::e2e {
namespace {

namespace fs = std::filesystem;

constexpr const char* service = "org.corvel.Corvel";
constexpr const char* corvelPath = "/org/corvel/Corvel";
constexpr const char* linePath = "/org/corvel/Corvel/TestLine";
constexpr const char* busName = "corvel-crash-soak";
constexpr int longestBurstMs = 800;
// A caller's hang-up closes the line and opens it again a second later; only then is the message told.
constexpr int longestCallBurstMs = 2000;
constexpr int pictureCount = 3;
constexpr int writesAtOnce = 4;

// Runs the event loop until `done` holds or `ms` pass; whether it held.
bool waitFor(const std::function<bool()>& done, int ms)
{
    const QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

std::string readText(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> all;
    std::size_t at = 0;
    while (at < text.size()) {
        std::size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(at, end - at);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        all.push_back(std::move(line));
        at = end + 1;
    }
    return all;
}

// 50 ms of silence at the line's rate.
void writeBlip(const fs::path& path)
{
    SF_INFO info{};
    info.samplerate = 8000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) throw std::runtime_error("cannot write " + path.string());
    const std::vector<short> silence(400, 0);
    sf_write_short(file, silence.data(), static_cast<sf_count_t>(silence.size()));
    sf_close(file);
}

// Children end with the harness, however it ends: an interrupted soak leaves no Corvel running.
void endWithParent(QProcess& child)
{
    child.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

// The bus daemon of the harness's own, so that no Corvel of the user's is ever reached.
class PrivateBus {
public:
    PrivateBus()
    {
        endWithParent(daemon_);
        daemon_.start("dbus-daemon", {"--session", "--nofork", "--print-address=1"});
        if (!daemon_.waitForReadyRead(10000)) throw std::runtime_error("dbus-daemon did not start");
        address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
        bus_ = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(address_, busName));
        if (!bus_->isConnected()) throw std::runtime_error("cannot connect to the harness's own bus");
    }
    ~PrivateBus()
    {
        bus_.reset();
        QDBusConnection::disconnectFromBus(busName);
        daemon_.kill();
        daemon_.waitForFinished(5000);
    }
    const QString& address() const { return address_; }
    QDBusConnection& connection() { return *bus_; }

private:
    QProcess daemon_;
    QString address_;
    std::unique_ptr<QDBusConnection> bus_;
};

// One write the harness asks for, as the bus method and its effect on the records.
struct Write {
    enum class Kind { SetEntry, RemoveEntry, SetPicture, RemovePicture, SetOption, PlayNew, CallerHangsUp };
    Kind kind;
    std::string key;
    std::string value; // a name, a picture's number in the harness's list, an option's value
};

// What the directory, the picture list and the options hold: number or key to name, picture or value.
struct Records {
    std::map<std::string, std::string> entries;
    std::map<std::string, std::string> pictures;
    std::map<std::string, std::string> options;

    void apply(const Write& write)
    {
        switch (write.kind) {
        case Write::Kind::SetEntry: entries[write.key] = write.value; break;
        case Write::Kind::RemoveEntry: entries.erase(write.key); break;
        case Write::Kind::SetPicture: pictures[write.key] = write.value; break;
        case Write::Kind::RemovePicture: pictures.erase(write.key); break;
        case Write::Kind::SetOption: options[write.key] = write.value; break;
        case Write::Kind::PlayNew:
        case Write::Kind::CallerHangsUp: break;
        }
    }
};

// A value a key may have: nothing (absent) or a text.
using Value = std::optional<std::string>;
Value valueIn(const std::map<std::string, std::string>& map, const std::string& key)
{
    const auto found = map.find(key);
    return found == map.end() ? Value() : Value(found->second);
}

// The callers whose message Corvel told as recorded (MessageRecorded): it says so once the file is there.
class RecordedMessages final : public QObject {
    Q_OBJECT

public:
    std::set<std::string> callers;

public slots:
    void recorded(const QString&, const QString& caller) { callers.insert(caller.toStdString()); }
};

class CrashSoak {
public:
    CrashSoak(unsigned seed, CrashReport& report) : random_(seed), report_(report)
    {
        root_ = fs::path(folders_.path().toStdString());
        for (const char* folder : {"config", "data", "pictures", "xdg_cache", "xdg_config", "xdg_data", "runtime", "home"})
            fs::create_directories(root_ / folder);
        fs::permissions(root_ / "runtime", fs::perms::owner_all, fs::perm_options::replace);
        // Every prompt, and each digit of the caller's number read back, a blip: a message in a second.
        const fs::path blip = data() / "blip.wav";
        writeBlip(blip);
        for (const char* name : {"from", "0", "1", "2", "3", "4", "5", "6", "7", "8", "9"})
            fs::copy_file(blip, data() / (std::string(name) + ".wav"));
        std::ofstream conf(root_ / "config" / "corvel.conf");
        conf << "[withheld/data]\nrings=1\nallcalls=True\nmodem=0\nnotifications=False\n[withheld/audio]\n";
        for (const char* prompt : {"morning", "afternoon", "evening", "number", "nobody", "leavemessage", "connect"})
            conf << prompt << "=" << blip.string() << "\n";
        // Pictures of different sizes, so that a copy takes a while; each whole one is known.
        for (int p = 0; p < pictureCount; ++p) {
            std::string picture = "GIF89a picture " + std::to_string(p) + "\n";
            picture.resize(static_cast<std::size_t>(40000) << (2 * p), static_cast<char>('a' + p));
            std::ofstream(picturePath(p), std::ios::binary) << picture;
            pictures_.push_back(picture);
        }
    }
    ~CrashSoak() { stop(); }

    bool listen()
    {
        return bus_.connection().connect(service, corvelPath, "org.corvel.Corvel", "MessageRecorded", &recorded_,
                                         SLOT(recorded(QString, QString)));
    }

    // One round: a fresh Corvel, the check of what the last kill left, a burst of writes and a kill.
    bool round(int kill, const std::function<void(int, const std::string&)>& progress)
    {
        if (!start()) return false;
        if (kill > 1) check(kill - 1, progress);
        if (kill > report_.kills) return true; // the last round only checks
        burst(kill);
        return true;
    }

    void stop()
    {
        if (corvel_.state() == QProcess::NotRunning) return;
        corvel_.terminate();
        if (!corvel_.waitForFinished(10000)) corvel_.kill();
        corvel_.waitForFinished(5000);
    }

private:
    fs::path picturePath(int p) const { return root_ / "pictures" / ("picture" + std::to_string(p) + ".gif"); }
    fs::path data() const { return root_ / "data"; }
    int draw(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }

    QDBusMessage request(const char* path, const char* interface, const QString& method, const QVariantList& arguments = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
        message.setArguments(arguments);
        return message;
    }
    QDBusMessage corvel(const QString& method, const QVariantList& arguments = {})
    {
        return request(corvelPath, "org.corvel.Corvel", method, arguments);
    }
    QDBusMessage caller(const QString& method, const QVariantList& arguments = {})
    {
        return request(linePath, "org.corvel.Corvel.TestLine", method, arguments);
    }
    QVariantMap status() { return QDBusReply<QVariantMap>(bus_.connection().call(corvel("Status"))).value(); }
    QString lineState()
    {
        const QDBusMessage reply = bus_.connection().call(request(linePath, "org.freedesktop.DBus.Properties", "Get",
                                                                  {"org.corvel.Corvel.TestLine", "State"}));
        return reply.arguments().isEmpty() ? QString() : reply.arguments()[0].value<QDBusVariant>().variant().toString();
    }
    bool waitForPhase(const QString& phase) { return waitFor([&] { return status()["phase"] == phase; }, 10000); }

    bool start()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char* folder : {"XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"})
            environment.insert(folder, QString::fromStdString((root_ / QString(folder).toLower().toStdString()).string()));
        environment.insert("XDG_RUNTIME_DIR", QString::fromStdString((root_ / "runtime").string()));
        environment.insert("HOME", QString::fromStdString((root_ / "home").string()));
        environment.insert("DBUS_SESSION_BUS_ADDRESS", bus_.address());
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        corvel_.setProcessEnvironment(environment);
        corvel_.setProcessChannelMode(QProcess::MergedChannels);
        corvel_.setStandardOutputFile(QString::fromStdString((root_ / "corvel.log").string()), QIODevice::Append);
        endWithParent(corvel_);
        corvel_.start(CORVEL_BINARY, {"--headless", "--line", "test", "--config-dir",
                                      QString::fromStdString((root_ / "config").string()), "--data-dir",
                                      QString::fromStdString(data().string()), "--web-site", "http://127.0.0.1:9/"});
        // The name of this Corvel, not of the one just killed that the bus may not have let go of yet.
        const auto pid = static_cast<uint>(corvel_.processId());
        if (waitFor([&] { return bus_.connection().interface()->servicePid(service).value() == pid; }, 20000)) return true;
        ++report_.failedStarts;
        report_.failures.push_back("a fresh Corvel did not come onto the bus; its log ends:\n" + logTail());
        stop();
        return false;
    }

    std::string logTail() const
    {
        const std::string log = readText(root_ / "corvel.log");
        return log.substr(log.size() > 3000 ? log.size() - 3000 : 0);
    }

    // A withheld caller keys their number and is asked for a message, which is being recorded
    // when this returns true.
    bool callerRecords(const std::string& number)
    {
        if (bus_.connection().call(caller("Ring", {"withheld", "", ""})).type() != QDBusMessage::ReplyMessage ||
            !waitForPhase("asking-number"))
            return false;
        bus_.connection().call(caller("PressKeys", {QString::fromStdString(number + "#")}));
        if (!waitForPhase("putting-through")) return false;
        bus_.connection().call(corvel("TakeMessage"));
        if (!waitForPhase("taking-message")) return false;
        bus_.connection().call(caller("PressKeys", {"1"}));
        return waitFor([&] { return lineState() == "recording"; }, 10000);
    }

    Write drawWrite()
    {
        const auto number = [&](int pool) { return "0161496" + std::to_string(100 + draw(0, pool - 1)); };
        switch (draw(0, 9)) {
        case 0:
        case 1: return {Write::Kind::SetEntry, number(12), "Caller " + std::to_string(draw(0, 99999))};
        case 2: return {Write::Kind::RemoveEntry, number(12), {}};
        case 3:
        case 4: return {Write::Kind::SetPicture, number(8), std::to_string(draw(0, pictureCount - 1))};
        case 5: return {Write::Kind::RemovePicture, number(8), {}};
        case 6:
        case 7: return {Write::Kind::SetOption, "soak" + std::to_string(draw(1, 6)), "v" + std::to_string(draw(0, 99999))};
        default: return {Write::Kind::PlayNew, {}, {}};
        }
    }

    QDBusMessage message(const Write& write)
    {
        const QString key = QString::fromStdString(write.key), value = QString::fromStdString(write.value);
        switch (write.kind) {
        case Write::Kind::SetEntry: return corvel("SetDirectoryEntry", {key, value});
        case Write::Kind::RemoveEntry: return corvel("RemoveDirectoryEntry", {key});
        case Write::Kind::SetPicture:
            return corvel("SetCallerPicture", {key, QString::fromStdString(picturePath(std::stoi(write.value)).string())});
        case Write::Kind::RemovePicture: return corvel("RemoveCallerPicture", {key});
        case Write::Kind::SetOption: return corvel("SetOption", {key, value});
        case Write::Kind::PlayNew: return corvel("PlayNewMessage");
        case Write::Kind::CallerHangsUp: break;
        }
        return caller("HangUp");
    }

    void burst(int kill)
    {
        inFlight_.reset();
        // A message in about half the rounds, while there is room among the new ones.
        std::optional<std::string> recording;
        if (draw(0, 1) == 0 && status()["new-messages"].toInt() < 40) {
            const std::string number = std::to_string(++callers_);
            if (callerRecords(number)) recording = number;
            else report_.failures.push_back("kill " + std::to_string(kill) + ": the test caller could not leave a message");
        }
        // Writes are sent, a few at a time, until the kill, so that it lands while Corvel writes;
        // the caller hangs up, and their message is written, somewhere among them.
        std::vector<Write> writes;
        std::vector<QDBusPendingCall> replies;
        const auto unanswered = [&] {
            return std::count_if(replies.begin(), replies.end(), [](const QDBusPendingCall& r) { return !r.isFinished(); });
        };
        const int hangUpAt = recording ? draw(0, 12) : -1;
        const int delay = draw(0, recording ? longestCallBurstMs : longestBurstMs);
        const QDeadlineTimer killAt(delay);
        do {
            while (unanswered() < writesAtOnce) {
                writes.push_back(std::cmp_equal(writes.size(), hangUpAt) ? Write{Write::Kind::CallerHangsUp, *recording, {}}
                                                                          : drawWrite());
                replies.push_back(bus_.connection().asyncCall(message(writes.back())));
            }
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        } while (!killAt.hasExpired());
        ::kill(static_cast<pid_t>(corvel_.processId()), SIGKILL);
        corvel_.waitForFinished(10000);
        // A reply that left Corvel before it died is a write it finished; the rest end in errors.
        waitFor([&] { return unanswered() == 0; }, 10000);

        std::size_t answered = 0;
        for (std::size_t i = 0; i < replies.size(); ++i)
            if (replies[i].isFinished() && !replies[i].isError()) answered = i + 1; // in order: all before it were done
        // What the records may be now: the answered writes applied, and any further ones in turn.
        Records next = records_;
        for (std::size_t i = 0; i < answered; ++i) next.apply(writes[i]);
        allowed_ = {next};
        for (std::size_t i = answered; i < writes.size(); ++i) {
            next.apply(writes[i]);
            allowed_.push_back(next);
        }
        if (recording) {
            if (recorded_.callers.contains(*recording)) messages_.insert(*recording);
            else inFlight_ = recording;
        }
        killLine_ = "killed " + std::to_string(delay) + " ms into a burst, " + std::to_string(answered) + " of " +
                    std::to_string(writes.size()) + " writes answered" +
                    (inFlight_ ? ", a message in flight" : recording ? ", a message written" : "");
    }

    // Each key's value found, against the values it may have: counted as lost when it is none of them.
    void expectAllowed(const char* what, std::map<std::string, std::string> Records::*map, const Records& found,
                       std::vector<std::string>& problems)
    {
        std::set<std::string> keys;
        for (const Records& allowed : allowed_)
            for (const auto& [key, value] : allowed.*map) keys.insert(key);
        for (const auto& [key, value] : found.*map) keys.insert(key);
        for (const std::string& key : keys) {
            const Value there = valueIn(found.*map, key);
            if (std::any_of(allowed_.begin(), allowed_.end(), [&](const Records& r) { return valueIn(r.*map, key) == there; }))
                continue;
            ++report_.lost;
            problems.push_back(std::string(what) + " " + key + " is " + there.value_or("(absent)") + ", expected " +
                               valueIn(allowed_.front().*map, key).value_or("(absent)"));
        }
    }

    void check(int kill, const std::function<void(int, const std::string&)>& progress)
    {
        std::vector<std::string> problems;
        Records found;
        checkSettings(found, problems);
        checkDirectory(found, problems);
        checkPictures(found, problems);
        expectAllowed("entry", &Records::entries, found, problems);
        expectAllowed("picture", &Records::pictures, found, problems);
        expectAllowed("option", &Records::options, found, problems);
        checkMessages(problems);
        checkScratchFiles(problems);
        // What is there now is where the next round starts from: a write in flight went one way or the other.
        records_ = found;
        for (const std::string& problem : problems) report_.failures.push_back("kill " + std::to_string(kill) + ": " + problem);
        std::string line = killLine_ + (problems.empty() ? "; all there" : "; " + std::to_string(problems.size()) + " faults");
        for (const std::string& problem : problems) line += "\n        " + problem;
        progress(kill, line);
        clearOldMessages();
    }

    void checkSettings(Records& found, std::vector<std::string>& problems)
    {
        const std::string text = readText(root_ / "config" / "corvel.conf");
        bool whole = !text.empty() && text.back() == '\n', inData = false, rings = false;
        for (const std::string& line : lines(text)) {
            if (line.empty() || line[0] == ';' || line[0] == '#') continue;
            if (line.front() == '[') {
                whole = whole && line.back() == ']';
                inData = line == "[withheld/data]";
                continue;
            }
            const auto equals = line.find('=');
            if (equals == std::string::npos) {
                whole = false;
                continue;
            }
            const std::string key = line.substr(0, equals), value = line.substr(equals + 1);
            if (inData && key == "rings") rings = value == "1";
            if (inData && key.starts_with("soak")) found.options[key] = value;
        }
        if (whole && rings) return;
        ++report_.tornFiles;
        problems.push_back("corvel.conf does not read whole:\n" + text);
    }

    void checkDirectory(Records& found, std::vector<std::string>& problems)
    {
        std::map<std::string, int> seen;
        for (const std::string& line : lines(readText(data() / "directory.ini"))) {
            const auto comma = line.find(',');
            const std::string number = line.substr(0, comma);
            if (comma == std::string::npos || !number.starts_with("0161496")) {
                ++report_.tornFiles;
                problems.push_back("directory.ini holds the line \"" + line + "\"");
                continue;
            }
            if (++seen[number] == 2) {
                ++report_.doubled;
                problems.push_back("directory.ini holds " + number + " twice");
            }
            found.entries.emplace(number, line.substr(comma + 1));
        }
    }

    void checkPictures(Records& found, std::vector<std::string>& problems)
    {
        std::map<std::string, int> seen;
        for (const std::string& number : lines(readText(data() / "piclist.txt"))) {
            if (++seen[number] == 2) {
                ++report_.doubled;
                problems.push_back("piclist.txt lists " + number + " twice");
            }
            const std::string picture = readText(data() / (number + ".gif"));
            const auto which = std::find(pictures_.begin(), pictures_.end(), picture);
            if (which == pictures_.end()) {
                ++report_.tornFiles;
                problems.push_back(number + ".gif is listed but not a whole picture (" + std::to_string(picture.size()) + " bytes)");
                found.pictures.emplace(number, "?");
                continue;
            }
            found.pictures.emplace(number, std::to_string(which - pictures_.begin()));
        }
    }

    void checkMessages(std::vector<std::string>& problems)
    {
        static const std::regex name(R"(([12])-(\d+)-(.*)\.wav)");
        std::map<std::string, int> perCaller;
        std::map<int, std::vector<int>> filled; // kind -> slots, in any order
        for (const auto& entry : fs::directory_iterator(data())) {
            const std::string file = entry.path().filename().string();
            std::smatch parts;
            if (!std::regex_match(file, parts, name)) continue;
            ++perCaller[parts[3]];
            filled[std::stoi(parts[1])].push_back(std::stoi(parts[2]));
            SF_INFO info{};
            SNDFILE* sound = sf_open(entry.path().c_str(), SFM_READ, &info);
            if (!sound || info.samplerate <= 0) {
                ++report_.brokenMessages;
                problems.push_back(file + " does not open as sound");
            }
            if (sound) sf_close(sound);
        }
        for (const std::string& left : messages_) {
            if (perCaller[left] == 0) {
                ++report_.messagesLost;
                problems.push_back("the message from " + left + " is gone");
            }
        }
        for (const auto& [from, count] : perCaller) {
            const bool known = messages_.contains(from) || inFlight_ == from;
            if (count > 1 || !known) {
                ++report_.messagesDoubled;
                problems.push_back("the message from " + from + (known ? " is there " + std::to_string(count) + " times" : " was left by nobody"));
            }
        }
        if (inFlight_ && perCaller[*inFlight_] > 0) messages_.insert(*inFlight_);
        const QVariantMap counts = status();
        for (const auto& [kind, field] : std::map<int, const char*>{{1, "new-messages"}, {2, "old-messages"}}) {
            std::vector<int>& taken = filled[kind];
            std::sort(taken.begin(), taken.end());
            std::vector<int> run(taken.size());
            std::iota(run.begin(), run.end(), 1);
            if (taken == run && counts[field].toInt() == static_cast<int>(taken.size())) continue;
            ++report_.messagesMiscounted;
            problems.push_back(std::string(field) + ": Corvel counts " + std::to_string(counts[field].toInt()) + " of " +
                               std::to_string(taken.size()) + " files");
        }
    }

    // Scratch files an interrupted write left in the data folder, still there once a fresh Corvel
    // has started. (The settings' own scratch file is written afresh by every change.)
    void checkScratchFiles(std::vector<std::string>& problems)
    {
        for (const auto& entry : fs::directory_iterator(data())) {
            const std::string file = entry.path().filename().string();
            if (file.ends_with(".part")) {
                ++report_.scratchLeft;
                problems.push_back("the scratch file " + file + " is left");
            }
        }
    }

    // The old messages go now and then, so that their slots never run out.
    void clearOldMessages()
    {
        std::vector<fs::path> old;
        for (const auto& entry : fs::directory_iterator(data()))
            if (entry.path().filename().string().starts_with("2-") && entry.path().extension() == ".wav") old.push_back(entry.path());
        if (old.size() < 30) return;
        for (const fs::path& file : old) {
            const std::string name = file.filename().string();
            messages_.erase(name.substr(name.find('-', 2) + 1, name.size() - 4 - name.find('-', 2) - 1));
            fs::remove(file);
        }
    }

    std::mt19937 random_;
    CrashReport& report_;
    QTemporaryDir folders_;
    fs::path root_;
    PrivateBus bus_;
    QProcess corvel_;
    std::vector<std::string> pictures_;
    Records records_;
    std::vector<Records> allowed_{Records{}};
    RecordedMessages recorded_;
    std::set<std::string> messages_;       // callers whose message was told as recorded
    std::optional<std::string> inFlight_; // a message being written at the kill
    int callers_ = 100000;
    std::string killLine_;
};

} // namespace

CrashReport crashSoak(int kills, unsigned seed, const std::function<void(int, const std::string&)>& progress)
{
    CrashReport report;
    report.kills = kills;
    CrashSoak soak(seed, report);
    if (!soak.listen()) {
        report.failures.push_back("cannot follow Corvel's MessageRecorded signal");
        report.kills = 0;
        return report;
    }
    for (int kill = 1; kill <= kills + 1; ++kill) {
        if (!soak.round(kill, progress)) {
            report.kills = kill - 1;
            break;
        }
    }
    soak.stop();
    return report;
}

} // namespace corvel::e2e

#include "crash_soak.moc"

// The modem driver on the emulator: setting the modem up, and what the driver does when the
// modem misbehaves or its port is taken, locked or named by a long path.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>

#include "modem_line_fixture.h"
#include "telephony/modem/modem_probe.h"
#include "telephony/modem/voice_codec.h"

namespace corvel::testing {
namespace {

// --- Setting up, rings and caller ID ---

TEST_F(ModemLineTest, SetsTheModemUpForVoiceAndIdlesInDataClassWithCallerIdOn)
{
    line.setLineOpen(true);
    loop.runFor(3s);
    EXPECT_TRUE(line.lineOpen());
    EXPECT_THAT(modem().commands(),
                ElementsAre("ATZ", "ATE0V1Q0", "AT+VCID=1", "ATS0=0", "AT+FCLASS=8", "AT+VSM=?", "AT-STE=?", "AT+VIT=0",
                            "AT+VGT=128", "AT+VGR=128", "AT+VSD=128,50", "AT+FCLASS=0"));
    ASSERT_TRUE(line.codec());
    EXPECT_EQ(line.codec()->compression.name, "Mu-Law") << "chosen by name from the list";
    EXPECT_EQ(line.providerName(), "Conexant");
    EXPECT_EQ(line.ownerApplication(), ownLineControl);
}


// --- A modem that misbehaves ---

TEST_F(ModemLineTest, AStubbornModemIsStoppedWithTheTripleDle)
{
    modem().faults().tripleDleToStop = true;
    answerCall();
    play((folder / "one.wav").string(), true);
    loop.runFor(300ms);
    line.setPlaying(false);
    loop.runFor(3s);
    EXPECT_TRUE(modem().inCommandState()) << modem().transcriptText();
    line.setRecordFile((folder / "message.wav").string());
    line.setRecording(true);
    loop.runFor(500ms);
    line.setRecording(false);
    loop.runFor(3s);
    EXPECT_TRUE(modem().inCommandState());
    EXPECT_TRUE(captured.has("stubborn"));
}

TEST_F(ModemLineTest, RefusedFlowControlAndEchoAfterResetDoNotStopACall)
{
    modem().faults().refuseFlowControl = true;
    modem().faults().echoAfterReset = true;
    answerCall();
    play((folder / "two.wav").string());
    loop.runUntil([&] { return events.count("playDone") > 0; });
    EXPECT_THAT(heardFiles(), ElementsAre("two.wav"));
}

TEST_F(ModemLineTest, KeysHeardOnlyWhileRecordingAreListenedForWithoutARecording)
{
    VirtualEventLoop otherLoop;
    ModemEmulator emulator(otherLoop, {});
    emulator.faults().noKeysInCommandState = true;
    std::string lockPattern = (std::filesystem::temp_directory_path() / "corvel-lock-XXXXXX").string();
    const std::filesystem::path locks = ::mkdtemp(lockPattern.data());
    modem::ModemOptions options = EmulatedModemLine::optionsFor(emulator, locks);
    options.keysOnlyWhileRecording = true;
    modem::ModemLine driver(otherLoop, options);
    driver.setModems({{emulator.port(), "test", "Conexant", modem::Dialect::V253, false}});
    RecordingLineEvents otherEvents{otherLoop};
    driver.setListener(&otherEvents);
    driver.setLineOpen(true);
    ScriptedCall call;
    call.identity = ScriptedCall::Identity::Withheld;
    call.keys = {{3s, '7'}};
    emulator.placeCall(call);
    otherLoop.runUntil([&] { return otherEvents.count("ring 1") > 0; });
    driver.answer();
    otherLoop.runUntil([&] { return otherEvents.count("connected") > 0; });
    driver.setDigitMonitoring(true);
    otherLoop.runFor(10s);
    EXPECT_EQ(otherEvents.count("digit 7"), 1);
    EXPECT_EQ(otherEvents.count("callerHungUp"), 0) << "silence while only listening is no hang-up";
    driver.setListener(nullptr);
    std::filesystem::remove_all(locks);
}

TEST_F(ModemLineTest, AModemThatStopsAnsweringIsReportedWhenTheLineCloses)
{
    modem().faults().deaf = true;
    line.setLineOpen(true);
    loop.runFor(60s);
    EXPECT_TRUE(captured.has("does not answer"));
    line.setLineOpen(false);
    EXPECT_NE(line.lastError(), 0);
}

TEST_F(ModemLineTest, AModemPulledOutEndsTheCallAndTheCloseReportsIt)
{
    answerCall();
    line.modem().unplug();
    loop.runFor(1s);
    EXPECT_EQ(events.count("callerHungUp"), 1);
    EXPECT_TRUE(captured.has("lost the modem"));
    line.setLineOpen(false);
    EXPECT_NE(line.lastError(), 0);
}

TEST_F(ModemLineTest, GarbageFromThePortIsLoggedAndTheNextCallIsTakenAsUsual)
{
    line.setLineOpen(true);
    loop.runFor(3s);
    // What a noisy cable might deliver: every byte value, <DLE> codes, endless lines.
    std::string junk;
    for (int i = 0; i < 20000; ++i) junk.push_back(static_cast<char>((i * 7919 + 13) % 256));
    junk += std::string(3000, 'x') + "\r\n";
    for (const std::string& skip : {std::string("RING"), std::string("R")}) {
        for (auto at = junk.find(skip); at != std::string::npos; at = junk.find(skip, at)) junk[at] = '?';
    }
    modem().sendRaw(junk);
    loop.runFor(1s);
    EXPECT_EQ(events.count("ring 1"), 0);
    EXPECT_TRUE(captured.has("the modem said, unasked"));
    events.events.clear();
    answerCall();
    play((folder / "two.wav").string());
    loop.runUntil([&] { return events.count("playDone") > 0; });
    EXPECT_THAT(heardFiles(), ElementsAre("two.wav"));
}

// --- Ports and locks ---

TEST(ModemPorts, AnotherProgramsLockKeepsTheLineWaitingAndNamesTheOwner)
{
    VirtualEventLoop loop;
    ModemEmulator emulator(loop, {});
    std::string lockPattern = (std::filesystem::temp_directory_path() / "corvel-lock-XXXXXX").string();
    const std::filesystem::path locks = ::mkdtemp(lockPattern.data());
    // A running program with a telling name holds the port's lock.
    const pid_t other = ::fork();
    if (other == 0) {
        ::prctl(PR_SET_NAME, "OtherPhone.exe");
        ::pause();
        ::_exit(0);
    }
    ASSERT_GT(other, 0);
    for (int tries = 0; tries < 200; ++tries) { // until the child has its name
        std::ifstream comm("/proc/" + std::to_string(other) + "/comm");
        std::string name;
        if (std::getline(comm, name) && name == "OtherPhone.exe") break;
        ::usleep(1000);
    }
    const auto lockFile = modem::UucpLock::pathFor(locks, emulator.port());
    std::ofstream(lockFile) << "     " << other << "\n";

    modem::ModemLine line(loop, EmulatedModemLine::optionsFor(emulator, locks));
    line.setModems({{emulator.port(), "test", "Conexant", modem::Dialect::V253, false}});
    RecordingLineEvents events{loop};
    line.setListener(&events);
    line.setLineOpen(true);
    EXPECT_FALSE(line.lineOpen());
    EXPECT_EQ(line.lastError(), EBUSY);
    EXPECT_EQ(line.ownerApplication(), "OtherPhone.exe");
    loop.runFor(1s);
    EXPECT_EQ(events.count("callOwnerChanged"), 1);

    // The other program ends, leaving its lock behind: the lock is stale and the port ours.
    ::kill(other, SIGKILL);
    ::waitpid(other, nullptr, 0);
    loop.runFor(6s);
    EXPECT_TRUE(line.lineOpen());
    EXPECT_EQ(line.ownerApplication(), ownLineControl);
    std::ifstream mine(lockFile);
    int pid = 0;
    mine >> pid;
    EXPECT_EQ(pid, ::getpid());
    line.setLineOpen(false);
    EXPECT_FALSE(std::filesystem::exists(lockFile)) << "our lock goes with the port";
    line.setListener(nullptr);
    std::filesystem::remove_all(locks);
}

// A link of exactly `length` characters to `target`, made where nothing else is: the short
// ones straight in /tmp, the longer ones in a folder of their own, as /dev/serial/by-id has.
std::filesystem::path linkOfLength(std::size_t length, const std::filesystem::path& target, const std::filesystem::path& folder)
{
    const std::string base = length < folder.string().size() + 2 ? std::string("/tmp/") : folder.string() + "/";
    for (unsigned tries = 0;; ++tries) {
        std::string name(length - base.size(), 'c');
        const std::string id = std::to_string(tries).substr(0, name.size());
        name.replace(name.size() - id.size(), id.size(), id);
        const std::filesystem::path link = base + name;
        if (::symlink(target.c_str(), link.c_str()) == 0) return link;
        if (errno != EEXIST || tries > 1000) throw std::runtime_error("cannot make " + link.string());
    }
}

TEST(ModemPorts, AModemOnAPortPathOfAnyLengthStartsAnswersAndHangsUp)
{
    VirtualEventLoop loop;
    ModemEmulator emulator(loop, {});
    std::string pattern = (std::filesystem::temp_directory_path() / "corvel-ports-XXXXXX").string();
    const std::filesystem::path folder = ::mkdtemp(pattern.data());
    const std::filesystem::path locks = folder / "locks";
    std::filesystem::create_directory(locks);
    // /dev/serial/by-id links of USB modems are 34 to 55 characters long.
    for (std::size_t length = 8; length <= 80; ++length) {
        SCOPED_TRACE("a port path of " + std::to_string(length) + " characters");
        const std::filesystem::path port = linkOfLength(length, emulator.port(), folder);
        ASSERT_EQ(port.string().size(), length);
        {
            modem::ModemOptions options = EmulatedModemLine::optionsFor(emulator, locks);
            options.ports = {port};
            modem::ModemLine line(loop, options);
            line.setModems({{port, "test", "Conexant", modem::Dialect::V253, false}});
            RecordingLineEvents events{loop};
            line.setListener(&events);
            line.setLineOpen(true);
            loop.runFor(3s);
            ASSERT_TRUE(line.lineOpen());
            ScriptedCall call;
            call.identity = ScriptedCall::Identity::Withheld;
            emulator.placeCall(call);
            loop.runUntil([&] { return events.count("ring 2") > 0; });
            line.answer();
            loop.runUntil([&] { return events.count("connected") > 0; });
            line.setCallActive(false);
            line.drop();
            loop.runFor(2s);
            EXPECT_FALSE(emulator.offHook());
            line.setLineOpen(false);
            line.setListener(nullptr);
        }
        std::filesystem::remove(port);
    }
    std::filesystem::remove_all(folder);
}

TEST(ModemPorts, TheProbeFindsVoiceModemsByWhatTheyCanDoAndSkipsTheRest)
{
    VirtualEventLoop loop;
    ModemEmulator conexant(loop, {});
    ModemEmulator agere(loop, {Persona::Agere, ModemEmulator::Region::NorthAmerica, {}});
    ModemEmulator silent(loop, {Persona::Conexant, ModemEmulator::Region::NorthAmerica, Faults{.deaf = true}});
    ModemEmulator voiceAs80(loop, {Persona::Conexant, ModemEmulator::Region::NorthAmerica, Faults{.voiceClassAs80 = true}});
    std::string lockPattern = (std::filesystem::temp_directory_path() / "corvel-lock-XXXXXX").string();
    const std::filesystem::path locks = ::mkdtemp(lockPattern.data());
    CapturedLog captured;
    modem::ModemOptions options;
    options.ports = {conexant.port(), silent.port(), "/dev/corvel-no-such-port", agere.port(), voiceAs80.port()};
    options.lockFolder = locks;
    modem::ModemLine line(loop, options);
    bool done = false;
    line.probe([&] { done = true; });
    loop.runUntil([&] { return done; });
    const auto devices = line.devices();
    ASSERT_EQ(devices.size(), 3u);
    EXPECT_EQ(devices[0].name, "CX93001-EIS_V0.2013-V92 (" + conexant.port() + ")");
    EXPECT_EQ(line.modems()[0].family, "Conexant");
    EXPECT_EQ(line.modems()[1].family, "Agere/Lucent");
    EXPECT_EQ(line.modems()[2].port, voiceAs80.port());
    EXPECT_TRUE(captured.has("no voice modem on " + silent.port() + ": no modem answers there"));
    EXPECT_TRUE(captured.has("no voice modem on /dev/corvel-no-such-port"));
    EXPECT_TRUE(std::filesystem::is_empty(locks)) << "every lock given back";
    line.setDeviceNumber(1);
    EXPECT_EQ(line.providerName(), "Agere/Lucent");
    std::filesystem::remove_all(locks);
}

} // namespace
} // namespace corvel::testing

// The modem driver on the emulator, over a real pseudo-terminal, on the virtual loop: the
// fixture every test of the driver starts from.

#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/log.h"
#include "emulated_modem_line.h"
#include "support/recording_line_events.h"
#include "support/virtual_event_loop.h"
#include "support/wave_files.h"

namespace corvel::testing {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Faults = ModemEmulator::Faults;
using Persona = ModemEmulator::Persona;

// Log lines, kept for the test to read.
class CapturedLog {
public:
    CapturedLog()
    {
        log::setSink([this](log::Level, std::string_view line) { lines.emplace_back(line); });
    }
    ~CapturedLog() { log::setSink(nullptr); }
    bool has(std::string_view text) const
    {
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& l) { return l.find(text) != std::string::npos; });
    }
    std::vector<std::string> lines;
};

class ModemLineTest : public ::testing::Test {
protected:
    explicit ModemLineTest(ModemEmulator::Options options = {}) : line(loop, options)
    {
        line.setListener(&events);
        folder = std::filesystem::path(::mkdtemp(pattern.data()));
        writeTone(folder / "one.wav", 0.5, 500);
        writeTone(folder / "two.wav", 0.25, 900);
    }
    ~ModemLineTest() override
    {
        line.setListener(nullptr);
        std::filesystem::remove_all(folder);
    }

    ModemEmulator& modem() { return line.modem(); }
    Milliseconds modem_now() const { return line.modem().now(); }

    // Opens the line, rings it with `call`, answers on the second ring and runs until connected.
    void answerCall(ScriptedCall call = {})
    {
        line.setLineOpen(true);
        if (call.identity == ScriptedCall::Identity::None) call.identity = ScriptedCall::Identity::Withheld;
        line.placeCall(call);
        loop.runUntil([&] { return events.count("ring 2") > 0; });
        line.answer();
        loop.runUntil([&] { return events.count("connected") > 0; });
    }
    void play(const std::string& list, bool repeat = false)
    {
        line.setPlayList(list);
        line.setPlayRepeat(repeat);
        ASSERT_TRUE(line.startPlay());
    }
    std::vector<std::string> heardFiles() const
    {
        std::vector<std::string> names;
        for (const HeardPrompt& p : line.transcript()) names.push_back(std::filesystem::path(p.file).filename());
        return names;
    }
    // Every command since `from`.
    std::vector<std::string> commandsSince(std::size_t from) const
    {
        const auto all = line.modem().commands();
        return {all.begin() + static_cast<std::ptrdiff_t>(std::min(from, all.size())), all.end()};
    }

    std::string pattern = (std::filesystem::temp_directory_path() / "corvel-modem-XXXXXX").string();
    std::filesystem::path folder;
    VirtualEventLoop loop;
    EmulatedModemLine line;
    RecordingLineEvents events{loop};
    CapturedLog captured;
};

} // namespace corvel::testing

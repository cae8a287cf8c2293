#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "app/answer_phone.h"
#include "support/memory_settings_store.h"
#include "support/recording_agent.h"
#include "support/recording_view.h"
#include "support/virtual_event_loop.h"
#include "support/wave_files.h"
#include "telephony/testline/test_line.h"

namespace corvel::testing {

// Dates as an English locale writes them, for predictable log lines.
class FixedLocale final : public LocaleTexts {
public:
    std::string longDate(std::chrono::year_month_day date) const override
    {
        static constexpr const char* months[] = {"January", "February", "March",     "April",   "May",      "June",
                                                  "July",    "August",   "September", "October", "November", "December"};
        return std::to_string(static_cast<unsigned>(date.day())) + " " +
               months[static_cast<unsigned>(date.month()) - 1] + " " + std::to_string(static_cast<int>(date.year()));
    }
    std::string amText() const override { return "AM"; }
    std::string pmText() const override { return "PM"; }
};

// The speaker: remembers the files it was asked to play, by name.
class RecordingSpeaker final : public SoundOutput {
public:
    std::vector<std::string> played;
    void playfile(const std::string& filename) override
    {
        played.push_back(std::filesystem::path(filename).filename().string());
    }
    void stop() override { played.emplace_back("(stop)"); }
};

// The desktop: remembers what was opened; the browser is whatever `browser` says.
class RecordingShell final : public Shell {
public:
    std::vector<std::string> opened; // files and addresses, in order
    std::optional<std::string> browser = "browser.desktop";
    bool browserStarts = true;

    bool openFile(const std::filesystem::path& file) override
    {
        opened.push_back(file.filename());
        return true;
    }
    std::optional<std::string> webBrowser() override { return browser; }
    bool startBrowser(const std::string& program, const std::string& address) override
    {
        opened.push_back(program + " " + address);
        return browserStarts;
    }
    struct Command {
        std::vector<std::string> arguments;
        std::vector<std::pair<std::string, std::string>> environment;
    };
    std::vector<Command> commands; // started, in order
    void startCommand(const std::vector<std::string>& arguments,
                      const std::vector<std::pair<std::string, std::string>>& environment) override
    {
        commands.push_back({arguments, environment});
    }
};

// The web: replies by address, given at once through the loop; unknown addresses fail.
class ScriptedHttp final : public Http {
public:
    bool connected = true;
    std::map<std::string, HttpReply> replies;
    std::map<std::string, Milliseconds> delays; // how long a reply takes to come, by address
    std::vector<std::string> fetched;

    bool online() override { return connected; }
    void get(const std::string& url, std::size_t, std::function<void(HttpReply)> done) override
    {
        fetched.push_back(url);
        const auto found = replies.find(url);
        HttpReply reply = found == replies.end() ? HttpReply{false, "", "", "404 Not Found"} : found->second;
        const auto delay = delays.find(url);
        loop_->schedule(loop_->elapsed() + (delay == delays.end() ? Milliseconds{0} : delay->second),
                        [done = std::move(done), reply] { done(reply); });
    }
    VirtualEventLoop* loop_ = nullptr;
};

// A whole answer phone on the virtual loop and a line, with its data folder in a fresh
// temporary directory (a "data" folder inside it, so that anything written beside the data
// folder would show). The line is the test line unless told otherwise: any Line built on the
// loop that also plays a scripted caller as the test line does (placeCall, ringCount, ringing,
// handedOver, transcript, failNextClose).
template <class ScenarioLine>
class BasicAnswerPhoneHarness {
public:
    explicit BasicAnswerPhoneHarness(LocalTime start = VirtualEventLoop::defaultStart()) : loop(start)
    {
        std::filesystem::create_directories(data);
        writeFile("default.gif", "GIF89a default");
        writeFile("withheld.gif", "GIF89a withheld");
        writeFile("space.wav", "RIFF");
        std::filesystem::create_directories(data / "digits");
        for (char d = '0'; d <= '9'; ++d) writeFile(std::string("digits/") + d + ".gif", "GIF89a");
        line.setLineOpen(true);
        http.loop_ = &loop;
    }
    ~BasicAnswerPhoneHarness() { std::filesystem::remove_all(top); }

    void writeFile(const std::string& name, const std::string& content) const
    {
        std::ofstream(data / name, std::ios::binary) << content;
    }
    std::string readFile(const std::string& name) const
    {
        std::ifstream in(data / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    bool has(const std::string& name) const { return std::filesystem::exists(data / name); }

    // The prompts and read-back files a call plays, as tones of known lengths, and the line
    // chosen and opened as the user would. Each file has its own pitch, so that a line which
    // carries only the sound can still tell which one the caller heard.
    void readyForCalls()
    {
        double hertz = 300;
        for (const auto& [name, seconds] : std::initializer_list<std::pair<const char*, double>>{
                 {"goodmorning.wav", 1.0}, {"goodafternoon.wav", 1.0}, {"goodevening.wav", 1.0},
                 {"askfornumber.wav", 2.0}, {"pleasewait.wav", 1.5}, {"nobodyavailable.wav", 2.0},
                 {"leavemessage.wav", 1.5}, {"from.wav", 0.5}})
            writeTone(data / name, seconds, hertz += 40);
        for (char d = '0'; d <= '9'; ++d) writeTone(data / (std::string(1, d) + ".wav"), 0.3, hertz += 40);
        phone.handling.chooseDevice(0);
        agent.calls.clear();
    }

    // The files the caller heard, in order, each run of repeats shown once.
    std::vector<std::string> heard() const
    {
        std::vector<std::string> names;
        for (const HeardPrompt& prompt : line.transcript()) {
            const std::string name = std::filesystem::path(prompt.file).filename();
            if (prompt.heard > Milliseconds{0} && (names.empty() || names.back() != name)) names.push_back(name);
        }
        return names;
    }

    // The texts the character was given to speak, without the volume tag.
    std::vector<std::string> spoken() const
    {
        std::vector<std::string> texts;
        for (const std::string& call : agent.calls) {
            if (call.starts_with("Speak ")) texts.push_back(call.substr(call.find('\\', 7) + 1));
        }
        return texts;
    }
    // The digit pictures shown by a two-place counter, e.g. "10".
    std::string counter(std::string_view tens, std::string_view units) const
    {
        return view.picture(tens).substr(0, 1) + view.picture(units).substr(0, 1);
    }

    const std::filesystem::path top = [] {
        std::string pattern = (std::filesystem::temp_directory_path() / "corvel-phone-XXXXXX").string();
        return std::filesystem::path(::mkdtemp(pattern.data()));
    }();
    const std::filesystem::path data = top / "data";
    const std::filesystem::path desktop = top / "Desktop";
    VirtualEventLoop loop;
    MemorySettingsStore settings;
    ScenarioLine line{loop};
    RecordingAgent agent;
    RecordingView view;
    RecordingSpeaker speaker;
    FixedLocale locale;
    DataFolder folder{data};
    RecordingShell shell;
    Autostart autostart{top / "autostart" / "corvel.desktop", "/usr/bin/corvel"};
    ScriptedHttp http;
    AnswerPhone phone{{loop, settings, line, agent, view, speaker, locale, folder, shell, autostart, http, desktop,
                       top / "cache", "https://corvel.test"}};
};

using AnswerPhoneHarness = BasicAnswerPhoneHarness<TestLine>;

} // namespace corvel::testing

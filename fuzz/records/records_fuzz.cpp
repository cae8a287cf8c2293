// libFuzzer target for the data files: whatever "directory.ini", "piclist.txt" and "calls.txt"
// hold (the input cut at NUL bytes into the three), loading the contacts, looking a number up,
// stepping through the picture list and rebuilding the recent calls neither crashes nor reads
// out of bounds, and the recent calls keep one CR LF line per line of the log.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

#include "base/data_folder.h"
#include "character/character_speech.h"
#include "records/call_log.h"
#include "records/caller_display.h"
#include "records/caller_pictures.h"
#include "records/directory.h"
#include "scratch_file.h"
#include "support/memory_settings_store.h"
#include "support/recording_agent.h"
#include "support/recording_view.h"
#include "support/virtual_event_loop.h"

namespace {

using namespace corvel;

class EnglishDates final : public LocaleTexts {
public:
    std::string longDate(std::chrono::year_month_day) const override { return "5 January 2026"; }
    std::string amText() const override { return "AM"; }
    std::string pmText() const override { return "PM"; }
};

const std::filesystem::path& dataFolder()
{
    static const std::filesystem::path folder = [] {
        const std::filesystem::path made = fuzzing::scratchFile("data");
        std::filesystem::create_directories(made);
        return made;
    }();
    return folder;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view input(reinterpret_cast<const char*>(data), size);
    for (const char* name : {"directory.ini", "piclist.txt", "calls.txt"}) {
        const auto end = input.find('\0');
        std::ofstream(dataFolder() / name, std::ios::binary | std::ios::trunc) << input.substr(0, end);
        input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
    }

    testing::VirtualEventLoop loop;
    testing::MemorySettingsStore settings;
    testing::RecordingView view;
    testing::RecordingAgent agent;
    CharacterSpeech speech(agent, settings, loop, view);
    const DataFolder folder(dataFolder());
    const EnglishDates locale;
    Directory directory(folder, view, speech);
    CallerDisplay display(loop, view, folder);
    CallerPictures pictures(folder, view, speech, display);
    CallLog log(folder, loop, locale, view, speech);

    directory.loadcontacts();
    (void)directory.lookup(input.substr(0, 24));
    for (int step = 0; step < 3; ++step) pictures.next();
    pictures.previous();
    log.rebuild();

    const std::string calls = log.recentCalls();
    if (!calls.empty() && !calls.ends_with("\r\n") && calls != "No call data") __builtin_trap();
    return 0;
}

// libFuzzer target for the settings file: whatever a hand-edited corvel.conf holds, reading it
// does not crash, a value written is read back as written, and the rewritten file keeps every
// other value it could read before.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "base/ini_settings_store.h"
#include "scratch_file.h"

namespace {

using namespace corvel;

const std::filesystem::path& settingsFile()
{
    static const std::filesystem::path file = corvel::fuzzing::scratchFile("corvel.conf");
    return file;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    std::ofstream(settingsFile(), std::ios::binary | std::ios::trunc) << input;

    IniSettingsStore settings(settingsFile());
    const std::string rings = settings.read("withheld", "data", "rings", "5");
    const std::string listen = settings.read("withheld", "sip", "listen", "");

    // A value of the input's own bytes, as a user might type it into a field.
    const std::string value(input.substr(0, std::min<std::size_t>(input.size(), 64)));
    settings.write("withheld", "data", "website", value);
    if (settings.read("withheld", "data", "website", "") != value) __builtin_trap();
    if (settings.read("withheld", "data", "rings", "5") != rings) __builtin_trap();
    if (settings.read("withheld", "sip", "listen", "") != listen) __builtin_trap();
    settings.deleteKey("withheld", "data", "website");
    if (settings.read("withheld", "data", "website", "gone") != "gone") __builtin_trap();
    return 0;
}

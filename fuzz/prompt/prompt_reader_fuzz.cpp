// libFuzzer target for prompt files: whatever a file the user picks as a prompt holds, reading
// it as the line plays it neither crashes nor gives a length at odds with its samples.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "scratch_file.h"
#include "telephony/line_audio.h"

namespace {

const std::filesystem::path& promptFile()
{
    static const std::filesystem::path file = corvel::fuzzing::scratchFile("prompt.wav");
    return file;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::ofstream(promptFile(), std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data),
                                                                          static_cast<std::streamsize>(size));
    const auto samples = corvel::readLineAudio(promptFile());
    const auto length = corvel::playLength(promptFile());
    if (samples && !length) __builtin_trap(); // read as sound, but of no length
    if (samples && length && samples->size() > static_cast<std::size_t>(length->count() + 1) * 8 * 2 + 64)
        __builtin_trap(); // far more samples than the file plays for
    return 0;
}

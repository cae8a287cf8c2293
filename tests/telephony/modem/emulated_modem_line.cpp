#include "emulated_modem_line.h"

#include <unistd.h>

#include <algorithm>

#include "telephony/modem/voice_codec.h"

namespace corvel::testing {
namespace {

using namespace std::chrono_literals;

std::filesystem::path temporaryFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "corvel-lock-XXXXXX").string();
    return ::mkdtemp(pattern.data());
}

// Sound shorter than this matching a file is taken for chance, not for the file.
constexpr std::size_t shortestMatch = 16;

} // namespace

EmulatedModem::EmulatedModem(EventLoop& loop, ModemEmulator::Options options)
    : lockFolder(temporaryFolder()), emulator(loop, options)
{
}

EmulatedModem::~EmulatedModem()
{
    std::error_code ignored;
    std::filesystem::remove_all(lockFolder, ignored);
}

modem::ModemOptions EmulatedModemLine::optionsFor(const ModemEmulator& emulator, const std::filesystem::path& lockFolder)
{
    modem::ModemOptions options;
    options.ports = {emulator.port()};
    options.lockFolder = lockFolder;
    return options;
}

EmulatedModemLine::EmulatedModemLine(EventLoop& loop, ModemEmulator::Options options)
    : EmulatedModem(loop, options), ModemLine(loop, optionsFor(emulator, lockFolder)),
      lift_(loop.createTimer([this] { emulator.liftExtension(); }, TimerKind::SingleShot))
{
    // What a probe of this port finds (the probe has tests of its own): known at once, so
    // that the scenario's clock starts with the call.
    const bool conexant = options.persona == ModemEmulator::Persona::Conexant;
    setModems({{emulator.port(), conexant ? "CX93001-EIS_V0.2013-V92" : "Agere SV92PP 56K Voice Modem V1.05",
                conexant ? "Conexant" : "Agere/Lucent", modem::Dialect::V253, false}});
}

EmulatedModemLine::~EmulatedModemLine() = default;

void EmulatedModemLine::handOver()
{
    ModemLine::handOver();
    lift_->setInterval(1s);
    lift_->setEnabled(true);
}

bool EmulatedModemLine::startPlay()
{
    for (const std::string& file : playListEntries(playList())) {
        if (std::find(played_.begin(), played_.end(), file) == played_.end()) played_.push_back(file);
    }
    return ModemLine::startPlay();
}

std::vector<HeardPrompt> EmulatedModemLine::transcript() const
{
    std::vector<HeardPrompt> out;
    for (const ModemEmulator::Play& play : emulator.plays()) {
        const auto perMs = static_cast<std::size_t>(play.rate / 1000 * modem::bytesPerSample(play.format));
        // Every file asked for, as the modem had to play it in this play's format.
        std::map<std::string, std::vector<std::uint8_t>> sounds;
        for (const std::string& file : played_) {
            const std::string key = file + "|" + modem::toString(play.format) + "|" + std::to_string(play.rate);
            if (!sounds_.contains(key)) {
                sounds_[key] = modem::loadForModem(file, play.format, play.rate).value_or(std::vector<std::uint8_t>{});
            }
            sounds.emplace(file, sounds_.at(key));
        }
        const std::vector<std::uint8_t>& heard = play.sound;
        std::size_t at = 0;
        while (at < heard.size()) {
            // The file whose sound goes on longest from here.
            const std::string* best = nullptr;
            std::size_t bestLength = 0;
            for (const auto& [file, sound] : sounds) {
                std::size_t length = 0;
                while (length < sound.size() && at + length < heard.size() && sound[length] == heard[at + length]) ++length;
                if (length > bestLength) {
                    bestLength = length;
                    best = &file;
                }
            }
            if (!best || bestLength < shortestMatch) {
                ++at; // sound that is no file's
                continue;
            }
            out.push_back({*best, play.startedAt + Milliseconds(static_cast<Milliseconds::rep>(at / perMs)),
                           Milliseconds(static_cast<Milliseconds::rep>(bestLength / perMs)),
                           bestLength == sounds.at(*best).size()});
            at += bestLength;
        }
    }
    return out;
}

} // namespace corvel::testing

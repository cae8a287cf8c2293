#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "modem_emulator.h"
#include "telephony/modem/modem_line.h"
#include "telephony/testline/test_line.h"

namespace corvel::testing {

// Holds the emulator and a private lock folder, so that both exist before the driver.
struct EmulatedModem {
    EmulatedModem(EventLoop& loop, ModemEmulator::Options options);
    ~EmulatedModem();

    std::filesystem::path lockFolder;
    ModemEmulator emulator;
};

// The modem driver on the emulator, with the test line's way of playing a caller (placeCall,
// ringCount, ringing, handedOver, transcript), so that the call scenarios run on it unchanged.
// The driver is the production one with its own defaults; only its port and lock folder are
// the test's. What the caller heard is read back from the sound the emulator played.
class EmulatedModemLine : private EmulatedModem, public modem::ModemLine {
public:
    explicit EmulatedModemLine(EventLoop& loop, ModemEmulator::Options options = {});
    ~EmulatedModemLine() override;

    static modem::ModemOptions optionsFor(const ModemEmulator& emulator, const std::filesystem::path& lockFolder);

    ModemEmulator& modem() { return emulator; }
    const ModemEmulator& modem() const { return emulator; }

    void placeCall(ScriptedCall call) { emulator.placeCall(std::move(call)); }
    int ringCount() const { return emulator.ringCount(); }
    bool ringing() const { return emulator.ringing(); }
    bool handedOver() const { return emulator.handedOver(); }
    // As the test line's: the modem goes away, so that the next close cannot be clean.
    void failNextClose(std::int32_t) { emulator.unplug(); }
    // Which of the files played the caller heard, in order, and how much of each.
    std::vector<HeardPrompt> transcript() const;

    // The user, told to pick up, lifts their handset a second later.
    void handOver() override;
    bool startPlay() override;

private:
    std::vector<std::string> played_; // every file asked for, to recognise its sound
    mutable std::map<std::string, std::vector<std::uint8_t>> sounds_;
    std::unique_ptr<Timer> lift_;
};

} // namespace corvel::testing

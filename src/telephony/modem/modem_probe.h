#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "base/event_loop.h"
#include "telephony/modem/modem_line.h"

namespace corvel::modem {

// The serial ports a voice modem may be on: /dev/ttyACM*, /dev/ttyUSB*, /dev/ttyS*, in order.
std::vector<std::filesystem::path> candidatePorts();

// Asks every port at once, from the event loop, whether a voice modem is there: by what it
// can do (AT+FCLASS=? and AT+VSM=?, else AT#CLS=?), never by what it calls itself. A port
// that is busy, missing, silent or not a voice modem is skipped with a log line.
class ModemProbe {
public:
    using Done = std::function<void(std::vector<VoiceModem>)>;

    ModemProbe(EventLoop& loop, const std::vector<std::filesystem::path>& ports,
               const std::filesystem::path& lockFolder, int baud, Done done);
    ~ModemProbe();

private:
    class Port;
    void finished();

    std::vector<std::unique_ptr<Port>> ports_;
    std::size_t left_ = 0;
    Done done_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace corvel::modem

#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace corvel::modem {

// The caller ID of one call, as gathered from the modem's report.
struct CallerIdentity {
    std::string number;       // the calling number as delivered, empty when none
    std::string name;
    bool withheld = false;    // "P": the caller withheld it
    bool unavailable = false; // "O": the network could not deliver it
    std::string date;         // MMDD
    std::string time;         // HHMM
    std::string dialled;      // the number the caller dialled, when the modem says

    bool hasIdentity() const { return !number.empty() || withheld || unavailable || !name.empty(); }
};

// Reads the caller-ID lines of any make of modem: "TAG = value" with or without spaces
// (DATE, TIME, NMBR, NAME, MESG, DDN_NMBR, NBR, NDID), ZyXEL's "CALLER NUMBER: ", GSM's
// "+CLIP: ", a combined "DATE TIME=MM/DD hh:mm", and the whole packet in hex (AT+VCID=2). The
// first number wins: a second NMBR (real modems send "O" after the number to mask it) is
// ignored. Values are cut to a sane length; a packet whose checksum fails is ignored.
class CallerIdParser {
public:
    static constexpr std::size_t maxValue = 64;

    // true when the line was a caller-ID item (and so must not be taken for anything else).
    bool feed(std::string_view line);
    const CallerIdentity& identity() const { return identity_; }
    bool any() const { return any_; }
    void clear()
    {
        identity_ = {};
        any_ = false;
        numberSet_ = false;
    }

private:
    void item(std::string_view tag, std::string_view value);
    void number(std::string_view value);
    void name(std::string_view value);
    bool packet(std::string_view hex);
    void parameter(unsigned type, std::span<const unsigned char> data);

    CallerIdentity identity_;
    bool any_ = false;
    bool numberSet_ = false;
};

} // namespace corvel::modem

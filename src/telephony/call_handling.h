#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvel {

class AnswerPhone;

// What happens on the line: choosing the modem, counting rings and answering, the dialogue
// with an answered caller, the keys they press, putting them through to the user and taking
// a message. Every wait yields to the event loop and ends as soon as `standby` runs.
class CallHandling {
public:
    explicit CallHandling(AnswerPhone& phone);

    // --- Choosing the line device (ComboDevice) and opening it (Command1, START) ---
    void chooseDevice(int index);
    void start();

    // --- Events of the line ---
    void ring(std::int32_t count);
    // The answered call is through: checks that the call is ours, then greets the caller.
    void connected();
    void digitpressed(std::string_view digit);

    // Shakes the main window to draw the eye to a ringing telephone.
    void shake();

    // --- frm_pickup: the user takes the caller on their own telephone ---
    void pickupClicked();
    // The same, asked for from outside the window (the command line); only while a caller waits.
    void takeCall();
    // Ends the call the user took on the computer's microphone and speaker.
    void hangUpDesktopCall();

private:
    bool callIsOurs();
    void interrogate();
    void readBackDeliveredNumber();
    void endNumber();
    // Plays `lead` (if any), "from" and the number's digits to the caller and waits for the
    // end; false when the call ended meanwhile or the read-back took too long.
    bool readBack(std::string lead, const std::string& number);
    void transfer();
    void leavemessage();
    void unloadme();

    // The prompt file a setting of section "audio" names, or the shipped one.
    std::string prompt(std::string_view key, std::string_view shippedName) const;
    std::string dataFile(std::string_view name) const;

    AnswerPhone& phone_;
};

} // namespace corvel

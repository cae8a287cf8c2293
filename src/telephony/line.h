#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvel {

// The name a line reports as the owner of a call that Corvel itself holds; any other owner
// is another program on the computer.
inline constexpr std::string_view ownLineControl = "ettt35.ocx";

struct LineDevice {
    std::int32_t number = 0;
    std::string name;
};

// What the line reports. Drivers deliver every event from the event loop, never from inside
// one of the operations below, so a handler may call any operation.
class LineEvents {
public:
    virtual void ring(std::int32_t count) = 0;        // 1 on the first ring of a call
    virtual void callerId() = 0;                      // number, name and flags are on the line
    virtual void connected() = 0;                     // the answered call is through
    virtual void digitReceived(char16_t digit) = 0;   // only while digit monitoring is on
    virtual void callOwnerChanged() = 0;
    virtual void callStateChanged() = 0;
    virtual void mediaModeChanged() = 0;              // e.g. a fax announcing itself
    virtual void callerHungUp() = 0;                  // the far end left a call that was up
    virtual void desktopCallEnded() = 0;              // the call the user took on the computer is over
    virtual void playDone() = 0;                      // the whole play list has been played

protected:
    ~LineEvents() = default;
};

// One telephone line: the line device, playing and recording wave files on it, and its phone
// device. The settings that the call logic only writes for the driver to use are kept here
// (virtual only so that a line which forwards to another can pass them on); everything a
// device must act on is the driver's.
class Line {
public:
    virtual ~Line() = default;

    void setListener(LineEvents* listener) { listener_ = listener; }
    // The line devices this driver offers, for the user to choose from.
    virtual std::vector<LineDevice> devices() const = 0;

    // --- The line device ---
    virtual bool lineOpen() const = 0;
    virtual void setLineOpen(bool open) = 0;
    virtual bool ownerPrivilege() const { return ownerPrivilege_; }
    virtual void setOwnerPrivilege(bool on) { ownerPrivilege_ = on; }
    virtual bool monitorPrivilege() const { return monitorPrivilege_; }
    virtual void setMonitorPrivilege(bool on) { monitorPrivilege_ = on; }
    virtual void setMonitorOptions(bool first, bool second) { monitorOptions_ = {first, second}; }
    virtual void setDigitMonitoring(bool on) { digitMonitoring_ = on; }
    virtual bool digitMonitoring() const { return digitMonitoring_; }
    virtual bool callActive() const = 0;
    virtual void setCallActive(bool active) = 0;
    virtual void answer() = 0;
    virtual void drop() = 0;
    // Turns the ringing call away unanswered, as the network's "declined"; false when this line
    // cannot, and then nothing happened: a modem must answer to stop the user's telephone ringing.
    virtual bool decline() { return false; }
    // Gives the call up to the user's own telephone, leaving the caller connected to it; the
    // call is then no longer this line's.
    virtual void handOver() = 0;
    // A line with no telephone of the user's on it hands the caller over to the computer's own
    // microphone and speaker: whether such a call goes on, and the user hanging it up.
    virtual bool desktopCall() const { return false; }
    virtual void hangUpDesktopCall() {}
    virtual void setOwnCall(bool own) { ownCall_ = own; }
    virtual bool ownCall() const { return ownCall_; }
    virtual std::string ownerApplication() const = 0;
    virtual std::string callerNumber() const = 0;
    virtual std::string callerName() const = 0;
    virtual bool numberWithheld() const = 0;
    virtual bool numberUnavailable() const = 0;
    virtual std::int32_t deviceNumber() const { return deviceNumber_; }
    virtual void setDeviceNumber(std::int32_t number) = 0;
    virtual std::string deviceName() const = 0;
    virtual std::int32_t lastError() const = 0;
    virtual std::string providerName() const = 0;
    virtual bool hasWaveOut() const = 0;
    virtual std::int32_t waveOutNumber() const = 0;
    virtual bool hasWaveIn() const = 0;
    virtual std::int32_t waveInNumber() const = 0;
    virtual bool hasPhone() const = 0;
    virtual std::int32_t phoneNumber() const = 0;

    // --- Playing wave files to the caller ---
    // The files to play, separated by ","; empty entries are skipped.
    virtual std::string playList() const { return playList_; }
    virtual void setPlayList(std::string list) { playList_ = std::move(list); }
    // When set, a list that reaches its end starts again instead of ending.
    virtual void setPlayRepeat(bool repeat) { playRepeat_ = repeat; }
    virtual bool playRepeat() const { return playRepeat_; }
    // Plays the list from its first entry, replacing any play in progress; false when a file
    // cannot be played, and then nothing plays.
    virtual bool startPlay() = 0;
    virtual bool playing() const = 0;
    // false stops at once, without a play-done event; true starts the list when nothing plays.
    virtual void setPlaying(bool playing) = 0;
    virtual void setPlayDevice(std::int32_t device) { playDevice_ = device; }
    virtual void setPlayOption(bool on) { playOption_ = on; }
    virtual bool playOption() const { return playOption_; }

    // --- Recording the caller ---
    virtual void setRecordFile(std::string path) { recordFile_ = std::move(path); }
    virtual std::string recordFile() const { return recordFile_; }
    virtual bool recording() const = 0;
    // true starts recording into the record file (8 kHz, 16-bit, mono); false closes it.
    virtual void setRecording(bool recording) = 0;
    virtual void setRecordDevice(std::int32_t device) { recordDevice_ = device; }

    // --- The phone device ---
    virtual void setPhoneDevice(std::int32_t device) { phoneDevice_ = device; }

protected:
    LineEvents* listener() const { return listener_; }
    std::int32_t deviceNumber_ = 0;

private:
    LineEvents* listener_ = nullptr;
    bool ownerPrivilege_ = true; // the line is opened with both privileges unless told otherwise
    bool monitorPrivilege_ = true;
    struct { bool first = false, second = false; } monitorOptions_;
    bool digitMonitoring_ = false;
    bool ownCall_ = false;
    std::string playList_;
    bool playRepeat_ = false;
    std::int32_t playDevice_ = 0;
    bool playOption_ = false;
    std::string recordFile_;
    std::int32_t recordDevice_ = 0;
    std::int32_t phoneDevice_ = 0;
};

// The entries of a play list, in order, without empty ones.
std::vector<std::string> playListEntries(std::string_view list);

} // namespace corvel

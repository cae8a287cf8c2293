#pragma once

#include <memory>
#include <vector>

#include "telephony/line.h"

namespace corvel {

// Every line device of every driver, offered as one list; the device chosen from it picks the
// driver that all operations then go to, and only that driver's events are passed on.
class LineSwitch final : public Line {
public:
    explicit LineSwitch(std::vector<Line*> drivers);
    ~LineSwitch() override;

    std::vector<LineDevice> devices() const override;
    std::int32_t deviceNumber() const override { return deviceNumber_; }
    void setDeviceNumber(std::int32_t number) override;

    bool lineOpen() const override { return active_->lineOpen(); }
    void setLineOpen(bool open) override { active_->setLineOpen(open); }
    bool ownerPrivilege() const override { return active_->ownerPrivilege(); }
    void setOwnerPrivilege(bool on) override { active_->setOwnerPrivilege(on); }
    bool monitorPrivilege() const override { return active_->monitorPrivilege(); }
    void setMonitorPrivilege(bool on) override { active_->setMonitorPrivilege(on); }
    void setMonitorOptions(bool first, bool second) override { active_->setMonitorOptions(first, second); }
    void setDigitMonitoring(bool on) override { active_->setDigitMonitoring(on); }
    bool digitMonitoring() const override { return active_->digitMonitoring(); }
    bool callActive() const override { return active_->callActive(); }
    void setCallActive(bool active) override { active_->setCallActive(active); }
    void answer() override { active_->answer(); }
    void drop() override { active_->drop(); }
    bool decline() override { return active_->decline(); }
    void handOver() override { active_->handOver(); }
    bool desktopCall() const override { return active_->desktopCall(); }
    void hangUpDesktopCall() override { active_->hangUpDesktopCall(); }
    void setOwnCall(bool own) override { active_->setOwnCall(own); }
    bool ownCall() const override { return active_->ownCall(); }
    std::string ownerApplication() const override { return active_->ownerApplication(); }
    std::string callerNumber() const override { return active_->callerNumber(); }
    std::string callerName() const override { return active_->callerName(); }
    bool numberWithheld() const override { return active_->numberWithheld(); }
    bool numberUnavailable() const override { return active_->numberUnavailable(); }
    std::string deviceName() const override { return active_->deviceName(); }
    std::int32_t lastError() const override { return active_->lastError(); }
    std::string providerName() const override { return active_->providerName(); }
    bool hasWaveOut() const override { return active_->hasWaveOut(); }
    std::int32_t waveOutNumber() const override { return active_->waveOutNumber(); }
    bool hasWaveIn() const override { return active_->hasWaveIn(); }
    std::int32_t waveInNumber() const override { return active_->waveInNumber(); }
    bool hasPhone() const override { return active_->hasPhone(); }
    std::int32_t phoneNumber() const override { return active_->phoneNumber(); }
    std::string playList() const override { return active_->playList(); }
    void setPlayList(std::string list) override { active_->setPlayList(std::move(list)); }
    void setPlayRepeat(bool repeat) override { active_->setPlayRepeat(repeat); }
    bool playRepeat() const override { return active_->playRepeat(); }
    bool startPlay() override { return active_->startPlay(); }
    bool playing() const override { return active_->playing(); }
    void setPlaying(bool playing) override { active_->setPlaying(playing); }
    void setPlayDevice(std::int32_t device) override { active_->setPlayDevice(device); }
    void setPlayOption(bool on) override { active_->setPlayOption(on); }
    bool playOption() const override { return active_->playOption(); }
    void setRecordFile(std::string path) override { active_->setRecordFile(std::move(path)); }
    std::string recordFile() const override { return active_->recordFile(); }
    bool recording() const override { return active_->recording(); }
    void setRecording(bool recording) override { active_->setRecording(recording); }
    void setRecordDevice(std::int32_t device) override { active_->setRecordDevice(device); }
    void setPhoneDevice(std::int32_t device) override { active_->setPhoneDevice(device); }

private:
    // Listens to one driver and passes its events on while that driver is the one chosen.
    class Relay;

    std::vector<Line*> drivers_;
    std::vector<std::unique_ptr<Relay>> relays_;
    Line* active_;
};

} // namespace corvel

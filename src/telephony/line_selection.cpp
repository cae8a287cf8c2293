// Choosing the line device from ComboDevice and opening it (START).

#include "base/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::chooseDevice(int index)
{
    if (line_.lineOpen()) {
        line_.setLineOpen(false);
        if (line_.lastError() != 0) {
            speech_.say("Sorry, your modem does not seem to be compatible. Please try to get the latest drivers!");
            view_.messageBox(
                MessageIcon::Stop, applicationTitle,
                "Sorry, there is a problem with your modem. This could be because it is not a VOICE modem or that "
                "it is not 100% TAPI compliant, or you need to download the latest drivers or that you simply "
                "need to re boot your computer.");
            // Forgotten, so that the next start asks for a line again.
            settings_.deleteKey(settings::application, settings::data, "modem");
            settings_.deleteKey(settings::application, settings::data, "modemname");
            endProgram_();
            return;
        }
    }
    line_.setDeviceNumber(index);
    view_.setListIndex("ComboDevice", line_.deviceNumber());
    settings::writeData(settings_, "modem", std::to_string(line_.deviceNumber()));
    settings::writeData(settings_, "modemname", line_.deviceName());
    start();
    speech_.say("The modem you selected, is okay!");
}

void CallHandling::start()
{
    line_.setLineOpen(true);
    if (line_.hasWaveOut()) line_.setPlayDevice(line_.waveOutNumber());
    if (line_.hasPhone()) line_.setPhoneDevice(line_.phoneNumber());
    if (line_.hasWaveIn()) line_.setRecordDevice(line_.waveInNumber());
    if (line_.lineOpen()) line_.setPlayOption(!text::containsNoCase(line_.providerName(), "Universal Modem Driver"));
    line_.setOwnerPrivilege(true);
    line_.setMonitorPrivilege(true);
    line_.setMonitorOptions(true, true);
}

} // namespace corvel

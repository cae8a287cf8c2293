// Choosing the line device from ComboDevice and opening it (START).

#include "app/answer_phone.h"
#include "app/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::chooseDevice(int index)
{
    Line& line = phone_.ports.line;
    if (line.lineOpen()) {
        line.setLineOpen(false);
        if (line.lastError() != 0) {
            phone_.speech.say("Sorry, your modem does not seem to be compatible. Please try to get the latest drivers!");
            phone_.ports.view.messageBox(
                MessageIcon::Stop, applicationTitle,
                "Sorry, there is a problem with your modem. This could be because it is not a VOICE modem or that "
                "it is not 100% TAPI compliant, or you need to download the latest drivers or that you simply "
                "need to re boot your computer.");
            // Forgotten, so that the next start asks for a line again.
            phone_.ports.settings.deleteKey(settings::application, settings::data, "modem");
            phone_.ports.settings.deleteKey(settings::application, settings::data, "modemname");
            phone_.shutdown();
            return;
        }
    }
    line.setDeviceNumber(index);
    phone_.ports.view.setListIndex("ComboDevice", line.deviceNumber());
    settings::writeData(phone_.ports.settings, "modem", std::to_string(line.deviceNumber()));
    settings::writeData(phone_.ports.settings, "modemname", line.deviceName());
    start();
    phone_.speech.say("The modem you selected, is okay!");
}

void CallHandling::start()
{
    Line& line = phone_.ports.line;
    line.setLineOpen(true);
    if (line.hasWaveOut()) line.setPlayDevice(line.waveOutNumber());
    if (line.hasPhone()) line.setPhoneDevice(line.phoneNumber());
    if (line.hasWaveIn()) line.setRecordDevice(line.waveInNumber());
    if (line.lineOpen()) line.setPlayOption(!text::containsNoCase(line.providerName(), "Universal Modem Driver"));
    line.setOwnerPrivilege(true);
    line.setMonitorPrivilege(true);
    line.setMonitorOptions(true, true);
}

} // namespace corvel

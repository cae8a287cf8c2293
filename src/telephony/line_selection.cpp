// Choosing the line device from ComboDevice and opening it (START).

#include "base/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::chooseDevice(int index)
{
    if (with_.line.lineOpen()) {
        with_.line.setLineOpen(false);
        if (with_.line.lastError() != 0) {
            with_.speech.say("Sorry, your modem does not seem to be compatible. Please try to get the latest drivers!");
            with_.view.messageBox(
                MessageIcon::Stop, applicationTitle,
                "Sorry, there is a problem with your modem. This could be because it is not a VOICE modem or that "
                "it is not 100% TAPI compliant, or you need to download the latest drivers or that you simply "
                "need to re boot your computer.");
            // Forgotten, so that the next start asks for a line again.
            with_.settings.deleteKey(settings::application, settings::data, "modem");
            with_.settings.deleteKey(settings::application, settings::data, "modemname");
            with_.endProgram();
            return;
        }
    }
    with_.line.setDeviceNumber(index);
    with_.view.setListIndex("ComboDevice", with_.line.deviceNumber());
    settings::writeData(with_.settings, "modem", std::to_string(with_.line.deviceNumber()));
    settings::writeData(with_.settings, "modemname", with_.line.deviceName());
    start();
    with_.speech.say("The modem you selected, is okay!");
}

void CallHandling::start()
{
    with_.line.setLineOpen(true);
    if (with_.line.hasWaveOut()) with_.line.setPlayDevice(with_.line.waveOutNumber());
    if (with_.line.hasPhone()) with_.line.setPhoneDevice(with_.line.phoneNumber());
    if (with_.line.hasWaveIn()) with_.line.setRecordDevice(with_.line.waveInNumber());
    if (with_.line.lineOpen())
        with_.line.setPlayOption(!text::containsNoCase(with_.line.providerName(), "Universal Modem Driver"));
    with_.line.setOwnerPrivilege(true);
    with_.line.setMonitorPrivilege(true);
    with_.line.setMonitorOptions(true, true);
    with_.calls.wake(); // the lamps show the line open
}

} // namespace corvel

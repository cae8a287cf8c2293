#include "telephony/call_handling.h"

#include "app/answer_phone.h"

namespace corvel {

CallHandling::CallHandling(AnswerPhone& phone) : phone_(phone) {}

std::string CallHandling::dataFile(std::string_view name) const
{
    return (phone_.ports.folder.root() / std::string(name)).string();
}

std::string CallHandling::prompt(std::string_view key, std::string_view shippedName) const
{
    return phone_.ports.settings.read(settings::application, settings::audio, key, dataFile(shippedName));
}

bool CallHandling::readBack(std::string lead, const std::string& number)
{
    Line& line = phone_.ports.line;
    CallControl& calls = phone_.calls;
    CallState& call = calls.state();

    calls.stopPlaying();
    line.setPlayRepeat(false);
    const std::string from = dataFile("from.wav");
    line.setPlayList(lead.empty() ? from : lead + "," + from);
    if (!calls.startPlay(CallControl::cantPlay("from.wav")) || call.callover) return false;
    std::string list = line.playList();
    for (char c : number) {
        if (c >= '0' && c <= '9') list += "," + dataFile(std::string(1, c) + ".wav");
    }
    line.setPlayList(list);
    if (!calls.startPlay("Sorry, there was an error whilst playing the callers digits back to them, so I`m quitting!"))
        return false;
    line.setPlaying(true);
    if (call.callover) return false;
    call.playdone = false;
    call.countdown = 20;
    calls.waitUntil([&] { return call.playdone || call.countdown == 0; });
    if (!call.playdone) {
        // Twenty seconds without the end of the read-back: the call is given up.
        if (!call.callover) calls.standby();
        return false;
    }
    call.countdown = 0;
    return true;
}

} // namespace corvel

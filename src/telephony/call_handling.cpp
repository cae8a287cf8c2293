#include "telephony/call_handling.h"

#include <utility>

namespace corvel {

CallHandling::CallHandling(Collaborators with) : with_(std::move(with)) {}

std::string CallHandling::dataFile(std::string_view name) const
{
    return (with_.folder.root() / std::string(name)).string();
}

std::string CallHandling::prompt(std::string_view key, std::string_view shippedName) const
{
    return with_.settings.read(settings::application, settings::audio, key, dataFile(shippedName));
}

bool CallHandling::readBack(std::string lead, const std::string& number)
{
    CallState& call = with_.calls.state();

    with_.calls.stopPlaying();
    with_.line.setPlayRepeat(false);
    const std::string from = dataFile("from.wav");
    with_.line.setPlayList(lead.empty() ? from : lead + "," + from);
    if (!with_.calls.startPlay(CallControl::cantPlay("from.wav")) || call.callover) return false;
    std::string list = with_.line.playList();
    for (char c : number) {
        if (c >= '0' && c <= '9') list += "," + dataFile(std::string(1, c) + ".wav");
    }
    with_.line.setPlayList(list);
    if (!with_.calls.startPlay("Sorry, there was an error whilst playing the callers digits back to them, so I`m quitting!"))
        return false;
    with_.line.setPlaying(true);
    if (call.callover) return false;
    call.playdone = false;
    call.countdown = 20;
    with_.calls.waitUntil([&] { return call.playdone || call.countdown == 0; });
    if (!call.playdone) {
        // Twenty seconds without the end of the read-back: the call is given up.
        if (!call.callover) with_.calls.standby();
        return false;
    }
    call.countdown = 0;
    return true;
}

} // namespace corvel

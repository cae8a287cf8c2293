#include "telephony/call_handling.h"


namespace corvel {

CallHandling::CallHandling(Collaborators with)
    : loop_(with.loop), settings_(with.settings), line_(with.line), view_(with.view), agent_(with.agent),
      folder_(with.folder), calls_(with.calls), speech_(with.speech), display_(with.display),
      directory_(with.directory), callLog_(with.callLog), newCalls_(with.newCalls), messages_(with.messages),
      endProgram_(std::move(with.endProgram))
{
}

std::string CallHandling::dataFile(std::string_view name) const
{
    return (folder_.root() / std::string(name)).string();
}

std::string CallHandling::prompt(std::string_view key, std::string_view shippedName) const
{
    return settings_.read(settings::application, settings::audio, key, dataFile(shippedName));
}

bool CallHandling::readBack(std::string lead, const std::string& number)
{
    CallState& call = calls_.state();

    calls_.stopPlaying();
    line_.setPlayRepeat(false);
    const std::string from = dataFile("from.wav");
    line_.setPlayList(lead.empty() ? from : lead + "," + from);
    if (!calls_.startPlay(CallControl::cantPlay("from.wav")) || call.callover) return false;
    std::string list = line_.playList();
    for (char c : number) {
        if (c >= '0' && c <= '9') list += "," + dataFile(std::string(1, c) + ".wav");
    }
    line_.setPlayList(list);
    if (!calls_.startPlay("Sorry, there was an error whilst playing the callers digits back to them, so I`m quitting!"))
        return false;
    line_.setPlaying(true);
    if (call.callover) return false;
    call.playdone = false;
    call.countdown = 20;
    calls_.waitUntil([&] { return call.playdone || call.countdown == 0; });
    if (!call.playdone) {
        // Twenty seconds without the end of the read-back: the call is given up.
        if (!call.callover) calls_.standby();
        return false;
    }
    call.countdown = 0;
    return true;
}

} // namespace corvel

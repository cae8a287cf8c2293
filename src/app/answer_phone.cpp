#include "app/answer_phone.h"

#include <cstdlib>

#include "base/text.h"
#include "update/web_link.h"

namespace corvel {

AnswerPhone::AnswerPhone(Ports ports_)
    : ports(std::move(ports_)),
      indicator(ports.view, ports.folder, events),
      calls(ports.loop, ports.line, ports.view, events),
      speech(ports.agent, ports.settings, ports.loop, ports.view),
      characters(ports.agent, ports.settings, ports.view, ports.loop, speech,
                 characterFolders(ports.folder.root(), std::getenv("XDG_DATA_DIRS")), [this] { shutdown(); }),
      display(ports.loop, ports.view, ports.folder),
      directory(ports.folder, ports.view, speech),
      pictures(ports.folder, ports.view, speech, display),
      callLog(ports.folder, ports.loop, ports.locale, ports.view, speech),
      newCalls(indicator),
      callerIdentity(ports.line, calls.state(), ports.agent, speech, directory, display, callLog, events),
      messages(ports.folder, indicator),
      playback(ports.folder, ports.view, ports.speaker, speech, display, messages, newCalls, ports.desktop),
      blockList(ports.folder),
      blockedCalls(ports.folder, callLog, indicator),
      screening({ports.settings, ports.loop, blockList, directory}),
      messageHook(ports.settings, ports.shell, ports.loop),
      handling({ports.loop, ports.settings, ports.line, ports.view, ports.agent, ports.folder, calls, speech, display,
                directory, callLog, newCalls, messages, events, callerIdentity, screening, blockedCalls,
                [this] { shutdown(); }}),
      blocking(ports.view, speech, blockList, ports.folder),
      window(ports.view, ports.settings, ports.loop, speech),
      options(ports.view, ports.settings, ports.agent, speech, characters, ports.autostart),
      promptFiles(ports.folder, ports.view, ports.settings, ports.speaker, ports.shell, speech),
      updates(ports.loop, ports.http, ports.settings, ports.view, speech, ports.shell,
              {webSite(), ports.cacheFolder}, downloading, [this] { shutdown(); }, [this] { window.applyHide(); })
{
    calls.setRoutines(this);
    events.add(messageHook);
}

AnswerPhone::~AnswerPhone()
{
    events.remove(messageHook);
    calls.setRoutines(nullptr);
}

void AnswerPhone::loadRecords()
{
    newCalls.show();
    messages.checkmessages();
    callLog.rebuild();
    directory.loadcontacts();
    blockedCalls.show();
    blocking.loadList();
}

bool AnswerPhone::requestClose()
{
    if (downloading) {
        speech.say("I`m downloading, please wait!");
        ports.view.messageBox(MessageIcon::Exclamation, applicationTitle,
                              "I`m still downloading. Please wait until I have finished.");
        return false;
    }
    shutdown();
    return true;
}

void AnswerPhone::shutdown()
{
    if (ending_) return; // a second way out (a signal, the session's end) while the first runs
    ending_ = true;
    calls.standby();
    ports.view.releaseTrayIcon();
    if (window.expanded()) window.saveTop();
    ports.line.setLineOpen(false);
    ports.view.endProgram();
}

std::vector<TrayMenuEntry> AnswerPhone::trayMenu()
{
    return {{"-= Menu =-", "menu"}, {"-", ""},       {"Minimise", "min"}, {"-", ""}, {"Maximise", "max"},
            {"-", ""},             {"Block last caller", "blocklast"}, {"-", ""}, {"About Corvel", "about"}, {"-", ""}, {"Exit Corvel", "exit"}};
}

void AnswerPhone::trayMenuClicked(std::string_view key)
{
    View& view = ports.view;
    if (key == "exit") {
        speech.say("Please wait!");
        requestClose();
        return;
    }
    if (key == "blocklast") {
        blockLastCaller();
        return;
    }
    if (key == "min") {
        window.hideToTray();
        return;
    }
    view.setMainWindowVisible(true);
    settings::writeData(ports.settings, "hide", "False");
    if (key == "about") {
        window.expand();
        view.selectTab("SSTab1", 7);
    } else if (key == "menu") {
        window.toggleSize();
    }
}

void AnswerPhone::trayDoubleClicked()
{
    window.expand();
    ports.view.selectTab("SSTab1", 0);
}

void AnswerPhone::closeClicked()
{
    speech.say("Please wait");
    requestClose();
}

std::string AnswerPhone::webSite() const
{
    std::string site = ports.webSite.empty() ? settings::readData(ports.settings, "website", defaultWebSite) : ports.webSite;
    while (site.ends_with('/')) site.pop_back();
    return site;
}

void AnswerPhone::webLinkClicked() { linkup(ports.shell, ports.view, webSite() + "/corvel.htm"); }

void AnswerPhone::ring(std::int32_t count) { handling.ring(count); }
void AnswerPhone::callerId() { handling.callerId(); }
void AnswerPhone::connected() { handling.connected(); }
void AnswerPhone::digitpressed(std::string_view digit) { handling.digitpressed(digit); }

void AnswerPhone::checkmessages() { messages.checkmessages(); }

} // namespace corvel

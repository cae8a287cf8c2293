#include "update/web_link.h"

namespace corvel {

void linkup(Shell& shell, View& view, const std::string& webaddress)
{
    const auto browser = shell.webBrowser();
    if (!browser || browser->empty()) {
        view.messageBox(MessageIcon::None, "BROWSER NOT FOUND", "Could not find associated browser!");
        return;
    }
    if (!shell.startBrowser(*browser, webaddress)) view.messageBox(MessageIcon::None, "URL FAILED", "Web Page not Opened");
}

} // namespace corvel

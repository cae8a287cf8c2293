#include "update/update_check.h"

#include "base/data_folder.h"
#include "base/log.h"

namespace corvel {
namespace {

constexpr std::string_view versionListPath = "/versions.txt";
// The desktop's package installer opens it; the name is the one the web site publishes.
constexpr std::string_view installerPath = "/downloads/corvelupdate.deb";
constexpr std::size_t maxListBytes = 64 * 1024;
constexpr std::size_t maxInstallerBytes = 512 * 1024 * 1024;
constexpr std::string_view progress = "Please wait whilst I download the latest update of Corvel for you. Time elapsed = ";

} // namespace

std::string downloadText(int minutes)
{
    return std::string(progress) + std::to_string(minutes) + (minutes == 1 ? " Minute" : " Minutes");
}

UpdateCheck::UpdateCheck(EventLoop& loop, Http& http, SettingsStore& settings, View& view, CharacterSpeech& speech,
                         Shell& shell, Places places, bool& downloading, std::function<void()> endProgram,
                         std::function<void()> applyHide)
    : loop_(loop), http_(http), settings_(settings), view_(view), speech_(speech), shell_(shell),
      places_(std::move(places)), downloading_(downloading), endProgram_(std::move(endProgram)),
      applyHide_(std::move(applyHide)),
      timerHide_(loop.createTimer([this] { timerHideTick(); })),
      elapsed_(loop.createTimer([this] { view_.setDownloadText(downloadText(++minutes_)); })),
      flash_(loop.createTimer([this] {
          view_.setDownloadText(downloadText(minutes_));
          view_.setDownloadShapeVisible(shapeShown_ = !shapeShown_);
      }))
{
    timerHide_->setInterval(Milliseconds{60000});
    timerHide_->setEnabled(true);
    elapsed_->setInterval(Milliseconds{60000});
    flash_->setInterval(Milliseconds{500});
}

UpdateCheck::~UpdateCheck() = default;

std::filesystem::path UpdateCheck::installer() const
{
    return places_.cacheFolder / std::filesystem::path(std::string(installerPath)).filename();
}

void UpdateCheck::timerHideTick()
{
    applyHide_();
    if (!updatechecked_ && http_.online()) {
        updatechecked_ = true;
        check();
    }
    // Without a window to hide, a done check leaves the timer nothing to do for good.
    if (updatechecked_ && !view_.hasMainWindow()) timerHide_->setEnabled(false);
}

HttpReply UpdateCheck::fetch(const std::string& path, std::size_t maxBytes)
{
    std::optional<HttpReply> reply;
    http_.get(places_.webSite + path, maxBytes, [&](HttpReply r) { reply = std::move(r); });
    while (!reply) loop_.yield();
    if (!reply->ok) log::warning("could not fetch " + places_.webSite + path + ": " + reply->error);
    return *reply;
}

void UpdateCheck::check()
{
    const HttpReply list = fetch(std::string(versionListPath), maxListBytes);
    if (!list.ok) return;
    const auto offer = offeredVersion(list.body);
    if (!offer) return;
    const std::string running = CORVEL_VERSION;
    if (!isNewerVersion(offer->version, running)) return;
    if (settings_.read(settings::application, settings::version, offer->version, "0") == "1") return;

    speech_.say("There is an update available, do you want to fetch it?");
    const bool yes = view_.askYesNo("NewVersion", "There is a new version of Corvel available.\nYou have version " +
                                                      running + ", and the new version number\nis " + offer->version +
                                                      ". Do you want me to download it now for you?");
    settings_.write(settings::application, settings::version, offer->version, "1");
    if (yes) download(*offer);
}

void UpdateCheck::download(const OfferedVersion& offer)
{
    speech_.say("\\emp\\This will take me about 8 minutes to get. Just carry on as normal. \\emp\\I will call you when "
                "the update has downloaded!");
    downloading_ = true;
    std::error_code ignored;
    std::filesystem::remove(installer(), ignored);
    minutes_ = 0;
    view_.showDownload();
    view_.setDownloadText(downloadText(0));
    elapsed_->setEnabled(true);
    flash_->setEnabled(true);

    const HttpReply reply = fetch(std::string(installerPath), maxInstallerBytes);
    elapsed_->setEnabled(false);
    flash_->setEnabled(false);
    // An installer is only ever started whole and, where the list gives its digest, proven.
    if (!reply.ok || reply.body.empty()) return downloadFailed();
    if (offer.sha256 && reply.sha256 != *offer.sha256) {
        log::warning("the downloaded installer does not match the digest the version list gives");
        return downloadFailed();
    }
    std::filesystem::create_directories(places_.cacheFolder, ignored);
    if (!replaceFile(installer(), reply.body)) return downloadFailed();

    speech_.say("Your file has now downloaded");
    downloading_ = false;
    view_.messageBox(MessageIcon::Information, applicationTitle,
                     "The update has now downloaded. I will close this software and then start the update installing.");
    shell_.openFile(installer());
    view_.closeDownload();
    endProgram_();
}

void UpdateCheck::downloadFailed()
{
    view_.closeDownload();
    downloading_ = false;
    speech_.say("There was an error whilst downloading!");
    // Either answer ends alike: the offer to fetch the file by hand has never led anywhere.
    view_.askYesNo("Error!", "Sorry, there was an error whilst downloading the update file. Do you want to connect "
                             "to the Internet so that you can download the update file manually?");
    std::error_code ignored;
    std::filesystem::remove(installer(), ignored);
}

} // namespace corvel

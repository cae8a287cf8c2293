// The update check against a real web server on 127.0.0.1.

#include "ui/qt_http.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QTcpServer>
#include <QTcpSocket>

#include "support/answer_phone_harness.h"
#include "support/qt_application.h"
#include "ui/qt_event_loop.h"
#include "update/update_check.h"

namespace corvel {
namespace {

using ::testing::ElementsAre;

// Answers each request from a table of paths: a full reply, or a way of failing.
class LoopbackServer {
public:
    enum class Mode { Whole, Missing, Truncated, Stalled };
    struct Page {
        Mode mode = Mode::Whole;
        QByteArray body;
    };
    std::map<QByteArray, Page> pages;

    LoopbackServer()
    {
        server_.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&server_, &QTcpServer::newConnection, [this] {
            while (QTcpSocket* socket = server_.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { answer(socket); });
            }
        });
    }
    std::string address() const { return "http://127.0.0.1:" + std::to_string(server_.serverPort()); }

private:
    void answer(QTcpSocket* socket)
    {
        const QByteArray request = socket->readAll();
        const QByteArray path = request.split(' ').value(1);
        const auto page = pages.find(path);
        if (page == pages.end() || page->second.mode == Mode::Missing) {
            socket->write("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
        } else if (page->second.mode == Mode::Stalled) {
            return; // says nothing, ever
        } else {
            const QByteArray& body = page->second.body;
            const bool whole = page->second.mode == Mode::Whole;
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size()) +
                          "\r\nConnection: close\r\n\r\n" + (whole ? body : body.left(body.size() / 2)));
        }
        socket->flush();
        socket->disconnectFromHost();
    }

    QTcpServer server_;
};

class QtHttpTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { testing::ensureQApplication(); }

    void serveList(const std::string& text) { server.pages["/versions.txt"] = {LoopbackServer::Mode::Whole, text.c_str()}; }
    void serveInstaller(LoopbackServer::Mode mode)
    {
        server.pages["/downloads/corvelupdate.deb"] = {mode, installer};
    }
    std::string digestOf(const QByteArray& bytes) const
    {
        return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex().toStdString();
    }
    bool installerSaved() const { return std::filesystem::exists(cache / "corvelupdate.deb"); }

    const QByteArray installer = QByteArray(200000, 'x') + "end";
    const std::filesystem::path cache = std::filesystem::temp_directory_path() / ("corvel-update-" + std::to_string(::getpid()));
    LoopbackServer server;
    QtEventLoop loop;
    QtHttp http{std::chrono::milliseconds(300)};
    testing::MemorySettingsStore settings;
    testing::RecordingAgent agent;
    testing::RecordingView view;
    testing::RecordingShell shell;
    CharacterSpeech speech{agent, settings, loop, view};
    bool downloading = false;
    bool ended = false;
    UpdateCheck updates{loop, http, settings, view, speech, shell, {server.address(), cache}, downloading,
                        [this] { ended = true; }, [] {}};

    ~QtHttpTest() override { std::filesystem::remove_all(cache); }
};

TEST_F(QtHttpTest, AListInCapitalsIsOfferedOnceAndALaterVersionAgain)
{
    serveList("other:1.0\n");
    updates.check();
    serveList("corvel:" CORVEL_VERSION);
    updates.check();
    EXPECT_TRUE(view.questions.empty()) << "no key, or the version running now";
    serveList("OTHER:1.0\nCORVEL:1.7.0\n");
    updates.check();
    updates.check();
    serveList("corvel:1.7.1");
    updates.check();
    EXPECT_EQ(view.questions.size(), 2u);
    EXPECT_EQ(settings.read("withheld", "version", "1.7.0", "0"), "1");
    EXPECT_EQ(settings.read("withheld", "version", "1.7.1", "0"), "1");
}

TEST_F(QtHttpTest, AMatchingDownloadIsSavedAndOpened)
{
    serveList("corvel:1.7.0 sha256=" + digestOf(installer));
    serveInstaller(LoopbackServer::Mode::Whole);
    view.yesNoAnswers = {true};
    updates.check();
    EXPECT_TRUE(installerSaved());
    EXPECT_THAT(shell.opened, ElementsAre("corvelupdate.deb"));
    EXPECT_TRUE(ended);
}

TEST_F(QtHttpTest, MissingTruncatedMismatchingOrStalledDownloadsAreNeverStarted)
{
    for (const auto& [mode, listed] : {std::pair{LoopbackServer::Mode::Missing, digestOf(installer)},
                                       std::pair{LoopbackServer::Mode::Truncated, std::string()},
                                       std::pair{LoopbackServer::Mode::Whole, digestOf("something else")},
                                       std::pair{LoopbackServer::Mode::Stalled, std::string()}}) {
        settings.deleteKey("withheld", "version", "1.7.0");
        serveList("corvel:1.7.0" + (listed.empty() ? "" : " sha256=" + listed));
        serveInstaller(mode);
        view.yesNoAnswers = {true, false};
        updates.check();
        EXPECT_FALSE(installerSaved()) << static_cast<int>(mode);
        EXPECT_FALSE(downloading);
    }
    EXPECT_TRUE(shell.opened.empty());
    EXPECT_FALSE(ended);
}

TEST_F(QtHttpTest, AHugeBodyIsCutOffNotHeld)
{
    serveInstaller(LoopbackServer::Mode::Whole);
    std::optional<HttpReply> reply;
    http.get(server.address() + "/downloads/corvelupdate.deb", 1000, [&](HttpReply r) { reply = std::move(r); });
    while (!reply) loop.yield();
    EXPECT_FALSE(reply->ok);
    EXPECT_TRUE(reply->body.empty());
    EXPECT_NE(reply->error.find("more than 1000 bytes"), std::string::npos);
}

} // namespace
} // namespace corvel

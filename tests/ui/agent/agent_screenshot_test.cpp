// Phony speaking with its balloon on a real X server, saved as a picture to look at. Run by the
// corvel_agent_screenshot test under xvfb-run; skipped on the offscreen platform.

#include <gtest/gtest.h>

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QScreen>
#include <QWidget>

#include "agent_test_support.h"
#include "ui/agent/character_window.h"
#include "ui/agent/word_balloon.h"

namespace corvel {
namespace {

// Something for the character to stand on: a plain desktop.
class Desktop final : public QWidget {
protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        QLinearGradient sky(0, 0, 0, height());
        sky.setColorAt(0, QColor(0x3A, 0x6E, 0xA5));
        sky.setColorAt(1, QColor(0x86, 0xB5, 0xD9));
        painter.fillRect(rect(), sky);
    }
};

int count(const QImage& image, QRgb colour)
{
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) n += (image.pixel(x, y) & 0xFFFFFF) == (colour & 0xFFFFFF);
    return n;
}

TEST(AgentScreenshot, PhonySpeakingWithItsBalloon)
{
    if (qEnvironmentVariable("QT_QPA_PLATFORM") == "offscreen")
        GTEST_SKIP() << "needs a real X server: run the corvel_agent_screenshot test";
    testing::ensureQApplication();
    if (QGuiApplication::platformName() != "xcb") GTEST_SKIP() << "not on X";

    const QRect area(0, 0, 640, 420);
    Desktop desktop;
    desktop.setWindowFlags(Qt::FramelessWindowHint);
    desktop.setGeometry(area);
    desktop.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&desktop));

    QtAgent agent(testing::phonyOptions());
    testing::AgentListener listener(agent);
    ASSERT_TRUE(agent.load("Phony"));
    agent.moveTo(420, 250);
    agent.show();
    ASSERT_TRUE(testing::waitFor([&] { return agent.queued() == 0; }));
    ASSERT_TRUE(QTest::qWaitForWindowExposed(agent.window()));

    agent.speak("\\emp\\Hello! You have two new messages. The first one is from Anna Clarke, at 6:22 PM.");
    WordBalloon& balloon = *agent.balloon();
    // A moment mid-sentence: several words up and the mouth open.
    ASSERT_TRUE(testing::waitFor([&] {
        return balloon.revealed() >= 40 && agent.mouth() && *agent.mouth() != acs::MouthShape::Closed &&
               *agent.mouth() != acs::MouthShape::Narrow;
    }, 20));
    ASSERT_TRUE(balloon.isVisible());
    agent.speechEngine(); // the speech goes on; the picture is taken now
    QCoreApplication::processEvents();
    QTest::qWait(30);

    const QImage picture = QGuiApplication::primaryScreen()->grabWindow(0, area.x(), area.y(), area.width(), area.height()).toImage();
    const QString folder = QString::fromUtf8(CORVEL_TEST_ARTIFACTS_DIR);
    ASSERT_TRUE(QDir().mkpath(folder));
    EXPECT_TRUE(picture.save(folder + "/agent-speaking.png"));

    // The balloon in the file's pale yellow, with the character's own colours beside it.
    EXPECT_GT(count(picture, qRgb(0xFF, 0xFF, 0xE1)), 5000);
    const QRect body = balloon.geometry().intersected(area);
    EXPECT_TRUE(area.contains(balloon.geometry())) << "the balloon fits on the screen";
    EXPECT_TRUE(area.contains(agent.window()->geometry()));
    EXPECT_FALSE(body.intersects(agent.window()->geometry().adjusted(0, 48, 0, 0))) << "the balloon leaves the face clear";
    // Outside the character's shape the desktop shows through.
    const QPoint corner = agent.window()->geometry().topLeft() + QPoint(1, 1);
    EXPECT_NE(picture.pixel(corner) & 0xFFFFFF, 0u);
    agent.stop();
}

} // namespace
} // namespace corvel

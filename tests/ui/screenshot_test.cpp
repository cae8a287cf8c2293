// The main window on a real X server, shrunk and expanded, saved as pictures to look at.
// Run by the corvel_ui_screenshots tests under xvfb-run; skipped on the offscreen platform.

#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSet>
#include <QTabWidget>
#include <QTest>
#include <QTimer>

#include "app/window_behaviour.h"
#include "ui/artwork.h"
#include "ui/main_window.h"
#include "ui/splash_window.h"

namespace corvel {
namespace {

const std::filesystem::path shipped = CORVEL_ASSETS_DIR;

// The window filled as a running answer phone would fill it.
void fill(MainWindow& window)
{
    const auto digit = [](int d) { return shipped / "digits" / (std::to_string(d) + ".gif"); };
    const std::pair<const char*, int> digits[] = {{"newcall1", 0}, {"newcall2", 3}, {"new1", 0},
                                                  {"new2", 2},      {"old1", 1},     {"old2", 7}};
    for (const auto& [name, value] : digits) ASSERT_TRUE(window.loadPicture(name, digit(value)));
    LineLamps lamps;
    lamps.l1 = lamps.l3 = lamps.l4 = lamps.Label6 = true;
    window.showLamps(lamps);
    window.setText("txt_reccalls", " keyed - 01632960123, on 12 March 2026, at 6:22:10 PM\r\n"
                                   "withheld, on 12 March 2026, at 6:21:44 PM\r\n"
                                   "07700900461, on 12 March 2026, at 2:03:15 PM\r\n"
                                   "anna clarke, on 12 March 2026, at 11:40:57 AM\r\n"
                                   "unavailable, on 11 March 2026, at 9:14:02 AM\r\n");
    window.setListItems("ComboDevice", {"Test line", "USB modem (ttyACM0)"});
    window.setText("txt_rings", "5");
    window.setText("txt_transfer", "20");
    window.setText("txt_vol", "10");
    for (const char* box : {"chk_ansa", "chk_opt1", "chk_opt2", "chk_opt3", "chk_balloon", "chk_effects"})
        window.setChecked(box, true);
    window.setListItems("contacts", {"Number: 01632 960123, Name: Anna Clarke", "Number: 07700 900461, Name: Tom"});
    window.setListItems("File1", {"Phony.chr"});
    window.setText("txt_morning", "/home/user/.local/share/corvel/goodmorning.wav");
}

// These tests run in a process of their own. Its application is made on the heap and left to
// the end of the process: a static one would be destroyed after Qt's own statics, and a shown
// dialog leaves clean-up routines that then crash.
void ensureLastingApplication()
{
    if (QCoreApplication::instance()) return;
    static int argc = 1;
    static char name[] = "corvel_ui_tests";
    static char* argv[] = {name, nullptr};
    new QApplication(argc, argv);
}

// Distinct colours in the picture, counted up to `enough`.
int colours(const QImage& image, int enough)
{
    QSet<QRgb> seen;
    for (int y = 0; y < image.height() && seen.size() < enough; y += 2)
        for (int x = 0; x < image.width() && seen.size() < enough; x += 2) seen.insert(image.pixel(x, y));
    return static_cast<int>(seen.size());
}

TEST(MainWindowScreenshot, ShrunkAndExpandedOnARealDisplay)
{
    if (qEnvironmentVariable("QT_QPA_PLATFORM") == "offscreen")
        GTEST_SKIP() << "needs a real X server: run the corvel_ui_screenshots test";
    ensureLastingApplication();
    if (QGuiApplication::platformName() != "xcb") GTEST_SKIP() << "not on X: " << qPrintable(QGuiApplication::platformName());

    const QString folder = QString::fromUtf8(CORVEL_TEST_ARTIFACTS_DIR);
    ASSERT_TRUE(QDir().mkpath(folder));
    MainWindow window;
    fill(window);
    window.moveMainWindow(1500, 1500);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    const qreal ratio = window.devicePixelRatioF();
    const QString suffix = ratio == 1 ? QString() : QString("@%1x").arg(ratio);
    const int width = qRound(MainWindow::widthTwips / window.mainWindowPlacement().twipsPerPixel);

    const auto shoot = [&](double heightTwips, const QString& name) {
        window.setMainWindowHeight(heightTwips);
        QCoreApplication::processEvents();
        const QImage picture = window.grab().toImage();
        EXPECT_TRUE(picture.save(folder + '/' + name + suffix + ".png")) << qPrintable(name);
        const int height = qRound(heightTwips / window.mainWindowPlacement().twipsPerPixel);
        EXPECT_EQ(picture.size(), QSize(width, height) * ratio) << qPrintable(name);
        EXPECT_GE(colours(picture, 12), 12) << qPrintable(name) << " looks blank";
        // Rounded corners: nothing painted in the very corner, the panel just inside it.
        EXPECT_EQ(qAlpha(picture.pixel(0, 0)), 0) << qPrintable(name);
        EXPECT_EQ(qAlpha(picture.pixel(picture.width() / 2, picture.height() / 2)), 255) << qPrintable(name);
    };
    shoot(WindowBehaviour::shrunkHeight, "main-shrunk");
    shoot(WindowBehaviour::expandedHeight, "main-expanded");
    // A message box takes the window's look.
    QTimer::singleShot(0, [&] {
        if (QWidget* box = QApplication::activeModalWidget()) {
            EXPECT_TRUE(QTest::qWaitForWindowExposed(box));
            box->grab().save(folder + "/dialog" + suffix + ".png");
            box->close();
        }
    });
    window.messageBox(MessageIcon::Exclamation, "Corvel",
                      "Before you can use this software, you need to select your modem from the modems list.");
    EXPECT_TRUE(QFile::exists(folder + "/dialog" + suffix + ".png"));
    // The pop-ups beside it.
    window.loadPicture("photo", shipped / "withheld.gif");
    window.setText("lab_number", "Withheld");
    window.showCallerPicture();
    window.setPickupCaption("Anna Clarke - 12");
    window.showPickup();
    window.showDesktopCall("Anna Clarke");
    for (QWidget* top : QApplication::topLevelWidgets()) {
        const QString name = top->objectName();
        if (name != "frm_display" && name != "frm_pickup" && name != "frm_desktopcall") continue;
        ASSERT_TRUE(QTest::qWaitForWindowExposed(top));
        EXPECT_TRUE(top->grab().save(folder + '/' + top->objectName() + suffix + ".png"));
    }
    // Every page, for looking over.
    auto* tabs = window.findChild<QTabWidget*>("SSTab1");
    for (int page = 1; page < tabs->count(); ++page) {
        tabs->setCurrentIndex(page);
        shoot(WindowBehaviour::expandedHeight, QString("main-page%1").arg(page + 1));
    }
}

// The splash and the mark at the sizes a tray asks for, beside one another.
TEST(MainWindowScreenshot, SplashAndMark)
{
    if (qEnvironmentVariable("QT_QPA_PLATFORM") == "offscreen")
        GTEST_SKIP() << "needs a real X server: run the corvel_ui_screenshots test";
    ensureLastingApplication();
    const QString folder = QString::fromUtf8(CORVEL_TEST_ARTIFACTS_DIR);
    ASSERT_TRUE(QDir().mkpath(folder));
    SplashWindow splash;
    splash.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&splash));
    const qreal ratio = splash.devicePixelRatioF();
    const QString suffix = ratio == 1 ? QString() : QString("@%1x").arg(ratio);
    const QImage picture = splash.grab().toImage();
    EXPECT_TRUE(picture.save(folder + "/splash" + suffix + ".png"));
    EXPECT_GE(colours(picture, 12), 12);

    const QIcon mark = artwork::markIcon();
    QImage sheet(QSize(16 + 22 + 32 + 64 + 50, 64) * ratio, QImage::Format_ARGB32_Premultiplied);
    sheet.setDevicePixelRatio(ratio);
    sheet.fill(Qt::transparent);
    QPainter painter(&sheet);
    int left = 0;
    for (const int side : {16, 22, 32, 64}) {
        mark.paint(&painter, QRect(left, 0, side, side));
        left += side + 10;
    }
    painter.end();
    EXPECT_TRUE(sheet.save(folder + "/mark" + suffix + ".png"));
}

} // namespace
} // namespace corvel

#include "ui/main_window.h"

#include <gtest/gtest.h>

#include "support/qt_application.h"

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPointingDevice>
#include <QTabWidget>
#include <QTest>
#include <QTimer>

#include "records/caller_display.h"
#include "support/answer_phone_harness.h"
#include "update/update_check.h"
#include "ui/qt_locale_texts.h"
#include "ui/style.h"
#include "ui/test_line_panel.h"

namespace corvel {
namespace {

const std::filesystem::path shipped = CORVEL_ASSETS_DIR;

// The window of its own (frm_display, frm_pickup, ...) that goes by `name`.
QWidget* topLevel(const char* name)
{
    for (QWidget* top : QApplication::topLevelWidgets())
        if (top->objectName() == name) return top;
    return nullptr;
}

class MainWindowTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        testing::ensureQApplication();
        // The offscreen platform has no mouse, so Qt makes one up for the first mouse event, as a
        // child of the application. The application lives in a static that outlasts Qt's own,
        // and would delete that mouse after them at exit: kept apart, it is left alone.
        const_cast<QPointingDevice*>(QPointingDevice::primaryPointingDevice())->setParent(nullptr);
    }
};

TEST_F(MainWindowTest, ControlsShowTheShippedDigitsAndTextsByName)
{
    MainWindow window;
    EXPECT_TRUE(window.loadPicture("new1", shipped / "digits" / "4.gif"));
    EXPECT_FALSE(window.loadPicture("old2", shipped / "digits" / ".gif")) << "no digit, no picture";
    EXPECT_FALSE(window.findChild<QLabel*>("new1")->pixmap().isNull());
    EXPECT_TRUE(window.findChild<QLabel*>("old2")->pixmap().isNull());

    window.setText("txt_reccalls", "Withheld, on 14 November 2026\r\n");
    EXPECT_EQ(window.findChild<QPlainTextEdit*>("txt_reccalls")->toPlainText().toStdString(),
              "Withheld, on 14 November 2026\n");
    window.setText("txt_phone", "0123");
    EXPECT_EQ(window.text("txt_phone"), "0123");
    window.setListItems("contacts", {"Number: 1, Name: A", "Number: 2, Name: B"});
    EXPECT_EQ(window.selectedItem("contacts"), "") << "nothing selected yet";
}

// Shown as a message plays: the window first, then its text and picture. Each picture is laid
// out, the label right under it, the window no narrower than its minimum.
TEST_F(MainWindowTest, TheCallerPictureIsLaidOutForEveryPictureItShows)
{
    const std::filesystem::path wide = std::filesystem::temp_directory_path() / "corvel-wide-picture.png";
    ASSERT_TRUE(QImage(400, 50, QImage::Format_RGB32).save(QString::fromStdString(wide.string())));
    MainWindow window;
    window.showCallerPicture();
    const QWidget* popUp = topLevel("frm_display");
    ASSERT_NE(popUp, nullptr);
    const auto* photo = popUp->findChild<QLabel*>("photo");
    const auto* label = popUp->findChild<QLabel*>("lab_number");
    const double twipsPerPixel = 1440.0 / popUp->logicalDpiX();

    window.setText("lab_number", "Withheld");
    ASSERT_TRUE(window.loadPicture("photo", shipped / "withheld.gif"));
    EXPECT_EQ(photo->height(), 96);
    EXPECT_EQ(label->y(), 96) << "right under the 96-pixel picture";
    EXPECT_NEAR(popUp->width() * twipsPerPixel, CallerDisplay::minimumWidth, twipsPerPixel);
    EXPECT_EQ(popUp->height(), 96 + label->height());

    window.showCallerPicture();
    ASSERT_TRUE(window.loadPicture("photo", wide));
    EXPECT_EQ(photo->size(), QSize(400, 50));
    EXPECT_EQ(label->y(), 50);
    EXPECT_EQ(popUp->width(), 400);
    EXPECT_EQ(popUp->height(), 50 + label->height());
    window.unloadCallerPicture();
    EXPECT_FALSE(popUp->isVisible());
    std::filesystem::remove(wide);
}

// What a label shows, as a screen reader reads it out: markup it took as such is gone.
std::string shown(const QLabel* label)
{
    return QAccessible::queryAccessibleInterface(const_cast<QLabel*>(label))->text(QAccessible::Name).toStdString();
}

// A SIP display name is whatever the caller's telephone sends.
TEST_F(MainWindowTest, CallerTextIsShownAsWrittenNeverAsMarkup)
{
    const std::string name = R"(<b><img src="/tmp/x.png">Eve</b>)";
    MainWindow window;
    window.setText("lab_number", name);
    window.setPickupCaption(name);
    window.showDesktopCall(name);
    for (const auto& [popUp, label] : {std::pair{"frm_display", "lab_number"}, std::pair{"frm_pickup", "lab_caller"},
                                       std::pair{"frm_desktopcall", "lab_caller"}}) {
        const QWidget* top = topLevel(popUp);
        ASSERT_NE(top, nullptr) << popUp;
        EXPECT_EQ(shown(top->findChild<QLabel*>(label)), name) << popUp;
    }
    window.closeDesktopCall();

    // Message boxes and questions too: their texts may carry a name from the line.
    std::vector<std::string> boxes;
    const auto readAndClose = [&] {
        if (QWidget* box = QApplication::activeModalWidget()) {
            boxes.push_back(shown(box->findChild<QLabel*>("qt_msgbox_label")));
            box->close();
        }
    };
    QTimer::singleShot(0, readAndClose);
    window.messageBox(MessageIcon::Stop, "Corvel", name);
    QTimer::singleShot(0, readAndClose);
    window.askYesNo("Corvel", name);
    EXPECT_EQ(boxes, std::vector<std::string>({name, name}));
}

// Corvel's look: its stylesheet, and its palette for what a stylesheet does not reach.
bool hasCorvelsLook(const QWidget* window)
{
    return window && window->styleSheet() == style::sheet() &&
           window->palette().color(QPalette::Window) == style::qcolor(style::colour::panel) &&
           window->palette().color(QPalette::Highlight) == style::qcolor(style::colour::accent);
}

TEST_F(MainWindowTest, EveryWindowAndDialogSharesTheMainWindowsLook)
{
    testing::VirtualEventLoop loop;
    TestLine line{loop};
    const TestLinePanel testPhone(line);
    MainWindow window;
    EXPECT_TRUE(hasCorvelsLook(&window));
    EXPECT_TRUE(hasCorvelsLook(&testPhone));
    for (const char* name : {"frm_display", "frm_pickup", "frm_desktopcall", "frm_download"})
        EXPECT_TRUE(hasCorvelsLook(topLevel(name))) << name;

    std::vector<bool> dialogs;
    const auto lookAndClose = [&] {
        QWidget* dialog = QApplication::activeModalWidget();
        dialogs.push_back(hasCorvelsLook(dialog));
        if (dialog) dialog->close();
    };
    QTimer::singleShot(0, lookAndClose);
    window.messageBox(MessageIcon::Information, "Corvel", "text");
    QTimer::singleShot(0, lookAndClose);
    window.askYesNo("Corvel", "text");
    QTimer::singleShot(0, lookAndClose);
    window.inputBox("Number?", "Corvel");
    QTimer::singleShot(0, lookAndClose);
    window.openFileDialog("Picture files (*.gif)|*.gif", std::filesystem::temp_directory_path());
    EXPECT_EQ(dialogs, std::vector<bool>({true, true, true, true}));
}

TEST_F(MainWindowTest, TheDownloadCountsItsMinutesInLabInfo)
{
    MainWindow window;
    window.setDownloadText(downloadText(1));
    const QWidget* download = topLevel("frm_download");
    ASSERT_NE(download, nullptr);
    const auto* info = download->findChild<QLabel*>("lab_info");
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->text().toStdString(), downloadText(1));
}

TEST_F(MainWindowTest, LocaleTextsAlwaysHaveDesignatorsAndAWrittenDate)
{
    const QtLocaleTexts locale;
    EXPECT_FALSE(locale.amText().empty());
    EXPECT_FALSE(locale.pmText().empty());
    const std::string date = locale.longDate(std::chrono::year{2026} / 11 / 14);
    EXPECT_NE(date.find("2026"), std::string::npos);
    EXPECT_NE(date.find("14"), std::string::npos);
}

TEST_F(MainWindowTest, NineTabsInOrderAndEveryControlByItsName)
{
    MainWindow window;
    const auto* tabs = window.findChild<QTabWidget*>("SSTab1");
    ASSERT_NE(tabs, nullptr);
    QStringList captions;
    for (int i = 0; i < tabs->count(); ++i) captions << tabs->tabText(i);
    EXPECT_EQ(captions, QStringList({"Calls", "Settings 1", "Settings 2", "Pictures", "Audio", "Agent", "Directory",
                                     "About", "Blocked"}));

    std::vector<std::string> names{"newcall1", "newcall2", "new1",    "new2",     "old1",      "old2",      "l1",
                                   "l2",       "l3",       "l4",      "l5",       "Label6",    "Image2",    "Image3",
                                   "Image4",   "Image5",   "Label10", "Label18",  "Label19",   "txt_reccalls",
                                   "Command4", "ComboDevice", "Command1", "txt_phone", "Command7", "Command8",
                                   "Command9", "Command10", "File1",  "Command27", "contacts", "Command28",
                                   "Command29", "Label37", "blocked1", "blocked2", "lab_blockedreset",
                                   "cmd_blockcaller", "cmd_unblockcaller", "lst_blocked", "cmd_blockadd",
                                   "cmd_blockremove", "cmd_blockimport", "cmd_blockexport"};
    for (const auto& text : Options::textFields) names.emplace_back(text.field);
    for (const auto& option : Options::checkBoxes) names.insert(names.end(), {std::string(option.box), std::string(option.caption)});
    for (const auto& stepper : Options::steppers)
        names.insert(names.end(), {std::string(stepper.field), std::string(stepper.down), std::string(stepper.up)});
    for (const auto& prompt : PromptFiles::prompts)
        names.insert(names.end(), {std::string(prompt.field), std::string(prompt.change), std::string(prompt.play)});
    for (const std::string& name : names)
        EXPECT_NE(window.findChild<QWidget*>(QString::fromStdString(name)), nullptr) << name;
    for (const auto& option : Options::checkBoxes)
        EXPECT_NE(window.findChild<QCheckBox*>(QString::fromUtf8(option.box.data(), option.box.size())), nullptr);

    const auto* link = window.findChild<QLabel*>("Label37");
    EXPECT_EQ(link->text(), "Click here to visit the 'Corvel' web site");
    EXPECT_EQ(link->toolTip(), "Click here to visit the corvel web site");
}

// A whole answer phone with the real window as its view.
class PhoneOnWindowTest : public MainWindowTest {
protected:
    PhoneOnWindowTest() { window.attach(phone); }
    ~PhoneOnWindowTest() override { std::filesystem::remove_all(top); }

    template <typename Widget = QWidget> Widget* find(const char* name)
    {
        auto* widget = window.findChild<Widget*>(name);
        EXPECT_NE(widget, nullptr) << name;
        return widget;
    }
    void click(const char* name) { QTest::mouseClick(find(name), Qt::LeftButton); }
    std::string data(std::string_view key) const { return settings::readData(settings, key, "(unset)"); }

    const std::filesystem::path top = [] {
        std::string pattern = (std::filesystem::temp_directory_path() / "corvel-window-XXXXXX").string();
        return std::filesystem::path(::mkdtemp(pattern.data()));
    }();
    testing::VirtualEventLoop loop;
    testing::MemorySettingsStore settings;
    TestLine line{loop};
    testing::RecordingAgent agent;
    MainWindow window;
    testing::RecordingSpeaker speaker;
    testing::FixedLocale locale;
    DataFolder folder{top};
    testing::RecordingShell shell;
    Autostart autostart{top / "autostart" / "corvel.desktop", "/usr/bin/corvel"};
    testing::ScriptedHttp http;
    AnswerPhone phone{{loop, settings, line, agent, window, speaker, locale, folder, shell, autostart, http, top,
                       top / "cache"}};
};

TEST_F(PhoneOnWindowTest, StartingUpFillsTheWindowAndShrinksIt)
{
    settings.set("modem", "0");
    phone.startUp();
    EXPECT_EQ(window.mainWindowPlacement().height, WindowBehaviour::shrunkHeight);
    EXPECT_EQ(window.text("txt_rings"), "5");
    EXPECT_EQ(window.text("txt_transfer"), "20");
    EXPECT_TRUE(window.isChecked("chk_ansa"));
    EXPECT_FALSE(window.isChecked("chk_allcalls"));
    EXPECT_EQ(window.text("txt_morning"), (top / "goodmorning.wav").string());
    EXPECT_NE(window.trayIcon().menu(), nullptr);
}

// The options' logic is tested on the answer phone; here each control of the settings pages
// reaches it, and ticking from code is no click.
TEST_F(PhoneOnWindowTest, TheSettingsPagesControlsReachTheOptions)
{
    for (const auto& option : Options::checkBoxes) {
        const std::string box(option.box);
        const std::string caption(option.caption);
        const bool before = window.isChecked(box);
        click(caption.c_str());
        EXPECT_EQ(window.isChecked(box), !before) << caption;
        if (!option.key.empty()) {
            EXPECT_EQ(data(option.key), before ? "False" : "True") << caption;
        }
        click(caption.c_str());
        EXPECT_EQ(window.isChecked(box), before) << caption;
    }
    click("Label3");
    EXPECT_TRUE(autostart.enabled()) << "chk_lww is the autostart entry";

    window.setChecked("chk_opt3", !window.isChecked("chk_opt3"));
    EXPECT_EQ(data("noid"), "False") << "setChecked is no click";

    for (const auto& stepper : Options::steppers) {
        window.setText(stepper.field, "5");
        click(std::string(stepper.up).c_str());
        EXPECT_EQ(window.text(stepper.field), "6") << stepper.up;
        click(std::string(stepper.down).c_str());
        EXPECT_EQ(data(stepper.key), "5") << stepper.down;
    }
    EXPECT_TRUE(find<QLineEdit>("txt_transfer")->isReadOnly());
}

TEST_F(PhoneOnWindowTest, StartingTheTestLineOpensTheTestPhone)
{
    QWidget testPhone;
    window.setTestPhone(&testPhone);
    window.setListItems("ComboDevice", {std::string(TestLine::name)});
    click("Command1");
    EXPECT_TRUE(testPhone.isVisible()) << "START";
    testPhone.hide();
    emit find<QComboBox>("ComboDevice")->activated(0);
    EXPECT_TRUE(testPhone.isVisible()) << "chosen from the list";
}

TEST_F(PhoneOnWindowTest, ExpandingNearTheScreenBottomMovesUpAndShrinkingPutsItBack)
{
    window.show();
    window.setMainWindowHeight(WindowBehaviour::shrunkHeight);
    const double t = window.mainWindowPlacement().twipsPerPixel;
    const double bottom = window.mainWindowPlacement().screenHeight;
    const double top = bottom - 3000;
    window.moveMainWindow(1500, top);

    click("Image4");
    WindowPlacement placement = window.mainWindowPlacement();
    EXPECT_EQ(placement.height, WindowBehaviour::expandedHeight);
    EXPECT_NEAR(placement.top, bottom - WindowBehaviour::expandedHeight, t);
    EXPECT_EQ(window.height(), qRound(WindowBehaviour::expandedHeight / t));

    click("Image4");
    placement = window.mainWindowPlacement();
    EXPECT_EQ(placement.height, WindowBehaviour::shrunkHeight);
    EXPECT_NEAR(placement.top, top, t);
    EXPECT_EQ(settings.read("Withheld", "data", "frmy", ""), positionText(placement.top));
}

// A window manager that keeps windows inside the screen's work area: a window moved past its
// bottom edge is put back on it.
class WorkAreaBottom final : public QObject {
public:
    explicit WorkAreaBottom(int top) : top_(top) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        auto* window = static_cast<QWidget*>(watched);
        if (event->type() == QEvent::Move && window->y() > top_) window->move(window->x(), top_);
        return false;
    }

private:
    int top_; // the highest top that keeps the window inside
};

TEST_F(PhoneOnWindowTest, ShakingLeavesTheWindowWhereItStarted)
{
    window.show();
    window.moveMainWindow(1500, 1500);
    const QPoint start = window.pos();
    phone.handling.shake();
    EXPECT_EQ(window.pos(), start);

    WorkAreaBottom workArea(start.y()); // standing on the bottom edge: no room to move down
    window.installEventFilter(&workArea);
    phone.handling.shake();
    window.removeEventFilter(&workArea);
    EXPECT_EQ(window.pos(), start);
}

TEST_F(PhoneOnWindowTest, DraggingTheSurfaceMovesTheWindowAndKeepsItsPlace)
{
    window.show();
    window.moveMainWindow(1500, 1500);
    LineLamps keypress;
    keypress.Label6 = true;
    window.showLamps(keypress);
    const QPoint start = window.pos();
    const auto send = [](QWidget* target, QEvent::Type type, QPoint global, Qt::MouseButton button,
                         Qt::MouseButtons held) {
        QMouseEvent event(type, QPointF(target->mapFromGlobal(global)), QPointF(global), button, held, Qt::NoModifier);
        QApplication::sendEvent(target, &event);
    };
    for (const char* handle : {"Image5", "Label6"}) { // the drag image, and a legend on the surface
        QWidget* grip = find(handle);
        const QPoint from = grip->mapToGlobal(QPoint(2, 2));
        const QPoint moved = window.pos();
        send(grip, QEvent::MouseButtonPress, from, Qt::LeftButton, Qt::LeftButton);
        send(grip, QEvent::MouseMove, from + QPoint(20, 10), Qt::NoButton, Qt::LeftButton);
        send(grip, QEvent::MouseMove, from + QPoint(40, 30), Qt::NoButton, Qt::LeftButton);
        send(grip, QEvent::MouseButtonRelease, from + QPoint(40, 30), Qt::LeftButton, Qt::NoButton);
        EXPECT_EQ(window.pos(), moved + QPoint(40, 30)) << handle;
    }
    const WindowPlacement placement = window.mainWindowPlacement();
    EXPECT_EQ(window.pos(), start + QPoint(80, 60));
    EXPECT_EQ(settings.read("Withheld", "data", "frmx", ""), positionText(placement.left));
    EXPECT_EQ(settings.read("Withheld", "data", "frmy", ""), positionText(placement.top));

    // A caption takes its own click: no drag starts on it.
    QWidget* caption = find("Label19");
    const QPoint on = caption->mapToGlobal(QPoint(2, 2));
    send(caption, QEvent::MouseButtonPress, on, Qt::LeftButton, Qt::LeftButton);
    send(caption, QEvent::MouseMove, on + QPoint(30, 30), Qt::NoButton, Qt::LeftButton);
    send(caption, QEvent::MouseButtonRelease, on + QPoint(30, 30), Qt::LeftButton, Qt::NoButton);
    EXPECT_EQ(window.pos(), start + QPoint(80, 60));
}

TEST_F(PhoneOnWindowTest, TheTrayMenuAnswersTheAnswerPhonesEntries)
{
    window.showTrayIcon(AnswerPhone::trayMenu(), "Corvel");
    const QMenu* menu = window.trayIcon().menu();
    ASSERT_NE(menu, nullptr);
    const QList<QAction*> actions = menu->actions();
    ASSERT_EQ(actions.size(), 11);

    window.setMainWindowHeight(WindowBehaviour::shrunkHeight);
    window.hide();
    actions[8]->trigger(); // About Corvel
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(window.findChild<QTabWidget*>("SSTab1")->currentIndex(), 7);
    EXPECT_EQ(window.mainWindowPlacement().height, WindowBehaviour::expandedHeight);

    window.releaseTrayIcon();
    EXPECT_EQ(window.trayIcon().menu(), nullptr);
}

// The offscreen platform, like GNOME without its tray extension, has no notification area.
TEST_F(PhoneOnWindowTest, WithoutANotificationAreaHidingToTheTrayMinimises)
{
    window.show();
    click("Image3");
    EXPECT_TRUE(window.isVisible());
    EXPECT_TRUE(window.isMinimized());
    EXPECT_EQ(data("hide"), "(unset)");
}

TEST_F(PhoneOnWindowTest, ClosingIsRefusedWhileAnUpdateDownloads)
{
    window.show();
    phone.downloading = true;
    // The answer phone says why in a message box; dismiss it as the user would.
    QTimer::singleShot(0, [] {
        if (QWidget* box = QApplication::activeModalWidget()) box->close();
    });
    EXPECT_FALSE(window.close());
    EXPECT_TRUE(window.isVisible());
}

} // namespace
} // namespace corvel

#include "ui/main_window.h"

#include <gtest/gtest.h>

#include "support/qt_application.h"

#include <QApplication>
#include <QLabel>
#include <QPlainTextEdit>

#include "records/caller_display.h"
#include "ui/qt_locale_texts.h"

namespace corvel {
namespace {

const std::filesystem::path shipped = CORVEL_ASSETS_DIR;

class MainWindowTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { testing::ensureQApplication(); }
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

TEST_F(MainWindowTest, TheCallerPictureIsNeverNarrowerThanItsMinimum)
{
    MainWindow window;
    ASSERT_TRUE(window.loadPicture("photo", shipped / "default.gif"));
    window.setText("lab_number", "Withheld");
    window.showCallerPicture();
    const QWidget* popUp = nullptr;
    for (const QWidget* top : QApplication::topLevelWidgets())
        if (top->objectName() == "frm_display" && top->isVisible()) popUp = top;
    ASSERT_NE(popUp, nullptr);
    const double twipsPerPixel = 1440.0 / popUp->logicalDpiX();
    EXPECT_NEAR(popUp->width() * twipsPerPixel, CallerDisplay::minimumWidth, twipsPerPixel);
    const auto* label = popUp->findChild<QLabel*>("lab_number");
    EXPECT_EQ(label->y(), 96) << "right under the 96-pixel picture";
    window.unloadCallerPicture();
    EXPECT_FALSE(popUp->isVisible());
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

} // namespace
} // namespace corvel

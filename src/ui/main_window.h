#pragma once

#include <array>

#include <QLabel>
#include <QPoint>
#include <QWidget>

#include "base/view.h"
#include "ui/caller_display_window.h"
#include "ui/desktop_call_window.h"
#include "ui/download_window.h"
#include "ui/panel_widgets.h"
#include "ui/pickup_window.h"
#include "ui/tray_icon.h"

namespace corvel {

class AnswerPhone;
class GlyphButton;

// The main window `frm_main`: a frameless panel whose top strip (counters, lamps, image
// buttons) is all that shows when it is shrunk, with the tabs below it when it is expanded.
// Every control carries its name as its objectName.
class MainWindow final : public QWidget, public View {
    Q_OBJECT

public:
    static constexpr double widthTwips = 5600;

    MainWindow();
    ~MainWindow() override;

    // Sends the controls' clicks to the answer phone behind the window.
    void attach(AnswerPhone& phone);
    TrayIcon& trayIcon() { return tray_; }
    // The telephone the user plays the caller on, shown whenever the test line is started.
    void setTestPhone(QWidget* testPhone) { testPhone_ = testPhone; }
    // Shows the test phone when the line open is the test line.
    void showTestPhone();

    void setBusyCursor(bool busy) override;
    bool busyCursor() const override { return busy_; }
    void showLamps(const LineLamps& lamps) override;
    bool loadPicture(std::string_view control, const std::filesystem::path& picture) override;
    void setText(std::string_view control, std::string_view text) override;
    std::string text(std::string_view control) const override;
    void setListItems(std::string_view control, const std::vector<std::string>& items) override;
    std::string selectedItem(std::string_view control) const override;
    void setListIndex(std::string_view control, int index) override;
    bool isChecked(std::string_view box) const override;
    void setChecked(std::string_view box, bool ticked) override;
    void selectTab(std::string_view control, int index) override;
    void shiftMainWindowDown(double twips) override;
    void moveMainWindow(double left, double top) override;
    void setMainWindowHeight(double twips) override;
    void setMainWindowVisible(bool visible) override;
    bool mainWindowVisible() const override { return isVisible(); }
    void minimiseMainWindow() override { showMinimized(); }
    void showTrayIcon(const std::vector<TrayMenuEntry>& menu, std::string_view tip) override;
    void releaseTrayIcon() override;
    bool trayIconShown() const override { return tray_.visible(); }
    void showCallerPicture() override;
    void unloadCallerPicture() override;
    void showPickup() override;
    void setPickupCaption(std::string_view text) override;
    void unloadPickup() override;
    void showDesktopCall(std::string_view caller) override;
    void closeDesktopCall() override;
    void showDownload() override;
    void setDownloadText(std::string_view text) override;
    void setDownloadShapeVisible(bool visible) override;
    void closeDownload() override;
    WindowPlacement mainWindowPlacement() const override;
    void messageBox(MessageIcon icon, std::string_view title, std::string_view text) override;
    bool askYesNo(std::string_view title, std::string_view text) override;
    std::string inputBox(std::string_view prompt, std::string_view title) override;
    std::string openFileDialog(std::string_view filter, const std::filesystem::path& folder) override;
    std::string saveFileDialog(std::string_view filter, const std::filesystem::path& suggested) override;
    void beep() override;
    void endProgram() override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* topStrip();
    QWidget* counters();
    QWidget* lampPanel();
    QWidget* callsPage();
    QWidget* answeringPage();
    QWidget* transferPage();
    QWidget* picturesPage();
    QWidget* audioPage();
    QWidget* agentPage();
    QWidget* directoryPage();
    QWidget* blockedPage();
    QWidget* aboutPage();
    template <typename Widget> Widget* control(std::string_view name) const { return findChild<Widget*>(toQt(name)); }
    double twipsPerPixel() const;
    int pixels(double twips) const;
    void showContextMenu(const QPoint& at);
    // A message box with `buttons` (QMessageBox::StandardButtons); the button pressed.
    int ask(MessageIcon icon, std::string_view title, std::string_view text, int buttons);

    AnswerPhone* phone_ = nullptr;
    QWidget* testPhone_ = nullptr;
    QWidget* body_ = nullptr; // the full-height contents; the window's height cuts it off
    GlyphButton* sizeButton_ = nullptr;
    std::array<QWidget*, 5> lamps_{};
    std::array<QLabel*, 5> legends_{}; // legends_[3] is Label6
    double requestedHeight_ = 0; // twips, as last asked for
    double shiftedTwips_ = 0;    // moved by shiftMainWindowDown since it began at shiftOrigin_
    QPoint shiftOrigin_;
    bool busy_ = false;
    bool ending_ = false;

    // A press on the window's surface, followed until the button is released.
    struct Press {
        Qt::MouseButton button = Qt::NoButton;
        QPoint pointer; // global
        QPoint window;
        bool dragged = false;
    } press_;

    CallerDisplayWindow display_;
    PickupWindow pickup_;
    DesktopCallWindow desktopCall_;
    DownloadWindow download_;
    TrayIcon tray_;
};

} // namespace corvel

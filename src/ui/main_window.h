#pragma once

#include <array>

#include <QLabel>
#include <QListWidget>
#include <QWidget>

#include "app/view.h"
#include "ui/caller_display_window.h"
#include "ui/pickup_window.h"

namespace corvel {

class AnswerPhone;

// The main window `frm_main`. Every control carries its name as its objectName.
class MainWindow final : public QWidget, public View {
    Q_OBJECT

public:
    MainWindow();
    ~MainWindow() override;

    // Sends the controls' clicks to the answer phone behind the window.
    void attach(AnswerPhone& phone);

    void setBusyCursor(bool busy) override;
    bool busyCursor() const override { return busy_; }
    void showLamps(const LineLamps& lamps) override;
    bool loadPicture(std::string_view control, const std::filesystem::path& picture) override;
    void setText(std::string_view control, std::string_view text) override;
    std::string text(std::string_view control) const override;
    void setListItems(std::string_view control, const std::vector<std::string>& items) override;
    std::string selectedItem(std::string_view control) const override;
    void setListIndex(std::string_view control, int index) override;
    void selectTab(std::string_view control, int index) override;
    void shiftMainWindowDown(double twips) override;
    void showCallerPicture() override;
    void unloadCallerPicture() override;
    void showPickup() override;
    void setPickupCaption(std::string_view text) override;
    void unloadPickup() override;
    WindowPlacement mainWindowPlacement() const override;
    void messageBox(MessageIcon icon, std::string_view title, std::string_view text) override;
    bool askYesNo(std::string_view title, std::string_view text) override;
    std::string inputBox(std::string_view prompt, std::string_view title) override;
    std::string openFileDialog(std::string_view filter, const std::filesystem::path& folder) override;
    void beep() override;
    void endProgram() override;

private:
    QWidget* callsPage();
    QWidget* picturesPage();
    QWidget* directoryPage();
    template <typename Widget> Widget* control(std::string_view name) const;

    std::array<QLabel*, 5> lamps_{};
    QLabel* keypressLegend_ = nullptr;
    QWidget* linePage();
    double twipsPerPixel() const;

    CallerDisplayWindow display_;
    PickupWindow pickup_;
    double shiftedTwips_ = 0; // moved by shiftMainWindowDown but not yet a whole pixel
    bool busy_ = false;
};

} // namespace corvel

#pragma once

#include <array>

#include <QLabel>
#include <QWidget>

#include "app/view.h"

namespace corvel {

// The main window `frm_main`, as far as the line needs it: the activity lamps with their
// legends, the busy cursor and message boxes.
class MainWindow final : public QWidget, public View {
    Q_OBJECT

public:
    MainWindow();
    ~MainWindow() override;

    void setBusyCursor(bool busy) override;
    void showLamps(const LineLamps& lamps) override;
    void messageBox(MessageIcon icon, std::string_view title, std::string_view text) override;
    void unloadCallerPicture() override;
    void unloadPickup() override;
    WindowPlacement mainWindowPlacement() const override;

private:
    std::array<QLabel*, 5> lamps_{};
    QLabel* keypressLegend_ = nullptr;
    bool busy_ = false;
};

} // namespace corvel

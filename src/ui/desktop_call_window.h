#pragma once

#include <QLabel>
#include <QPushButton>
#include <QWidget>

namespace corvel {

// The call the user took on the computer's own microphone and speaker: who is on the line and
// the button that hangs up. It stays on top, like the pick-up window it follows.
class DesktopCallWindow final : public QWidget {
    Q_OBJECT

public:
    DesktopCallWindow();
    void setCaller(const QString& caller);

signals:
    void hangUpClicked();

private:
    QLabel* caller_;
};

} // namespace corvel

#pragma once

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QTimer>
#include <QWidget>

#include "telephony/testline/test_line.h"

namespace corvel {

// A telephone for trying Corvel without a modem: the user plays the caller on the test line,
// choosing what caller ID the "network" delivers, ringing, keying and hanging up.
class TestLinePanel final : public QWidget {
    Q_OBJECT

public:
    explicit TestLinePanel(TestLine& line);

private:
    void ring();
    void showState();

    TestLine& line_;
    QComboBox* identity_;
    QLineEdit* number_;
    QLineEdit* name_;
    QLabel* state_;
    QTimer refresh_;
};

} // namespace corvel

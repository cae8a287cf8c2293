#include "ui/test_line_panel.h"

#include <algorithm>
#include <array>

#include <QFormLayout>
#include <QGridLayout>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/style.h"

namespace corvel {
namespace {

constexpr const char* keys = "123456789*0#";
// In the order of the caller-ID choices.
constexpr std::array identities{ScriptedCall::Identity::Number, ScriptedCall::Identity::Withheld,
                                ScriptedCall::Identity::Unavailable, ScriptedCall::Identity::None};

} // namespace

TestLinePanel::TestLinePanel(TestLine& line)
    : QWidget(nullptr, Qt::Tool), line_(line), identity_(new QComboBox(this)), number_(new QLineEdit("01632 960123", this)),
      name_(new QLineEdit("Test Caller", this)), state_(new QLabel(this))
{
    setObjectName("frm_testline");
    setWindowTitle("Test line: you are the caller");
    style::apply(*this);
    identity_->setObjectName("cmb_identity");
    identity_->addItems({"Number and name", "Number withheld", "Number unavailable", "No caller ID"});
    number_->setObjectName("txt_callernumber");
    name_->setObjectName("txt_callername");

    auto* form = new QFormLayout;
    form->addRow("Caller ID", identity_);
    form->addRow("Number", number_);
    form->addRow("Name", name_);

    auto* ringButton = new QPushButton("Ring", this);
    ringButton->setObjectName("cmd_ring");
    connect(ringButton, &QPushButton::clicked, this, &TestLinePanel::ring);
    auto* pad = new QGridLayout;
    for (int i = 0; keys[i]; ++i) {
        const char key = keys[i];
        auto* button = new QPushButton(QString(QChar(key)), this);
        button->setObjectName(QString("cmd_key%1").arg(QChar(key)));
        button->setMinimumHeight(36);
        connect(button, &QPushButton::clicked, this, [this, key] { line_.pressKey(key); });
        pad->addWidget(button, i / 3, i % 3);
    }
    auto* hangUp = new QPushButton("Hang up", this);
    hangUp->setObjectName("cmd_hangup");
    connect(hangUp, &QPushButton::clicked, this, [this] { line_.hangUp(); });

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(ringButton);
    layout->addLayout(pad);
    layout->addWidget(hangUp);
    layout->addWidget(state_);
    connect(&refresh_, &QTimer::timeout, this, &TestLinePanel::showState);
    refresh_.start(250);
    showState();
}

void TestLinePanel::ring()
{
    line_.placeCall(ScriptedCall::played(identities[static_cast<std::size_t>(std::clamp(identity_->currentIndex(), 0, 3))],
                                         number_->text().toStdString(), name_->text().toStdString()));
}

void TestLinePanel::showState()
{
    state_->setText(line_.callActive()  ? "Connected: key your number, speak, or hang up"
                    : line_.ringing()   ? QString("Ringing (%1)").arg(line_.ringCount())
                    : line_.lineOpen()  ? "Line idle: press Ring to call Corvel"
                                        : "Line closed");
}

} // namespace corvel

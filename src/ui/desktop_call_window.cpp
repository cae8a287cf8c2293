#include "ui/desktop_call_window.h"

#include <QVBoxLayout>

#include "ui/style.h"

namespace corvel {

DesktopCallWindow::DesktopCallWindow()
    : QWidget(nullptr, Qt::Tool | Qt::WindowStaysOnTopHint), caller_(new QLabel(this))
{
    setObjectName("frm_desktopcall");
    setWindowTitle("Corvel");
    auto* label = new QLabel("On the telephone with", this);
    label->setAlignment(Qt::AlignCenter);
    caller_->setObjectName("lab_caller");
    caller_->setAlignment(Qt::AlignCenter);
    caller_->setTextFormat(Qt::PlainText); // a caller's name is shown as written, never as markup
    caller_->setStyleSheet("font-weight: bold;");
    auto* hangUp = new QPushButton("Hang up", this);
    hangUp->setObjectName("cmd_hangup");
    hangUp->setProperty("role", "primary");
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(caller_);
    layout->addWidget(hangUp);
    connect(hangUp, &QPushButton::clicked, this, &DesktopCallWindow::hangUpClicked);
    setFixedWidth(260);
    style::apply(*this);
}

void DesktopCallWindow::setCaller(const QString& caller) { caller_->setText(caller.isEmpty() ? "the caller" : caller); }

} // namespace corvel

#include "ui/agent/property_sheet.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QVBoxLayout>

namespace corvel {

PropertySheet::PropertySheet() : text_(new QLabel(this))
{
    setObjectName("characterProperties");
    setWindowTitle("Character Properties");
    auto* layout = new QVBoxLayout(this);
    text_->setObjectName("properties");
    text_->setWordWrap(true);
    text_->setTextFormat(Qt::RichText);
    text_->setMinimumWidth(320);
    layout->addWidget(text_);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::hide);
    layout->addWidget(buttons);
}

void PropertySheet::show(const CharacterProperties& p)
{
    const auto row = [](const QString& name, const QString& value) {
        return "<tr><td style='padding-right:12px'><b>" + name.toHtmlEscaped() + "</b></td><td>" + value.toHtmlEscaped() +
               "</td></tr>";
    };
    QString html = "<table>";
    html += row("Character", p.name);
    html += row("Description", p.description);
    html += row("Voice", p.voice);
    html += row("Speed", QString::number(p.rate) + " words a minute");
    html += row("Pitch", QString::number(p.pitch) + " of 100");
    html += row("Balloon", p.balloon);
    html += row("Push-to-talk key", p.pushToTalk);
    html += row("Voice commands", p.listening);
    for (const QString& command : p.commands) html += row("", command);
    html += "</table>";
    text_->setText(html);
    adjustSize();
    QDialog::show();
    raise();
}

} // namespace corvel

#include "ui/style.h"

#include <utility>

namespace corvel::style {
namespace {

// Written with @names for the colours, filled in from `colour`.
constexpr const char* sheetTemplate = R"(
* {
    color: @text;
    font-size: 12px;
}
QWidget#frm_main, QWidget#frm_splash { background: transparent; }
QDialog, QMessageBox, QInputDialog { background: @panel; }
QDialogButtonBox { dialogbuttonbox-buttons-have-icons: 0; }

QLabel { background: transparent; }
QLabel[role="title"] { font-size: 14px; font-weight: 600; }
QLabel[role="heading"] { font-size: 20px; font-weight: 600; }
QLabel[role="legend"], QLabel[role="note"] { color: @muted; font-size: 11px; }
QLabel[role="field"] { color: @muted; font-size: 11px; }
QLabel[role="link"] { color: @accent; font-size: 11px; }
QLabel[role="link"]:hover { color: @accentHover; text-decoration: underline; }
QLabel[role="caption"], QLabel[role="setting"] { font-size: 11px; }
QLabel[role="caption"]:hover { color: @accentHover; }
QLabel[role="lamp"] { color: @muted; font-size: 11px; }
QLabel[role="lamp"][lit="true"] { color: @text; }
QLabel#lab_version { color: @muted; }
QLabel#lab_number { font-family: serif; font-size: 16px; }

QFrame#ledWell {
    background: @well;
    border: 1px solid @border;
    border-radius: 6px;
}
QFrame#divider { background: @border; border: none; }

QPushButton {
    background: @raised;
    border: 1px solid @border;
    border-radius: 6px;
    padding: 4px 12px;
    min-height: 18px;
}
QPushButton:hover { border-color: @accent; }
QPushButton:pressed { background: @surface; }
QPushButton:disabled { color: @faint; }
QPushButton[role="primary"] {
    background: @accent;
    border-color: @accent;
    color: @onAccent;
    font-weight: 600;
}
QPushButton[role="primary"]:hover { background: @accentHover; border-color: @accentHover; }
QPushButton[role="step"] {
    padding: 0px;
    min-width: 24px;
    max-width: 24px;
    min-height: 22px;
    max-height: 22px;
    font-size: 14px;
    font-weight: 600;
}

QToolButton {
    background: @raised;
    border: 1px solid @border;
    border-radius: 6px;
    padding: 2px;
}
QToolButton:hover { border-color: @accent; }
QToolButton:pressed { background: @surface; }

QLineEdit, QPlainTextEdit, QListWidget, QComboBox {
    background: @surface;
    border: 1px solid @border;
    border-radius: 6px;
    selection-background-color: @accent;
    selection-color: @onAccent;
}
QLineEdit { padding: 2px 6px; min-height: 18px; }
QLineEdit:focus, QPlainTextEdit:focus, QListWidget:focus, QComboBox:focus { border-color: @accent; }
QLineEdit:read-only { color: @muted; }
QLineEdit[role="number"] { color: @text; font-weight: 600; }
QLineEdit[role="path"] {
    background: transparent;
    border: none;
    padding: 0px;
    min-height: 0px;
    font-size: 10px;
    color: @muted;
}
QPlainTextEdit, QListWidget { padding: 4px; }
QPlainTextEdit#txt_reccalls, QListWidget { font-size: 11px; }
QListWidget::item { padding: 2px 4px; border-radius: 4px; }
QListWidget::item:hover { background: @raised; }
QListWidget::item:selected { background: @accent; color: @onAccent; }

QComboBox { padding: 2px 24px 2px 8px; min-height: 20px; }
QComboBox::drop-down { border: none; width: 22px; }
QComboBox::down-arrow { image: none; }
QComboBox QAbstractItemView {
    background: @surface;
    border: 1px solid @border;
    selection-background-color: @accent;
    selection-color: @onAccent;
    outline: none;
}

QTabWidget::pane { border: none; background: transparent; }
QTabWidget > QWidget { background: transparent; }
QStackedWidget > QWidget { background: transparent; }

QScrollBar:vertical { background: transparent; width: 8px; margin: 2px; }
QScrollBar:horizontal { background: transparent; height: 8px; margin: 2px; }
QScrollBar::handle { background: @border; border-radius: 2px; min-height: 20px; min-width: 20px; }
QScrollBar::handle:hover { background: @faint; }
QScrollBar::add-line, QScrollBar::sub-line { width: 0px; height: 0px; }
QScrollBar::add-page, QScrollBar::sub-page { background: transparent; }

QMenu {
    background: @surface;
    border: 1px solid @border;
    padding: 4px;
}
QMenu::item { padding: 5px 18px; border-radius: 4px; }
QMenu::item:selected { background: @accent; color: @onAccent; }
QMenu::item:disabled { color: @muted; }
QMenu::separator { height: 1px; background: @border; margin: 4px 6px; }

QToolTip {
    background: @surface;
    color: @text;
    border: 1px solid @border;
    padding: 3px;
}
)";

QString name(QRgb rgb) { return qcolor(rgb).name(); }

} // namespace

QString sheet()
{
    static const QString filled = [] {
        QString text = QString::fromUtf8(sheetTemplate);
        // Longer names first, so that @accentHover is not read as @accent followed by "Hover".
        const std::pair<const char*, QRgb> names[] = {
            {"@accentHover", colour::accentHover}, {"@onAccent", colour::onAccent}, {"@accent", colour::accent},
            {"@panel", colour::panel},             {"@surface", colour::surface},   {"@raised", colour::raised},
            {"@well", colour::well},               {"@border", colour::border},     {"@text", colour::text},
            {"@muted", colour::muted},             {"@faint", colour::faint},
        };
        for (const auto& [token, rgb] : names) text.replace(QString::fromUtf8(token), name(rgb));
        return text;
    }();
    return filled;
}

QPalette palette()
{
    QPalette colours;
    for (const auto group : {QPalette::Active, QPalette::Inactive}) {
        colours.setColor(group, QPalette::Window, qcolor(colour::panel));
        colours.setColor(group, QPalette::WindowText, qcolor(colour::text));
        colours.setColor(group, QPalette::Base, qcolor(colour::surface));
        colours.setColor(group, QPalette::AlternateBase, qcolor(colour::raised));
        colours.setColor(group, QPalette::Text, qcolor(colour::text));
        colours.setColor(group, QPalette::Button, qcolor(colour::raised));
        colours.setColor(group, QPalette::ButtonText, qcolor(colour::text));
        colours.setColor(group, QPalette::Highlight, qcolor(colour::accent));
        colours.setColor(group, QPalette::HighlightedText, qcolor(colour::onAccent));
        colours.setColor(group, QPalette::PlaceholderText, qcolor(colour::faint));
        colours.setColor(group, QPalette::ToolTipBase, qcolor(colour::surface));
        colours.setColor(group, QPalette::ToolTipText, qcolor(colour::text));
        colours.setColor(group, QPalette::Link, qcolor(colour::accent));
    }
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        colours.setColor(QPalette::Disabled, role, qcolor(colour::faint));
    return colours;
}

void apply(QWidget& window)
{
    window.setStyleSheet(sheet());
    window.setPalette(palette());
}

} // namespace corvel::style

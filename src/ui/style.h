#pragma once

#include <QColor>
#include <QPalette>
#include <QString>
#include <QWidget>

namespace corvel::style {

// Corvel's look: a dark panel with one teal accent. The stylesheet and the widgets that paint
// themselves take their colours from here, so the two never drift apart.
namespace colour {
constexpr QRgb panel = qRgb(0x1d, 0x20, 0x27);      // the window itself
constexpr QRgb surface = qRgb(0x25, 0x29, 0x32);    // fields, lists, raised areas
constexpr QRgb raised = qRgb(0x2e, 0x33, 0x3e);     // buttons, hovered rows
constexpr QRgb well = qRgb(0x14, 0x16, 0x1a);       // behind the LED digits, as the digit pictures are
constexpr QRgb border = qRgb(0x35, 0x3b, 0x47);
constexpr QRgb text = qRgb(0xe7, 0xe9, 0xee);
constexpr QRgb muted = qRgb(0x93, 0x9b, 0xab);      // legends and secondary text
constexpr QRgb faint = qRgb(0x5c, 0x64, 0x73);      // switched-off parts
constexpr QRgb accent = qRgb(0x2d, 0xd4, 0xbf);
constexpr QRgb accentHover = qRgb(0x5e, 0xea, 0xd4);
constexpr QRgb onAccent = qRgb(0x06, 0x2a, 0x26);   // text on accent-coloured ground
constexpr QRgb danger = qRgb(0xe5, 0x48, 0x4d);     // the close button under the pointer
} // namespace colour

inline QColor qcolor(QRgb rgb) { return QColor::fromRgb(rgb); }

// Corner radius of Corvel's own frameless windows, in logical pixels.
constexpr int windowRadius = 12;

// The stylesheet of every Corvel window; dialogs parented to them inherit it.
QString sheet();
// The same colours for what a stylesheet does not reach (selections, placeholder text).
QPalette palette();
// Gives a window Corvel's look, the stylesheet and the palette. A dialog takes its parent's
// stylesheet but not its palette, so dialogs are given the look too.
void apply(QWidget& window);

} // namespace corvel::style

#pragma once

#include <QColor>
#include <QIcon>
#include <QPainter>
#include <QRectF>

namespace corvel::artwork {

// Corvel's pictures, drawn as shapes rather than loaded as bitmaps so that they stay sharp at
// any size and device pixel ratio.

// The small pictures on the panel's image buttons and tool buttons.
enum class Glyph { Close, ToTray, Expand, Shrink, Grip, Play, Change };

// Draws `glyph` centred in `box` in `colour`; the line width follows the box's size.
void paintGlyph(QPainter& painter, Glyph glyph, const QRectF& box, const QColor& colour);
// A telephone handset filling `box`.
void paintHandset(QPainter& painter, const QRectF& box, const QColor& colour);
// Corvel's mark: the handset on an accent-coloured rounded square.
void paintMark(QPainter& painter, const QRectF& box);

// The mark as an icon for the tray and the window, sharp at every size it is asked for.
QIcon markIcon();
// A glyph as an icon, for tool buttons.
QIcon glyphIcon(Glyph glyph, const QColor& colour);

} // namespace corvel::artwork

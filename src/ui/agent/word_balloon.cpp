#include "ui/agent/word_balloon.h"

#include "ui/agent/character_window.h"

#include <QFontMetrics>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace corvel {

BalloonLook balloonLook(const acs::Balloon& balloon, std::uint32_t styleFlags)
{
    BalloonLook look;
    look.font = QFont(QString::fromStdString(balloon.fontName));
    look.font.setStyleHint(QFont::SansSerif);
    // Negative: the characters' height; positive: the cell's. Either way about that many pixels.
    look.font.setPixelSize(std::clamp(std::abs(balloon.fontHeight == 0 ? 13 : balloon.fontHeight), 6, 72));
    look.font.setWeight(balloon.fontWeight >= 600 ? QFont::Bold : QFont::Normal);
    look.font.setItalic(balloon.italic);
    const auto colour = [](acs::Rgb c) { return QColor(c.r, c.g, c.b); };
    look.text = colour(balloon.text);
    look.background = colour(balloon.background);
    look.border = colour(balloon.border);
    look.lines = std::clamp<int>(balloon.lines, 1, 128);
    look.charsPerLine = std::clamp<int>(balloon.charsPerLine, 8, 255);
    look.sizeToText = (styleFlags & acs::style::balloonSizeToText) != 0;
    return look;
}

WordBalloon::WordBalloon()
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus |
                           Qt::WindowTransparentForInput | Qt::NoDropShadowWindowHint)
{
    setObjectName("balloon");
    setWindowTitle("Corvel balloon");
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void WordBalloon::setLook(const BalloonLook& look)
{
    look_ = look;
    relayout();
}

void WordBalloon::setText(const QString& text, bool autoPace)
{
    text_ = text;
    autoPace_ = autoPace;
    revealed_ = 0;
    relayout();
}

void WordBalloon::reveal(int characters)
{
    characters = std::clamp(characters, 0, static_cast<int>(text_.size()));
    if (characters == revealed_) return;
    revealed_ = characters;
    relayout();
}

QStringList WordBalloon::wrap(const QString& text) const
{
    const QFontMetrics metrics(look_.font);
    const int width = look_.charsPerLine * metrics.horizontalAdvance(QLatin1Char('x'));
    QStringList lines;
    QString line;
    for (const QString& word : text.simplified().split(' ', Qt::SkipEmptyParts)) {
        const QString longer = line.isEmpty() ? word : line + ' ' + word;
        if (metrics.horizontalAdvance(longer) <= width || line.isEmpty()) {
            line = longer;
        } else {
            lines << line;
            line = word;
        }
        // A word wider than the balloon is broken where it must be.
        while (metrics.horizontalAdvance(line) > width && line.size() > 1) {
            int fits = static_cast<int>(line.size()) - 1;
            while (fits > 1 && metrics.horizontalAdvance(line.left(fits)) > width) --fits;
            lines << line.left(fits);
            line = line.mid(fits);
        }
    }
    if (!line.isEmpty()) lines << line;
    return lines;
}

QStringList WordBalloon::visibleLines() const
{
    const QStringList spoken = wrap(text_.left(revealed_));
    const QStringList all = autoPace_ ? spoken : wrap(text_);
    // The window of lines ends at the line being spoken, or shows the start.
    const int last = std::max(static_cast<int>(spoken.size()), std::min(look_.lines, static_cast<int>(all.size())));
    const int first = std::max(0, last - look_.lines);
    return all.mid(first, last - first);
}

QSize WordBalloon::bodySize() const
{
    const QFontMetrics metrics(look_.font);
    int width = look_.charsPerLine * metrics.horizontalAdvance(QLatin1Char('x'));
    int lines = look_.lines;
    if (look_.sizeToText) {
        const QStringList all = wrap(text_);
        lines = std::clamp(static_cast<int>(all.size()), 1, look_.lines);
        int widest = 0;
        for (const QString& line : all) widest = std::max(widest, metrics.horizontalAdvance(line));
        width = std::max(widest, 4 * metrics.horizontalAdvance(QLatin1Char('x')));
    }
    return {width + 2 * padding, lines * metrics.lineSpacing() + 2 * padding};
}

void WordBalloon::placeBeside(const QRect& character, const QRect& screen)
{
    character_ = character;
    screen_ = screen;
    relayout();
}

void WordBalloon::relayout()
{
    const QSize body = bodySize();
    const QSize whole(body.width(), body.height() + tail);
    if (character_.isNull()) {
        resize(whole);
        update();
        return;
    }
    // The tail points at the upper (or lower) middle of the character.
    const int tipX = character_.center().x();
    const int overlap = std::min(3, character_.height() / 16); // the tail just touches the character
    struct Choice {
        bool below;
        bool left;
    };
    const Choice order[] = {{false, true}, {false, false}, {true, true}, {true, false}};
    QRect chosen;
    Choice picked = order[0];
    for (const Choice& c : order) {
        const int left = c.left ? tipX + 24 - whole.width() : tipX - 24;
        const int top = c.below ? character_.bottom() - overlap : character_.top() + overlap - whole.height();
        const QRect r(QPoint(left, top), whole);
        if (screen_.isNull() || screen_.contains(r)) {
            chosen = r;
            picked = c;
            break;
        }
    }
    if (chosen.isNull()) { // nowhere fits: above and to the left, kept on the screen
        const int left = tipX + 24 - whole.width();
        chosen = QRect(QPoint(left, character_.top() + overlap - whole.height()), whole);
        chosen.moveLeft(std::clamp(chosen.left(), screen_.left(), std::max(screen_.left(), screen_.right() - whole.width())));
        chosen.moveTop(std::clamp(chosen.top(), screen_.top(), std::max(screen_.top(), screen_.bottom() - whole.height())));
    }
    below_ = picked.below;
    tailX_ = std::clamp(tipX - chosen.left(), radius + 10, whole.width() - radius - 10);
    setGeometry(chosen);
    // Shaped, so that a desktop that does not blend windows shows no box around it.
    if (shapedWindows()) setMask(QRegion(outline().toFillPolygon().toPolygon()).united(QRect(0, 0, 1, 1)));
    update();
}

QPainterPath WordBalloon::outline() const
{
    const QRectF body = QRectF(0, below_ ? tail : 0, width(), height() - tail).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath shape;
    shape.addRoundedRect(body, radius, radius);
    // The tail leans towards the character from one side of its base.
    QPainterPath pointer;
    const double x = tailX_;
    if (below_) {
        pointer.moveTo(x - 2, body.top() + 1);
        pointer.lineTo(x - 6, 0.5);
        pointer.lineTo(x + 10, body.top() + 1);
    } else {
        pointer.moveTo(x - 2, body.bottom() - 1);
        pointer.lineTo(x - 6, height() - 0.5);
        pointer.lineTo(x + 10, body.bottom() - 1);
    }
    pointer.closeSubpath();
    return shape.united(pointer).simplified();
}

void WordBalloon::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPainterPath shape = outline();
    const QRectF body = QRectF(0, below_ ? tail : 0, width(), height() - tail);
    painter.setPen(QPen(look_.border, 1));
    painter.setBrush(look_.background);
    painter.drawPath(shape);

    painter.setFont(look_.font);
    painter.setPen(look_.text);
    const QFontMetrics metrics(look_.font);
    int y = static_cast<int>(body.top()) + padding + metrics.ascent();
    for (const QString& line : visibleLines()) {
        painter.drawText(padding, y, line);
        y += metrics.lineSpacing();
    }
}

} // namespace corvel

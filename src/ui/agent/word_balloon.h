#pragma once

#include <QColor>
#include <QFont>
#include <QPainterPath>
#include <QString>
#include <QStringList>
#include <QWidget>

#include "character/acs/character.h"

namespace corvel {

// How a character's balloon looks, from its file.
struct BalloonLook {
    QFont font;
    QColor text{Qt::black}, background{0xFF, 0xFF, 0xE1}, border{Qt::black};
    int lines = 2;         // lines of text shown at once
    int charsPerLine = 32; // the width, in widths of "x"
    bool sizeToText = false;
};
BalloonLook balloonLook(const acs::Balloon& balloon, std::uint32_t styleFlags);

// The word balloon: a rounded box with a tail towards the character, showing what it says.
// With auto-pace the words come as they are spoken and earlier lines scroll away; without it
// the whole text is there from the start, and scrolls to the line being spoken.
class WordBalloon final : public QWidget {
public:
    static constexpr int padding = 8;
    static constexpr int radius = 7;
    static constexpr int tail = 14;

    WordBalloon();

    void setLook(const BalloonLook& look);
    const BalloonLook& look() const { return look_; }
    // A new speech: its whole text, none of it spoken yet.
    void setText(const QString& text, bool autoPace);
    // The first `characters` characters of the text have been spoken.
    void reveal(int characters);
    // Stands the balloon above or below the character, left or right of its middle, where the
    // screen has room: top-left, top-right, bottom-left, bottom-right, in that order.
    void placeBeside(const QRect& character, const QRect& screen);

    const QString& text() const { return text_; }
    int revealed() const { return revealed_; }
    // The lines showing now.
    QStringList visibleLines() const;
    // Wraps text into lines no wider than the balloon's text width.
    QStringList wrap(const QString& text) const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QSize bodySize() const;
    // The balloon's outline in the widget: the rounded body and its tail.
    QPainterPath outline() const;
    void relayout();

    BalloonLook look_;
    QString text_;
    int revealed_ = 0;
    bool autoPace_ = true;
    bool below_ = false; // the balloon stands below the character, its tail pointing up
    int tailX_ = 20;     // where the tail meets the body, in the widget
    QRect character_, screen_;
};

} // namespace corvel

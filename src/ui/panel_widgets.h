#pragma once

#include <string_view>

#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QWidget>

#include "ui/artwork.h"

namespace corvel {

// Text handed to Qt.
QString toQt(std::string_view text);

// A widget made with the object name the behaviour knows it by.
template <typename Widget> Widget* named(QWidget* parent, std::string_view name)
{
    auto* widget = new Widget(parent);
    widget->setObjectName(toQt(name));
    return widget;
}

// A one-pixel line between parts of the panel.
QWidget* divider(QWidget* parent, Qt::Orientation orientation);

// A small round flat button showing a painted glyph: the panel's close, tray and size buttons.
class GlyphButton final : public QAbstractButton {
    Q_OBJECT

public:
    GlyphButton(artwork::Glyph glyph, const QString& tip, QWidget* parent);
    void setGlyph(artwork::Glyph glyph);
    // The close button turns red under the pointer.
    void setDangerous(bool dangerous) { dangerous_ = dangerous; }
    QSize sizeHint() const override { return {22, 22}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    artwork::Glyph glyph_;
    bool dangerous_ = false;
};

// The drag handle: a grip the window is moved by. It takes no clicks of its own, so that a
// press on it reaches the window underneath.
class DragGrip final : public QWidget {
    Q_OBJECT

public:
    explicit DragGrip(QWidget* parent);
    QSize sizeHint() const override { return {14, 22}; }

protected:
    void paintEvent(QPaintEvent* event) override;
};

// Corvel's mark, painted at the size of the widget.
class MarkView final : public QWidget {
    Q_OBJECT

public:
    MarkView(int side, QWidget* parent);

protected:
    void paintEvent(QPaintEvent* event) override;
};

// A lamp's socket, always there and dark; the lamp itself is a child shown while it is lit, so
// that the lamp's own visibility says whether it is on.
class LampSocket final : public QWidget {
    Q_OBJECT

public:
    LampSocket(const QString& lampName, QWidget* parent);
    QWidget* lamp() const { return lamp_; }
    QSize sizeHint() const override { return {12, 12}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QWidget* lamp_;
};

// A check box drawn as a switch. A click anywhere on it toggles it; its legend is a separate
// caption label beside it.
class ToggleBox final : public QCheckBox {
    Q_OBJECT

public:
    explicit ToggleBox(QWidget* parent);
    QSize sizeHint() const override { return {30, 20}; }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool hitButton(const QPoint& position) const override { return rect().contains(position); }
};

// A drop-down list with a painted chevron; the stylesheet draws the rest of it.
class ChevronComboBox final : public QComboBox {
    Q_OBJECT

public:
    using QComboBox::QComboBox;

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace corvel

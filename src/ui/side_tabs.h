#pragma once

#include <QTabBar>
#include <QTabWidget>

namespace corvel {

// Tabs listed down the left side with their captions upright, so that eight of them fit the
// narrow panel without scrolling.
class SideTabBar final : public QTabBar {
    Q_OBJECT

public:
    explicit SideTabBar(QWidget* parent = nullptr);

protected:
    QSize tabSizeHint(int index) const override;
    QSize minimumTabSizeHint(int index) const override { return tabSizeHint(index); }
    void paintEvent(QPaintEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    int hovered_ = -1;
};

class SideTabWidget final : public QTabWidget {
    Q_OBJECT

public:
    explicit SideTabWidget(QWidget* parent = nullptr);
};

} // namespace corvel

#include "ui/splash_window.h"

#include <QGuiApplication>
#include <QLabel>
#include <QPainter>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>

#include "ui/artwork.h"
#include "ui/panel_widgets.h"
#include "ui/style.h"

namespace corvel {

SplashWindow::SplashWindow()
    : QWidget(nullptr, Qt::SplashScreen | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
{
    setObjectName("frm_splash");
    setWindowTitle("Corvel");
    setWindowIcon(artwork::markIcon());
    setAttribute(Qt::WA_TranslucentBackground);
    style::apply(*this);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 22);
    layout->setSpacing(4);
    auto* mark = new MarkView(56, this);
    layout->addWidget(mark, 0, Qt::AlignHCenter);
    layout->addSpacing(8);
    auto* name = new QLabel("Corvel", this);
    name->setProperty("role", "heading");
    name->setAlignment(Qt::AlignCenter);
    layout->addWidget(name);
    auto* tagline = new QLabel("The intelligent answer phone", this);
    tagline->setProperty("role", "legend");
    tagline->setAlignment(Qt::AlignCenter);
    layout->addWidget(tagline);
    layout->addSpacing(10);
    auto* version = new QLabel("Version " CORVEL_VERSION, this);
    version->setObjectName("lab_version");
    version->setAlignment(Qt::AlignCenter);
    layout->addWidget(version);
    setFixedSize(280, sizeHint().height());
}

void SplashWindow::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(style::qcolor(style::colour::border), 1));
    painter.setBrush(style::qcolor(style::colour::panel));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), style::windowRadius, style::windowRadius);
}

void SplashWindow::showFor(std::chrono::milliseconds duration, std::function<void()> then)
{
    auto* splash = new SplashWindow;
    splash->setAttribute(Qt::WA_DeleteOnClose);
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        splash->move(area.center() - splash->rect().center());
    }
    splash->show();
    QTimer::singleShot(duration, splash, [splash, then = std::move(then)] {
        splash->close();
        if (then) then();
    });
}

} // namespace corvel

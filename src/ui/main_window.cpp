#include "ui/main_window.h"

#include <QApplication>
#include <QGridLayout>
#include <QMessageBox>
#include <QScreen>

namespace corvel {
namespace {

constexpr double twipsPerInch = 1440;

QMessageBox::Icon toQt(MessageIcon icon)
{
    switch (icon) {
    case MessageIcon::None: return QMessageBox::NoIcon;
    case MessageIcon::Stop: return QMessageBox::Critical;
    case MessageIcon::Question: return QMessageBox::Question;
    case MessageIcon::Exclamation: return QMessageBox::Warning;
    case MessageIcon::Information: return QMessageBox::Information;
    }
    return QMessageBox::NoIcon;
}

QString toQt(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

} // namespace

MainWindow::MainWindow()
{
    setObjectName("frm_main");
    setWindowTitle("Corvel");
    static constexpr std::array<const char*, 5> legends{
        "Monitoring line", "Recording the line", "Playing message to caller",
        "Keypress detected", "Modem activity detected"};
    auto* layout = new QGridLayout(this);
    for (int i = 0; i < 5; ++i) {
        auto* lamp = new QLabel(QString::fromUtf8("\u25CF"), this);
        lamp->setObjectName(QString("l%1").arg(i + 1));
        lamp->setStyleSheet("color: #2ecc71;");
        lamp->setVisible(false);
        auto* legend = new QLabel(legends[static_cast<std::size_t>(i)], this);
        layout->addWidget(lamp, i, 0);
        layout->addWidget(legend, i, 1);
        lamps_[static_cast<std::size_t>(i)] = lamp;
        if (i == 3) {
            legend->setObjectName("Label6");
            legend->setVisible(false);
            keypressLegend_ = legend;
        }
    }
    // A lamp's place is kept while it is out, so the legends do not jump about.
    for (QLabel* lamp : lamps_) {
        QSizePolicy policy = lamp->sizePolicy();
        policy.setRetainSizeWhenHidden(true);
        lamp->setSizePolicy(policy);
    }
}

MainWindow::~MainWindow() { setBusyCursor(false); }

void MainWindow::setBusyCursor(bool busy)
{
    if (busy == busy_) return;
    busy_ = busy;
    if (busy) QApplication::setOverrideCursor(Qt::WaitCursor);
    else QApplication::restoreOverrideCursor();
}

void MainWindow::showLamps(const LineLamps& lamps)
{
    const std::array<bool, 5> lit{lamps.l1, lamps.l2, lamps.l3, lamps.l4, lamps.l5};
    for (std::size_t i = 0; i < lit.size(); ++i) lamps_[i]->setVisible(lit[i]);
    keypressLegend_->setVisible(lamps.Label6);
}

void MainWindow::messageBox(MessageIcon icon, std::string_view title, std::string_view text)
{
    QMessageBox box(toQt(icon), toQt(title), toQt(text), QMessageBox::Ok, this);
    box.exec();
}

// The caller-picture and pick-up windows are not part of this window yet: nothing to close.
void MainWindow::unloadCallerPicture() {}
void MainWindow::unloadPickup() {}

WindowPlacement MainWindow::mainWindowPlacement() const
{
    const double twipsPerPixel = twipsPerInch / logicalDpiX();
    const QRect frame = frameGeometry();
    const QScreen* current = screen();
    const double screenWidth = current ? current->geometry().width() : frame.right();
    return {frame.x() * twipsPerPixel,      frame.y() * twipsPerPixel,
            frame.width() * twipsPerPixel,  frame.height() * twipsPerPixel,
            screenWidth * twipsPerPixel,    twipsPerPixel};
}

} // namespace corvel

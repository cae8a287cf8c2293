// The main window as the behaviour sees it: the View's controls, windows and dialogs in Qt.

#include "ui/main_window.h"

#include <utility>

#include <QApplication>
#include <QComboBox>
#include <QFileDialog>
#include <QInputDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QScreen>
#include <QSignalBlocker>
#include <QStringList>
#include <QTextBlock>
#include <QTabWidget>

#include "ui/panel_widgets.h"
#include "ui/style.h"

namespace corvel {
namespace {

constexpr double twipsPerInch = 1440;

QMessageBox::Icon toQtIcon(MessageIcon icon)
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

// "Description|pattern|Description|pattern" as Qt writes filters: "Description (pattern)"
// each, joined by ";;". A description that already shows its patterns in brackets keeps them.
QString fileFilter(std::string_view filter)
{
    const QStringList parts = toQt(filter).split('|');
    QStringList filters;
    for (qsizetype i = 0; i + 1 < parts.size(); i += 2) {
        QString description = parts[i].trimmed();
        const QString patterns = parts[i + 1].split(';', Qt::SkipEmptyParts).join(' ');
        if (!description.endsWith(')')) description += " (" + patterns + ")";
        filters << description;
    }
    if (filters.isEmpty() && !parts.isEmpty()) filters << parts.front();
    return filters.join(";;");
}

} // namespace

// ---- the View

double MainWindow::twipsPerPixel() const { return twipsPerInch / logicalDpiX(); }
int MainWindow::pixels(double twips) const { return qRound(twips / twipsPerPixel()); }

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
    for (std::size_t i = 0; i < lit.size(); ++i) {
        lamps_[i]->setVisible(lit[i]);
        QLabel* legend = legends_[i];
        if (legend->property("lit").toBool() != lit[i]) {
            legend->setProperty("lit", lit[i]);
            legend->style()->unpolish(legend);
            legend->style()->polish(legend);
        }
    }
    legends_[3]->setVisible(lamps.Label6);
}

bool MainWindow::loadPicture(std::string_view name, const std::filesystem::path& picture)
{
    const QString path = QString::fromStdString(picture.string());
    if (name == "photo") return display_.loadPhoto(path);
    QLabel* target = control<QLabel>(name);
    QImage image;
    if (!target || !image.load(path)) return false;
    // The LED digits are small two-colour pictures: enlarged pixel for pixel on a dense
    // screen they stay sharp, where smoothing would blur their edges.
    const qreal ratio = devicePixelRatioF();
    if (ratio != 1) {
        image = image.scaled(image.size() * ratio, Qt::IgnoreAspectRatio, Qt::FastTransformation);
        image.setDevicePixelRatio(ratio);
    }
    target->setPixmap(QPixmap::fromImage(std::move(image)));
    return true;
}

void MainWindow::setText(std::string_view name, std::string_view text)
{
    if (name == "lab_number") display_.setLabel(toQt(text));
    else if (auto* edit = control<QLineEdit>(name)) {
        edit->setText(toQt(text));
        if (edit->property("role") == "path") edit->setToolTip(edit->text());
    } else if (auto* box = control<QPlainTextEdit>(name)) box->setPlainText(toQt(text));
    else if (auto* shown = control<QLabel>(name)) shown->setText(toQt(text));
}

std::string MainWindow::text(std::string_view name) const
{
    if (auto* edit = control<QLineEdit>(name)) return edit->text().toStdString();
    if (auto* box = control<QPlainTextEdit>(name)) return box->toPlainText().toStdString();
    if (auto* shown = control<QLabel>(name)) return shown->text().toStdString();
    return {};
}

void MainWindow::setListItems(std::string_view name, const std::vector<std::string>& items)
{
    if (auto* combo = control<QComboBox>(name)) {
        combo->clear();
        for (const auto& item : items) combo->addItem(toQt(item));
    } else if (auto* list = control<QListWidget>(name)) {
        list->clear();
        for (const auto& item : items) list->addItem(toQt(item));
    }
}

std::string MainWindow::selectedItem(std::string_view name) const
{
    // In a text box, the line the cursor stands on.
    if (const auto* box = control<QPlainTextEdit>(name)) return box->textCursor().block().text().toStdString();
    const auto* list = control<QListWidget>(name);
    const QListWidgetItem* item = list ? list->currentItem() : nullptr;
    return item && item->isSelected() ? item->text().toStdString() : std::string();
}

void MainWindow::setListIndex(std::string_view name, int index)
{
    if (auto* combo = control<QComboBox>(name)) combo->setCurrentIndex(index);
    else if (auto* list = control<QListWidget>(name)) list->setCurrentRow(index);
}

bool MainWindow::isChecked(std::string_view box) const
{
    const auto* check = control<QCheckBox>(box);
    return check && check->isChecked();
}

void MainWindow::setChecked(std::string_view box, bool ticked)
{
    auto* check = control<QCheckBox>(box);
    if (!check) return;
    const QSignalBlocker quiet(check);
    check->setChecked(ticked);
}

void MainWindow::selectTab(std::string_view name, int index)
{
    if (auto* tabs = control<QTabWidget>(name)) tabs->setCurrentIndex(index);
}

void MainWindow::shiftMainWindowDown(double twips)
{
    // Measured from where the shift began, not from where the window stands after the last
    // move: a move the window system did not make in full (a window kept inside the screen's
    // work area, a position rounded to its pixels) would be lost one way and not the other, and
    // a shake would leave the window elsewhere.
    if (shiftedTwips_ == 0) shiftOrigin_ = pos();
    shiftedTwips_ += twips;
    move(shiftOrigin_ + QPoint(0, pixels(shiftedTwips_)));
}

void MainWindow::moveMainWindow(double left, double top) { move(pixels(left), pixels(top)); }

void MainWindow::setMainWindowHeight(double twips)
{
    requestedHeight_ = twips;
    setFixedSize(width(), pixels(twips));
}

void MainWindow::setMainWindowVisible(bool visible)
{
    if (!visible) {
        hide();
        return;
    }
    show();
    raise();
    activateWindow();
}

void MainWindow::showTrayIcon(const std::vector<TrayMenuEntry>& menu, std::string_view tip)
{
    tray_.show(menu, toQt(tip));
}

void MainWindow::releaseTrayIcon() { tray_.release(); }

void MainWindow::showCallerPicture() { display_.showLaidOut(); }
void MainWindow::unloadCallerPicture() { display_.hide(); }

void MainWindow::showPickup()
{
    pickup_.show();
    pickup_.raise();
}

void MainWindow::setPickupCaption(std::string_view text) { pickup_.setCaption(toQt(text)); }
void MainWindow::unloadPickup() { pickup_.hide(); }

void MainWindow::showDesktopCall(std::string_view caller)
{
    desktopCall_.setCaller(toQt(caller));
    desktopCall_.show();
    desktopCall_.raise();
}

void MainWindow::closeDesktopCall() { desktopCall_.hide(); }

void MainWindow::showDownload() { download_.showCentred(); }
void MainWindow::setDownloadText(std::string_view text) { download_.setText(toQt(text)); }
void MainWindow::setDownloadShapeVisible(bool visible) { download_.setShapeVisible(visible); }
void MainWindow::closeDownload() { download_.hide(); }

WindowPlacement MainWindow::mainWindowPlacement() const
{
    const double t = twipsPerPixel();
    const QRect frame = frameGeometry();
    // The height as it was asked for, when the pixels show it: a height in twips need not be a
    // whole number of pixels, and the answer phone compares it with the one it set.
    double height = frame.height() * t;
    if (requestedHeight_ > 0 && frame.height() == pixels(requestedHeight_)) height = requestedHeight_;
    // The screen's usable area, so that an expanded window stays clear of the desktop's panels.
    const QScreen* current = screen();
    const QRect area = current ? current->availableGeometry() : QRect(0, 0, frame.right() + 1, frame.bottom() + 1);
    WindowPlacement placement;
    placement.left = frame.x() * t;
    placement.top = frame.y() * t;
    placement.width = frame.width() * t;
    placement.height = height;
    placement.screenWidth = (area.x() + area.width()) * t;
    placement.screenHeight = (area.y() + area.height()) * t;
    placement.twipsPerPixel = t;
    return placement;
}

// The texts may carry what came from outside (a program's name from the line, a version from the
// web site): shown as written, never as markup.
int MainWindow::ask(MessageIcon icon, std::string_view title, std::string_view text, int buttons)
{
    QMessageBox box(this);
    style::apply(box);
    box.setIcon(toQtIcon(icon));
    box.setWindowTitle(toQt(title));
    box.setTextFormat(Qt::PlainText);
    box.setText(toQt(text));
    box.setStandardButtons(QMessageBox::StandardButtons(buttons));
    return box.exec();
}

void MainWindow::messageBox(MessageIcon icon, std::string_view title, std::string_view text)
{
    ask(icon, title, text, QMessageBox::Ok);
}

bool MainWindow::askYesNo(std::string_view title, std::string_view text)
{
    return ask(MessageIcon::Question, title, text, QMessageBox::Yes | QMessageBox::No) == QMessageBox::Yes;
}

std::string MainWindow::inputBox(std::string_view prompt, std::string_view title)
{
    QInputDialog dialog(this);
    style::apply(dialog);
    dialog.setWindowTitle(toQt(title));
    dialog.setLabelText(toQt(prompt));
    return dialog.exec() == QDialog::Accepted ? dialog.textValue().toStdString() : std::string();
}

std::string MainWindow::openFileDialog(std::string_view filter, const std::filesystem::path& folder)
{
    QFileDialog dialog(this, QString(), QString::fromStdString(folder.string()), fileFilter(filter));
    style::apply(dialog);
    dialog.setFileMode(QFileDialog::ExistingFile);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return {};
    return dialog.selectedFiles().front().toStdString();
}

std::string MainWindow::saveFileDialog(std::string_view filter, const std::filesystem::path& suggested)
{
    QFileDialog dialog(this, QString(), QString::fromStdString(suggested.string()), fileFilter(filter));
    style::apply(dialog);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return {};
    return dialog.selectedFiles().front().toStdString();
}

void MainWindow::beep() { QApplication::beep(); }

void MainWindow::endProgram()
{
    ending_ = true;
    QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}

} // namespace corvel

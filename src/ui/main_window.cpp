#include "ui/main_window.h"

#include <QApplication>
#include <QComboBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QTabWidget>
#include <QVBoxLayout>

#include "app/answer_phone.h"
#include "ui/clickable_label.h"

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

template <typename Widget> Widget* named(QWidget* parent, const char* name)
{
    auto* widget = new Widget(parent);
    widget->setObjectName(name);
    return widget;
}

QPushButton* button(QWidget* parent, const char* name, const QString& caption)
{
    auto* widget = named<QPushButton>(parent, name);
    widget->setText(caption);
    return widget;
}

ClickableLabel* caption(QWidget* parent, const char* name, const QString& text)
{
    auto* label = named<ClickableLabel>(parent, name);
    label->setText(text);
    label->setCursor(Qt::PointingHandCursor);
    return label;
}

// A two-place counter: the tens and the units pictures side by side.
QWidget* counter(QWidget* parent, const char* tens, const char* units, const QString& legend)
{
    auto* box = new QWidget(parent);
    auto* row = new QHBoxLayout(box);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(2);
    row->addWidget(named<QLabel>(box, tens));
    row->addWidget(named<QLabel>(box, units));
    row->addWidget(new QLabel(legend, box));
    row->addStretch();
    return box;
}

} // namespace

MainWindow::MainWindow()
{
    setObjectName("frm_main");
    setWindowTitle("Corvel");
    auto* layout = new QVBoxLayout(this);
    auto* tabs = named<QTabWidget>(this, "SSTab1");
    tabs->addTab(callsPage(), "Calls");
    tabs->addTab(linePage(), "Settings 1");
    tabs->addTab(picturesPage(), "Pictures");
    tabs->addTab(directoryPage(), "Directory");
    layout->addWidget(tabs);

    static constexpr std::array<const char*, 5> legends{
        "Monitoring line", "Recording the line", "Playing message to caller", "Keypress detected",
        "Modem activity detected"};
    auto* lampGrid = new QGridLayout;
    for (int i = 0; i < 5; ++i) {
        auto* lamp = new QLabel(QString::fromUtf8("\u25CF"), this);
        lamp->setObjectName(QString("l%1").arg(i + 1));
        lamp->setStyleSheet("color: #2ecc71;");
        QSizePolicy policy = lamp->sizePolicy();
        policy.setRetainSizeWhenHidden(true); // a lamp keeps its place while it is out
        lamp->setSizePolicy(policy);
        lamp->setVisible(false);
        auto* legend = new QLabel(legends[static_cast<std::size_t>(i)], this);
        lampGrid->addWidget(lamp, i, 0);
        lampGrid->addWidget(legend, i, 1);
        lamps_[static_cast<std::size_t>(i)] = lamp;
        if (i == 3) {
            legend->setObjectName("Label6");
            legend->setVisible(false);
            keypressLegend_ = legend;
        }
    }
    layout->addLayout(lampGrid);
}

QWidget* MainWindow::callsPage()
{
    auto* page = new QWidget(this);
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(counter(page, "newcall1", "newcall2", "new calls"));
    layout->addWidget(counter(page, "new1", "new2", "new messages"));
    layout->addWidget(counter(page, "old1", "old2", "old messages"));
    auto* links = new QHBoxLayout;
    links->addWidget(caption(page, "Label10", "Play new message"));
    links->addWidget(caption(page, "Label18", "Play old message"));
    links->addWidget(caption(page, "Label19", "Reset new calls"));
    layout->addLayout(links);
    auto* recent = named<QPlainTextEdit>(page, "txt_reccalls");
    recent->setReadOnly(true);
    layout->addWidget(recent);
    layout->addWidget(button(page, "Command4", "Clear call list"));
    return page;
}

QWidget* MainWindow::linePage()
{
    auto* page = new QWidget(this);
    auto* layout = new QGridLayout(page);
    layout->addWidget(new QLabel("Telephone line", page), 0, 0);
    layout->addWidget(named<QComboBox>(page, "ComboDevice"), 1, 0);
    layout->addWidget(button(page, "Command1", "START"), 1, 1);
    layout->setRowStretch(2, 1);
    return page;
}

QWidget* MainWindow::picturesPage()
{
    auto* page = new QWidget(this);
    auto* layout = new QGridLayout(page);
    layout->addWidget(new QLabel("Telephone number", page), 0, 0, 1, 2);
    layout->addWidget(named<QLineEdit>(page, "txt_phone"), 1, 0, 1, 2);
    layout->addWidget(button(page, "Command7", "Add"), 2, 0);
    layout->addWidget(button(page, "Command8", "Delete"), 2, 1);
    layout->addWidget(button(page, "Command9", "<"), 3, 0);
    layout->addWidget(button(page, "Command10", ">"), 3, 1);
    layout->setRowStretch(4, 1);
    return page;
}

QWidget* MainWindow::directoryPage()
{
    auto* page = new QWidget(this);
    auto* layout = new QGridLayout(page);
    layout->addWidget(named<QListWidget>(page, "contacts"), 0, 0, 1, 2);
    layout->addWidget(button(page, "Command28", "Add"), 1, 0);
    layout->addWidget(button(page, "Command29", "Delete"), 1, 1);
    return page;
}

MainWindow::~MainWindow() { setBusyCursor(false); }

template <typename Widget> Widget* MainWindow::control(std::string_view name) const
{
    return findChild<Widget*>(toQt(name));
}

void MainWindow::attach(AnswerPhone& phone)
{
    const auto onClick = [this](const char* name, auto handler) {
        if (auto* pushed = control<QPushButton>(name)) connect(pushed, &QPushButton::clicked, this, handler);
        else if (auto* label = control<ClickableLabel>(name)) connect(label, &ClickableLabel::clicked, this, handler);
    };
    onClick("Command4", [&phone] { phone.callLog.reset(); });
    onClick("Label19", [&phone] { phone.newCalls.reset(); });
    onClick("Label10", [&phone] { phone.playback.playNew(); });
    onClick("Label18", [&phone] { phone.playback.playOld(); });
    onClick("Command7", [&phone] { phone.pictures.add(); });
    onClick("Command8", [&phone] { phone.pictures.remove(); });
    onClick("Command9", [&phone] { phone.pictures.previous(); });
    onClick("Command10", [&phone] { phone.pictures.next(); });
    onClick("Command28", [&phone] { phone.directory.addContact(); });
    onClick("Command29", [&phone] { phone.directory.deleteContact(); });
    onClick("Command1", [&phone] { phone.handling.start(); });
    connect(&display_, &CallerDisplayWindow::clicked, this, [&phone] { phone.display.clicked(); });
    connect(&pickup_, &PickupWindow::clicked, this, [&phone] { phone.handling.pickupClicked(); });
    auto* devices = control<QComboBox>("ComboDevice");
    connect(devices, &QComboBox::activated, this, [&phone](int index) { phone.handling.chooseDevice(index); });
}

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

bool MainWindow::loadPicture(std::string_view name, const std::filesystem::path& picture)
{
    const QString path = QString::fromStdString(picture.string());
    if (name == "photo") return display_.loadPhoto(path);
    QLabel* label = control<QLabel>(name);
    QPixmap image;
    if (!label || !image.load(path)) return false;
    label->setPixmap(image);
    return true;
}

void MainWindow::setListIndex(std::string_view name, int index)
{
    if (auto* combo = control<QComboBox>(name)) combo->setCurrentIndex(index);
    else if (auto* list = control<QListWidget>(name)) list->setCurrentRow(index);
}

void MainWindow::selectTab(std::string_view name, int index)
{
    if (auto* tabs = control<QTabWidget>(name)) tabs->setCurrentIndex(index);
}

double MainWindow::twipsPerPixel() const { return twipsPerInch / logicalDpiX(); }

void MainWindow::shiftMainWindowDown(double twips)
{
    shiftedTwips_ += twips;
    const int pixels = static_cast<int>(shiftedTwips_ / twipsPerPixel());
    if (pixels == 0) return;
    shiftedTwips_ -= pixels * twipsPerPixel();
    move(x(), y() + pixels);
}

void MainWindow::setText(std::string_view name, std::string_view text)
{
    if (name == "lab_number") display_.setLabel(toQt(text));
    else if (auto* edit = control<QLineEdit>(name)) edit->setText(toQt(text));
    else if (auto* box = control<QPlainTextEdit>(name)) box->setPlainText(toQt(text));
    else if (auto* label = control<QLabel>(name)) label->setText(toQt(text));
}

std::string MainWindow::text(std::string_view name) const
{
    if (auto* edit = control<QLineEdit>(name)) return edit->text().toStdString();
    if (auto* box = control<QPlainTextEdit>(name)) return box->toPlainText().toStdString();
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
    const auto* list = control<QListWidget>(name);
    const QListWidgetItem* item = list ? list->currentItem() : nullptr;
    return item && item->isSelected() ? item->text().toStdString() : std::string();
}

void MainWindow::showCallerPicture() { display_.showLaidOut(); }
void MainWindow::unloadCallerPicture() { display_.hide(); }

void MainWindow::showPickup()
{
    pickup_.show();
    pickup_.raise();
}

void MainWindow::setPickupCaption(std::string_view text) { pickup_.setCaption(toQt(text)); }
void MainWindow::unloadPickup() { pickup_.hide(); }

WindowPlacement MainWindow::mainWindowPlacement() const
{
    const double t = twipsPerPixel();
    const QRect frame = frameGeometry();
    const QScreen* current = screen();
    const double screenWidth = current ? current->geometry().width() : frame.right();
    return {frame.x() * t, frame.y() * t, frame.width() * t, frame.height() * t, screenWidth * t, t};
}

void MainWindow::messageBox(MessageIcon icon, std::string_view title, std::string_view text)
{
    QMessageBox box(toQt(icon), toQt(title), toQt(text), QMessageBox::Ok, this);
    box.exec();
}

bool MainWindow::askYesNo(std::string_view title, std::string_view text)
{
    return QMessageBox::question(this, toQt(title), toQt(text), QMessageBox::Yes | QMessageBox::No) ==
           QMessageBox::Yes;
}

std::string MainWindow::inputBox(std::string_view prompt, std::string_view title)
{
    return QInputDialog::getText(this, toQt(title), toQt(prompt)).toStdString();
}

std::string MainWindow::openFileDialog(std::string_view filter, const std::filesystem::path& folder)
{
    // "Description|pattern" becomes Qt's "Description (pattern)"; the description already
    // names the pattern, so only the description is kept.
    const QString qtFilter = toQt(filter.substr(0, filter.find('|')));
    return QFileDialog::getOpenFileName(this, QString(), QString::fromStdString(folder.string()), qtFilter)
        .toStdString();
}

void MainWindow::beep() { QApplication::beep(); }

void MainWindow::endProgram() { QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection); }

} // namespace corvel

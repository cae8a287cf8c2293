// The main window: its panel put together, wired to the answer phone, and dragged, sized and
// closed as a frameless window.

#include "ui/main_window.h"

#include <functional>
#include <utility>

#include <QCloseEvent>
#include <QComboBox>
#include <QGuiApplication>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QVBoxLayout>
#include <QWindow>

#include "app/answer_phone.h"
#include "app/options.h"
#include "app/window_behaviour.h"
#include "prompts/prompt_files.h"
#include "telephony/testline/test_line.h"
#include "ui/artwork.h"
#include "ui/panel_widgets.h"
#include "ui/side_tabs.h"
#include "ui/style.h"

namespace corvel {
namespace {

// How far the pointer must travel before a press on the surface becomes a drag, in pixels.
constexpr int dragThreshold = 3;

} // namespace

MainWindow::MainWindow() : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint)
{
    setObjectName("frm_main");
    setWindowTitle("Corvel");
    setWindowIcon(artwork::markIcon());
    setAttribute(Qt::WA_TranslucentBackground);
    style::apply(*this);
    for (QWidget* popUp : std::initializer_list<QWidget*>{&display_, &pickup_, &desktopCall_})
        popUp->setWindowIcon(windowIcon());

    const int width = pixels(widthTwips);
    const int shrunk = pixels(WindowBehaviour::shrunkHeight);
    const int expanded = pixels(WindowBehaviour::expandedHeight);
    body_ = new QWidget(this);
    body_->setGeometry(0, 0, width, expanded);
    auto* layout = new QVBoxLayout(body_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    QWidget* strip = topStrip();
    strip->setFixedHeight(shrunk);
    layout->addWidget(strip);

    auto* lower = new QWidget(body_);
    auto* lowerLayout = new QVBoxLayout(lower);
    lowerLayout->setContentsMargins(10, 0, 10, 10);
    lowerLayout->setSpacing(10);
    lowerLayout->addWidget(divider(lower, Qt::Horizontal));
    auto* tabs = new SideTabWidget(lower);
    tabs->setObjectName("SSTab1");
    tabs->addTab(callsPage(), "Calls");
    tabs->addTab(answeringPage(), "Settings 1");
    tabs->addTab(transferPage(), "Settings 2");
    tabs->addTab(picturesPage(), "Pictures");
    tabs->addTab(audioPage(), "Audio");
    tabs->addTab(agentPage(), "Agent");
    tabs->addTab(directoryPage(), "Directory");
    tabs->addTab(aboutPage(), "About");
    tabs->addTab(blockedPage(), "Blocked");
    lowerLayout->addWidget(tabs, 1);
    layout->addWidget(lower, 1);

    // Expanded until the answer phone says otherwise: a first start shows the settings.
    requestedHeight_ = WindowBehaviour::expandedHeight;
    setFixedSize(width, expanded);
}

MainWindow::~MainWindow() { setBusyCursor(false); }

void MainWindow::attach(AnswerPhone& phone)
{
    phone_ = &phone;
    const auto onClick = [this](std::string_view name, std::function<void()> handler) {
        if (auto* pushed = control<QAbstractButton>(name)) connect(pushed, &QAbstractButton::clicked, this, handler);
        else if (auto* label = control<ClickableLabel>(name)) connect(label, &ClickableLabel::clicked, this, handler);
    };
    for (const Options::CheckBox& option : Options::checkBoxes) {
        // clicked, not toggled: ticking a box from the code must not run its click handling.
        onClick(option.box, [&phone, box = option.box] { phone.options.checkBoxClicked(box); });
        onClick(option.caption, [&phone, caption = option.caption] { phone.options.captionClicked(caption); });
    }
    for (const Options::Stepper& stepper : Options::steppers) {
        for (const std::string_view step : {stepper.down, stepper.up})
            onClick(step, [&phone, step] { phone.options.stepClicked(step); });
    }
    for (const PromptFiles::Prompt& prompt : PromptFiles::prompts) {
        for (const std::string_view name : {prompt.change, prompt.play})
            onClick(name, [&phone, name] { phone.promptFiles.clicked(name); });
    }
    for (const Options::TextField& text : Options::textFields) {
        if (auto* field = control<QLineEdit>(text.field))
            connect(field, &QLineEdit::editingFinished, this, [&phone, name = text.field] { phone.options.textEdited(name); });
    }
    onClick("cmd_blockcaller", [&phone] { phone.blocking.blockSelectedCall(); });
    onClick("cmd_unblockcaller", [&phone] { phone.blocking.unblockSelectedCall(); });
    onClick("cmd_blockadd", [&phone] { phone.blocking.addClicked(); });
    onClick("cmd_blockremove", [&phone] { phone.blocking.removeClicked(); });
    onClick("cmd_blockimport", [&phone] { phone.blocking.importClicked(); });
    onClick("cmd_blockexport", [&phone] { phone.blocking.exportClicked(); });
    onClick("lab_blockedreset", [&phone] { phone.blockedCalls.reset(); });
    onClick("Image2", [&phone] { phone.closeClicked(); });
    onClick("Image3", [&phone] { phone.window.hideToTray(); });
    onClick("Image4", [&phone] { phone.window.toggleSize(); });
    onClick("Label37", [&phone] { phone.webLinkClicked(); });
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
    onClick("Command1", [this, &phone] {
        phone.handling.start();
        showTestPhone();
    });
    onClick("Command27", [&phone] { phone.characters.command27Clicked(); });
    connect(&display_, &CallerDisplayWindow::clicked, this, [&phone] { phone.display.clicked(); });
    connect(&pickup_, &PickupWindow::clicked, this, [&phone] { phone.handling.pickupClicked(); });
    connect(&desktopCall_, &DesktopCallWindow::hangUpClicked, this, [&phone] { phone.handling.hangUpDesktopCall(); });
    connect(control<QComboBox>("ComboDevice"), &QComboBox::activated, this, [this, &phone](int index) {
        phone.handling.chooseDevice(index);
        showTestPhone();
    });
    connect(&tray_, &TrayIcon::chosen, this, [&phone](const QString& key) { phone.trayMenuClicked(key.toStdString()); });
    connect(&tray_, &TrayIcon::doubleClicked, this, [&phone] { phone.trayDoubleClicked(); });
}

void MainWindow::showTestPhone()
{
    const Line& line = phone_->ports.line;
    if (!testPhone_ || line.deviceName() != TestLine::name || !line.lineOpen()) return;
    testPhone_->show();
    testPhone_->raise();
}

// ---- the panel itself: painting, dragging, closing

void MainWindow::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF panel = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.setPen(QPen(style::qcolor(style::colour::border), 1));
    painter.setBrush(style::qcolor(style::colour::panel));
    painter.drawRoundedRect(panel, style::windowRadius, style::windowRadius);
}

void MainWindow::resizeEvent(QResizeEvent* event)
{
    const bool expanded = height() >= pixels(WindowBehaviour::expandedHeight);
    sizeButton_->setGlyph(expanded ? artwork::Glyph::Shrink : artwork::Glyph::Expand);
    sizeButton_->setToolTip(expanded ? "Shrink" : "Expand");
    QWidget::resizeEvent(event);
}

void MainWindow::mousePressEvent(QMouseEvent* event)
{
    const bool handled = event->button() == Qt::LeftButton || event->button() == Qt::RightButton;
    // Captions pass their presses on, but their clicks are theirs: no drag starts on them.
    if (!handled || qobject_cast<ClickableLabel*>(childAt(event->position().toPoint()))) {
        QWidget::mousePressEvent(event);
        return;
    }
    press_ = {event->button(), event->globalPosition().toPoint(), pos(), false};
    event->accept();
}

void MainWindow::mouseMoveEvent(QMouseEvent* event)
{
    if (press_.button != Qt::LeftButton || !(event->buttons() & Qt::LeftButton)) {
        QWidget::mouseMoveEvent(event);
        return;
    }
    const QPoint travelled = event->globalPosition().toPoint() - press_.pointer;
    if (!press_.dragged && travelled.manhattanLength() < dragThreshold) return;
    // Wayland lets no window place itself: the compositor moves it, and the button's release
    // goes to the compositor, so the drag ends here.
    if (!press_.dragged && QGuiApplication::platformName().startsWith("wayland") && windowHandle() &&
        windowHandle()->startSystemMove()) {
        press_ = {};
        if (phone_) phone_->window.released(true);
        return;
    }
    press_.dragged = true;
    move(press_.window + travelled);
}

void MainWindow::mouseReleaseEvent(QMouseEvent* event)
{
    if (press_.button == Qt::NoButton || event->button() != press_.button) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    const Press done = std::exchange(press_, {});
    if (done.button == Qt::RightButton) showContextMenu(event->globalPosition().toPoint());
    // Kept either way, so that the next start puts the window where it is now.
    if (phone_) phone_->window.released(done.dragged);
}

void MainWindow::showContextMenu(const QPoint& at)
{
    if (!phone_) return;
    AnswerPhone& phone = *phone_;
    QMenu menu(this);
    const bool expanded = height() >= pixels(WindowBehaviour::expandedHeight);
    menu.addAction(expanded ? "Shrink" : "Expand", this, [&phone] { phone.window.toggleSize(); });
    menu.addAction("Hide to tray", this, [&phone] { phone.window.hideToTray(); });
    menu.addSeparator();
    menu.addAction("About Corvel", this, [&phone] { phone.trayMenuClicked("about"); });
    menu.addAction("Exit Corvel", this, [&phone] { phone.closeClicked(); });
    menu.exec(at);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (ending_ || !phone_ || phone_->requestClose()) event->accept();
    else event->ignore();
}

} // namespace corvel

#include "ui/main_window.h"

#include <functional>
#include <utility>

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QSignalBlocker>
#include <QStringList>
#include <QSyntaxHighlighter>
#include <QTabWidget>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWindow>

#include "app/answer_phone.h"
#include "app/options.h"
#include "app/window_behaviour.h"
#include "prompts/prompt_files.h"
#include "telephony/testline/test_line.h"
#include "ui/artwork.h"
#include "ui/clickable_label.h"
#include "ui/panel_widgets.h"
#include "ui/side_tabs.h"
#include "ui/style.h"

namespace corvel {
namespace {

constexpr double twipsPerInch = 1440;
// How far the pointer must travel before a press on the surface becomes a drag, in pixels.
constexpr int dragThreshold = 3;

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

template <typename Widget> Widget* named(QWidget* parent, std::string_view name)
{
    auto* widget = new Widget(parent);
    widget->setObjectName(toQt(name));
    return widget;
}

QLabel* label(QWidget* parent, const QString& text, const char* role = nullptr)
{
    auto* widget = new QLabel(text, parent);
    if (role) widget->setProperty("role", role);
    return widget;
}

QPushButton* button(QWidget* parent, std::string_view name, const QString& caption, const char* role = nullptr)
{
    auto* widget = named<QPushButton>(parent, name);
    widget->setText(caption);
    widget->setCursor(Qt::PointingHandCursor);
    if (role) widget->setProperty("role", role);
    return widget;
}

ClickableLabel* caption(QWidget* parent, std::string_view name, const QString& text, const char* role)
{
    auto* widget = named<ClickableLabel>(parent, name);
    widget->setText(text);
    widget->setProperty("role", role);
    widget->setCursor(Qt::PointingHandCursor);
    return widget;
}

// A page of the tab control, its contents set in from the tab list.
QVBoxLayout* pageLayout(QWidget* page)
{
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(8, 0, 0, 0);
    layout->setSpacing(8);
    return layout;
}

// A check box shown as a switch, with the caption label that toggles it too.
QHBoxLayout* option(QWidget* page, std::string_view box, std::string_view captionName, const QString& text)
{
    auto* row = new QHBoxLayout;
    row->setSpacing(6);
    auto* toggle = new ToggleBox(page);
    toggle->setObjectName(toQt(box));
    toggle->setAccessibleName(text);
    row->addWidget(toggle);
    row->addWidget(caption(page, captionName, text, "caption"), 1);
    return row;
}

// A number changed only by its down and up buttons.
QHBoxLayout* stepper(QWidget* page, const QString& text, std::string_view down, std::string_view field,
                     std::string_view up)
{
    auto* row = new QHBoxLayout;
    row->setSpacing(4);
    row->addWidget(label(page, text, "setting"), 1);
    row->addWidget(button(page, down, QString::fromUtf8("\u2212"), "step"));
    auto* value = named<QLineEdit>(page, field);
    value->setReadOnly(true);
    value->setAlignment(Qt::AlignCenter);
    value->setFixedWidth(44);
    value->setFocusPolicy(Qt::NoFocus);
    value->setProperty("role", "number");
    row->addWidget(value);
    row->addWidget(button(page, up, "+", "step"));
    return row;
}

QWidget* divider(QWidget* parent, Qt::Orientation orientation)
{
    auto* line = new QFrame(parent);
    line->setObjectName("divider");
    if (orientation == Qt::Horizontal) line->setFixedHeight(1);
    else line->setFixedWidth(1);
    return line;
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

// The recent calls: each caller bright, the time and date of the call muted, so that entries
// that wrap onto a second line still stand apart.
class CallListHighlighter final : public QSyntaxHighlighter {
public:
    using QSyntaxHighlighter::QSyntaxHighlighter;

protected:
    void highlightBlock(const QString& text) override
    {
        const qsizetype when = text.lastIndexOf(", on ");
        if (when < 0) return;
        QTextCharFormat caller;
        caller.setFontWeight(QFont::DemiBold);
        setFormat(0, static_cast<int>(when), caller);
        QTextCharFormat time;
        time.setForeground(style::qcolor(style::colour::muted));
        setFormat(static_cast<int>(when), static_cast<int>(text.size() - when), time);
    }
};

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
    lowerLayout->addWidget(tabs, 1);
    layout->addWidget(lower, 1);

    // Expanded until the answer phone says otherwise: a first start shows the settings.
    requestedHeight_ = WindowBehaviour::expandedHeight;
    setFixedSize(width, expanded);
}

MainWindow::~MainWindow() { setBusyCursor(false); }

QWidget* MainWindow::topStrip()
{
    auto* strip = new QWidget(body_);
    auto* layout = new QVBoxLayout(strip);
    layout->setContentsMargins(14, 8, 8, 10);
    layout->setSpacing(6);

    auto* header = new QHBoxLayout;
    header->setSpacing(4);
    header->addWidget(new MarkView(18, strip));
    header->addSpacing(4);
    header->addWidget(label(strip, "Corvel", "title"));
    header->addStretch(1);
    header->addWidget(new DragGrip(strip));
    sizeButton_ = new GlyphButton(artwork::Glyph::Shrink, "Shrink", strip);
    sizeButton_->setObjectName("Image4");
    header->addWidget(sizeButton_);
    auto* toTray = new GlyphButton(artwork::Glyph::ToTray, "Hide to tray", strip);
    toTray->setObjectName("Image3");
    header->addWidget(toTray);
    auto* close = new GlyphButton(artwork::Glyph::Close, "Close Corvel", strip);
    close->setObjectName("Image2");
    close->setDangerous(true);
    header->addWidget(close);
    layout->addLayout(header);

    auto* columns = new QHBoxLayout;
    columns->setSpacing(12);
    columns->addWidget(counters());
    columns->addWidget(divider(strip, Qt::Vertical));
    columns->addWidget(lampPanel(), 1);
    layout->addLayout(columns, 1);
    return strip;
}

QWidget* MainWindow::counters()
{
    struct Counter {
        const char* tens;
        const char* units;
        const char* legend;
        const char* caption;
        const char* action;
    };
    static constexpr Counter rows[] = {
        {"newcall1", "newcall2", "new calls", "Label19", "Reset new calls"},
        {"new1", "new2", "new messages", "Label10", "Play new message"},
        {"old1", "old2", "old messages", "Label18", "Play old message"},
    };
    auto* box = new QWidget(body_);
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    for (const Counter& counter : rows) {
        auto* row = new QHBoxLayout;
        row->setSpacing(8);
        auto* well = new QFrame(box);
        well->setObjectName("ledWell");
        auto* digits = new QHBoxLayout(well);
        digits->setContentsMargins(3, 2, 3, 2);
        digits->setSpacing(1);
        for (const char* name : {counter.tens, counter.units}) {
            auto* digit = named<QLabel>(well, name);
            digit->setFixedSize(20, 32);
            digits->addWidget(digit);
        }
        row->addWidget(well);
        auto* texts = new QVBoxLayout;
        texts->setSpacing(1);
        texts->addStretch(1);
        texts->addWidget(label(box, counter.legend, "legend"));
        texts->addWidget(caption(box, counter.caption, counter.action, "link"));
        texts->addStretch(1);
        row->addLayout(texts, 1);
        layout->addLayout(row);
    }
    return box;
}

QWidget* MainWindow::lampPanel()
{
    static constexpr const char* legends[] = {"Monitoring line", "Recording the line", "Playing message to caller",
                                              "Keypress detected", "Modem activity detected"};
    auto* box = new QWidget(body_);
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(5);
    layout->addStretch(1);
    for (std::size_t i = 0; i < lamps_.size(); ++i) {
        auto* row = new QHBoxLayout;
        row->setSpacing(8);
        auto* socket = new LampSocket(QString("l%1").arg(i + 1), box);
        lamps_[i] = socket->lamp();
        row->addWidget(socket);
        QLabel* legend = label(box, legends[i], "lamp");
        legends_[i] = legend;
        row->addWidget(legend, 1);
        layout->addLayout(row);
    }
    layout->addStretch(1);
    // The keypress legend appears once a key has been pressed, in a place kept for it.
    QLabel* keypress = legends_[3];
    keypress->setObjectName("Label6");
    QSizePolicy policy = keypress->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    keypress->setSizePolicy(policy);
    keypress->setVisible(false);
    return box;
}

QWidget* MainWindow::callsPage()
{
    auto* page = new QWidget(this);
    auto* layout = pageLayout(page);
    auto* recent = named<QPlainTextEdit>(page, "txt_reccalls");
    recent->setReadOnly(true);
    recent->setPlaceholderText("No calls yet");
    new CallListHighlighter(recent->document());
    layout->addWidget(recent, 1);
    auto* row = new QHBoxLayout;
    row->addStretch(1);
    row->addWidget(button(page, "Command4", "Clear call list"));
    layout->addLayout(row);
    return page;
}

QWidget* MainWindow::answeringPage()
{
    auto* page = new QWidget(this);
    auto* layout = pageLayout(page);
    layout->setSpacing(6);
    auto* line = new QHBoxLayout;
    line->setSpacing(6);
    auto* devices = named<ChevronComboBox>(page, "ComboDevice");
    devices->setAttribute(Qt::WA_Hover);
    devices->setToolTip("The telephone line Corvel answers");
    devices->setMinimumContentsLength(8);
    devices->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    line->addWidget(devices, 1);
    line->addWidget(button(page, "Command1", "START", "primary"));
    layout->addLayout(line);
    layout->addLayout(stepper(page, "Rings before answering", "Command2", "txt_rings", "Command5"));
    layout->addSpacing(2);
    layout->addLayout(option(page, "chk_allcalls", "Label7", "Answer all calls"));
    layout->addLayout(option(page, "chk_ansa", "Label9", "Take a message after the read-back"));
    layout->addLayout(option(page, "chk_opt1", "Label8", "Ask withheld callers for their number"));
    layout->addLayout(option(page, "chk_opt2", "Label20", "Ask callers whose number is unavailable"));
    layout->addLayout(option(page, "chk_opt3", "Label22", "Ask callers with no caller ID"));
    layout->addLayout(option(page, "chk_opt4", "Label21", "Ask every caller"));
    layout->addStretch(1);
    return page;
}

QWidget* MainWindow::transferPage()
{
    auto* page = new QWidget(this);
    auto* layout = pageLayout(page);
    layout->addLayout(stepper(page, "Seconds to wait for you", "Command3", "txt_transfer", "Command6"));
    QLabel* note = label(page,
                         "While Corvel asks you to pick up, the caller hears the waiting prompt for this many "
                         "seconds.",
                         "note");
    note->setWordWrap(true);
    layout->addWidget(note);
    layout->addSpacing(4);
    layout->addLayout(option(page, "chk_lww", "Label3", "Start Corvel when I log in"));
    layout->addStretch(1);
    return page;
}

QWidget* MainWindow::picturesPage()
{
    auto* page = new QWidget(this);
    auto* layout = pageLayout(page);
    layout->setSpacing(6);
    layout->addWidget(label(page, "Caller's telephone number", "field"));
    auto* number = named<QLineEdit>(page, "txt_phone");
    number->setPlaceholderText("e.g. 01632960123");
    layout->addWidget(number);
    auto* row = new QHBoxLayout;
    row->setSpacing(6);
    row->addWidget(button(page, "Command9", "<"));
    row->addWidget(button(page, "Command10", ">"));
    row->addStretch(1);
    row->addWidget(button(page, "Command7", "Add"));
    row->addWidget(button(page, "Command8", "Delete"));
    layout->addLayout(row);
    QLabel* note = label(page,
                         "Type a caller's number, then Add a GIF picture to show when they ring. "
                         "Delete takes it away again; < and > step through the numbers that have one.",
                         "note");
    note->setWordWrap(true);
    layout->addWidget(note);
    layout->addStretch(1);
    return page;
}

QWidget* MainWindow::audioPage()
{
    // One row a prompt: its name over the file it plays, and the buttons that change and play it.
    auto* page = new QWidget(this);
    auto* grid = new QGridLayout(page);
    grid->setContentsMargins(8, 0, 0, 0);
    grid->setHorizontalSpacing(4);
    grid->setVerticalSpacing(3);
    int row = 0;
    const QColor ink = style::qcolor(style::colour::text);
    for (const PromptFiles::Prompt& prompt : PromptFiles::prompts) {
        auto* names = new QVBoxLayout;
        names->setSpacing(0);
        names->addWidget(label(page, toQt(prompt.caption), "setting"));
        auto* file = named<QLineEdit>(page, prompt.field);
        file->setReadOnly(true);
        file->setFocusPolicy(Qt::NoFocus);
        file->setProperty("role", "path");
        names->addWidget(file);
        grid->addLayout(names, row, 0);
        const auto tool = [&](std::string_view name, const QString& text, artwork::Glyph glyph) {
            auto* tool = named<QToolButton>(page, name);
            tool->setText(text);
            tool->setToolTip(text + " \u2013 " + toQt(prompt.caption));
            tool->setIcon(artwork::glyphIcon(glyph, ink));
            tool->setIconSize({14, 14});
            tool->setFixedSize(26, 26);
            tool->setCursor(Qt::PointingHandCursor);
            return tool;
        };
        grid->addWidget(tool(prompt.change, "Change", artwork::Glyph::Change), row, 1);
        grid->addWidget(tool(prompt.play, "Play", artwork::Glyph::Play), row, 2);
        ++row;
    }
    grid->setRowStretch(row, 1);
    grid->setColumnStretch(0, 1);
    return page;
}

QWidget* MainWindow::agentPage()
{
    auto* page = new QWidget(this);
    auto* layout = pageLayout(page);
    layout->setSpacing(6);
    layout->addLayout(option(page, "chk_noagent", "Label46", "No character"));
    layout->addLayout(option(page, "chk_hide", "Label42", "Hide the character when idle"));
    layout->addLayout(option(page, "chk_balloon", "Label41", "Word balloon"));
    layout->addLayout(option(page, "chk_effects", "Label45", "Sound effects"));
    layout->addLayout(stepper(page, "Speech volume", "Command25", "txt_vol", "Command26"));
    auto* characters = new QHBoxLayout;
    characters->setSpacing(6);
    auto* files = named<QListWidget>(page, "File1");
    files->setToolTip("Character files");
    characters->addWidget(files, 1);
    characters->addWidget(button(page, "Command27", "Load character"), 0, Qt::AlignTop);
    layout->addLayout(characters, 1);
    return page;
}

QWidget* MainWindow::directoryPage()
{
    auto* page = new QWidget(this);
    auto* layout = pageLayout(page);
    auto* contacts = named<QListWidget>(page, "contacts");
    contacts->setWordWrap(true);
    contacts->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    layout->addWidget(contacts, 1);
    auto* row = new QHBoxLayout;
    row->setSpacing(6);
    row->addStretch(1);
    row->addWidget(button(page, "Command28", "Add"));
    row->addWidget(button(page, "Command29", "Delete"));
    layout->addLayout(row);
    return page;
}

QWidget* MainWindow::aboutPage()
{
    auto* page = new QWidget(this);
    auto* layout = pageLayout(page);
    layout->setSpacing(4);
    layout->addStretch(1);
    auto* heading = new QHBoxLayout;
    heading->setSpacing(10);
    heading->addWidget(new MarkView(40, page));
    auto* names = new QVBoxLayout;
    names->setSpacing(0);
    names->addWidget(label(page, "Corvel", "heading"));
    names->addWidget(label(page, "Version " CORVEL_VERSION, "legend"));
    heading->addLayout(names, 1);
    layout->addLayout(heading);
    layout->addSpacing(8);
    QLabel* about = label(page,
                          "The intelligent answer phone for your desktop. Corvel answers your line, asks callers "
                          "who they are, takes their messages and tells you who called.");
    about->setWordWrap(true);
    layout->addWidget(about);
    layout->addSpacing(8);
    ClickableLabel* link = caption(page, "Label37", "Click here to visit the 'Corvel' web site", "link");
    link->setToolTip("Click here to visit the corvel web site");
    layout->addWidget(link);
    layout->addStretch(2);
    return page;
}

template <typename Widget> Widget* MainWindow::control(std::string_view name) const
{
    return findChild<Widget*>(toQt(name));
}

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
    box.setIcon(toQt(icon));
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

void MainWindow::beep() { QApplication::beep(); }

void MainWindow::endProgram()
{
    ending_ = true;
    QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}

} // namespace corvel

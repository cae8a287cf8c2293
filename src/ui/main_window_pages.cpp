// The main window's parts: the top strip, the counters, the lamps and every page of the tab
// control, each control named as the behaviour knows it.

#include "ui/main_window.h"

#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSyntaxHighlighter>
#include <QToolButton>
#include <QVBoxLayout>

#include "prompts/prompt_files.h"
#include "ui/artwork.h"
#include "ui/clickable_label.h"
#include "ui/panel_widgets.h"
#include "ui/style.h"

namespace corvel {
namespace {

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

// Buttons standing together at the right of a page, under what they act on.
struct NamedButton {
    std::string_view name;
    const char* caption;
};
QHBoxLayout* buttonRow(QWidget* page, std::initializer_list<NamedButton> buttons)
{
    auto* row = new QHBoxLayout;
    row->setSpacing(6);
    row->addStretch(1);
    for (const NamedButton& each : buttons) row->addWidget(button(page, each.name, each.caption));
    return row;
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
        {"blocked1", "blocked2", "blocked calls", "lab_blockedreset", "Reset blocked calls"},
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
    layout->addLayout(buttonRow(
        page, {{"cmd_blockcaller", "Block caller"}, {"cmd_unblockcaller", "Unblock"}, {"Command4", "Clear call list"}}));
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
    layout->addSpacing(4);
    layout->addLayout(option(page, "chk_blockwithheld", "lab_blockwithheld", "Block withheld callers"));
    layout->addLayout(option(page, "chk_blockunavailable", "lab_blockunavailable", "Block callers whose number is unavailable"));
    layout->addLayout(option(page, "chk_trusted", "lab_trusted", "Let callers in my directory ring through"));
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
    layout->addLayout(option(page, "chk_notify", "lab_notify", "Tell the desktop of callers and messages"));
    layout->addSpacing(4);
    layout->addLayout(option(page, "chk_quiet", "lab_quiet", "Quiet hours: take every call silently for a message"));
    auto* hours = new QHBoxLayout;
    hours->setSpacing(6);
    hours->addWidget(label(page, "From", "setting"));
    for (const std::string_view field : {"txt_quietfrom", "txt_quietto"}) {
        auto* time = named<QLineEdit>(page, field);
        time->setInputMask("99:99");
        time->setFixedWidth(60);
        hours->addWidget(time);
        if (field == "txt_quietfrom") hours->addWidget(label(page, "to", "setting"));
    }
    hours->addStretch(1);
    layout->addLayout(hours);
    layout->addWidget(label(page, "Command to run on each message", "setting"));
    auto* command = named<QLineEdit>(page, "txt_messagecommand");
    command->setPlaceholderText("e.g. notify-send \"New message\"");
    command->setToolTip("Started with the message file, the caller and the time as its last three arguments");
    layout->addWidget(command);
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
    layout->addLayout(buttonRow(page, {{"Command28", "Add"}, {"Command29", "Delete"}}));
    return page;
}

QWidget* MainWindow::blockedPage()
{
    auto* page = new QWidget(this);
    auto* layout = pageLayout(page);
    layout->addWidget(label(page, "Numbers, or starts of numbers ending in *, that are never put through", "note"));
    layout->addWidget(named<QListWidget>(page, "lst_blocked"), 1);
    layout->addLayout(buttonRow(
        page, {{"cmd_blockimport", "Import"}, {"cmd_blockexport", "Export"}, {"cmd_blockadd", "Add"}, {"cmd_blockremove", "Remove"}}));
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

} // namespace corvel

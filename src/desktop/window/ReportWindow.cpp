// The report window: its state, the keyboard, closing and dropped files.
#include "desktop/window/ReportWindow.h"

#include "base/PathText.h"
#include "base/Utf8.h"
#include "desktop/window/AccessibleControls.h"
#include "desktop/window/DisplayText.h"
#include "desktop/window/DroppedFiles.h"
#include "desktop/window/FoldingPane.h"
#include "desktop/window/KeyGuard.h"
#include "desktop/window/QtControls.h"
#include "desktop/window/WindowLog.h"
#include "ui_ReportWindow.h"

#include <QAction>
#include <QClipboard>
#include <QCloseEvent>
#include <QDropEvent>
#include <QGuiApplication>
#include <QPushButton>
#include <QShortcut>

#include <algorithm>
#include <array>
#include <utility>

using namespace Qt::StringLiterals;

/// Resources in a static library register themselves only where something refers to them; the macro that does so has
/// to stand outside every namespace.
static void registerResources()
{
    Q_INIT_RESOURCE(resources);
}

namespace {

/// UTF-16 code units of the longest name that the summary shows whole.
constexpr qsizetype kMaxNameUnits = 60;

enum class Press { Closes, Cancels };

/// The row of a state in the table of ReportWindow.h; Escape cancels where the second button does.
struct StateRow {
    const char16_t *secondTitle;
    Press press;
    const char *name;
};
constexpr auto kStateRows = std::to_array<StateRow>({
    {u"Do&n't Send", Press::Closes, "editing"},
    {u"&Cancel", Press::Cancels, "sending"},
    {u"Edit Re&port", Press::Cancels, "awaiting another try"},
});

const StateRow &rowOf(ReportWindow::State state)
{
    return kStateRows.at(static_cast<size_t>(state));
}

QString secondTitle(ReportWindow::State state)
{
    return QString::fromUtf16(rowOf(state).secondTitle);
}

/// Each size is decoded at the start of the program, and a larger one than these would take longer than all of them; no
/// window shows it. Desktops that want one find it by the name of the desktop entry.
QIcon applicationIcon()
{
    QIcon icon;
    for (const int side : {16, 24, 32, 48, 64, 128}) {
        icon.addFile(u":/icons/%1.png"_s.arg(side), {side, side});
    }
    return icon;
}

/// Half a character becomes U+FFFD, as it does in what is sent; the clipboard would make a question mark of it.
QString withoutHalves(QString text)
{
    if (text.isValidUtf16()) {
        return text;
    }
    QByteArray bytes;
    appendUtf8(bytes, text);
    return textFromUtf8(bytes).value_or(text);
}

/// The files are read and stay where they are: whoever proposes to move them would delete them.
void acceptAsCopy(QDropEvent &event)
{
    event.setDropAction(Qt::CopyAction);
    event.accept();
}

/// Shows the title and widens the button to it, so that no later, shorter title moves the buttons beside it.
void setTitle(QPushButton &button, const QString &title)
{
    if (button.text() == title) {
        return;
    }
    button.setText(title);
    // Some styles leave hardly any space beside a title.
    const int space = 2 * button.fontMetrics().averageCharWidth();
    button.setMinimumWidth(std::max(button.minimumWidth(), button.sizeHint().width() + space));
}

} // namespace

/// The widgets, the pane that folds, and the controls made of them, in the order in which they come to be.
struct ReportWindow::Parts {
    explicit Parts(ReportWindow &window)
        : ui(setUp(window))
        , foldingPane(window, *ui.form, *ui.logView)
        , mainWindow(window, foldingPane)
        , initialInfo(*ui.initialInfo)
        , disclosureBtn(*ui.disclosureBtn)
        , logView(*ui.logView, foldingPane)
        , logText(*ui.logText)
        , infoText(*ui.infoText, [&window] { window.onControlChanged(); })
        , emailText(*ui.emailText, [&window] { window.onControlChanged(); })
        , submitBtn(*ui.submitBtn, [&window] { window.onControlChanged(); })
        , spinner([&window] { window.onControlChanged(); })
    {
    }

    static Ui::ReportWindow setUp(ReportWindow &window)
    {
        registerResources();
        installAccessibleControls();
        Ui::ReportWindow widgets;
        widgets.setupUi(&window);
        // The compiler of the layout takes the margins from plain widgets. A frame would keep its own, and be one to
        // assistive technology.
        widgets.formLayout->unsetContentsMargins();
        widgets.logLayout->unsetContentsMargins();
        QMargins besideTheForm = widgets.logLayout->contentsMargins();
        besideTheForm.setTop(0);
        widgets.logLayout->setContentsMargins(besideTheForm);
        window.setWindowIcon(applicationIcon());
        for (const QString &title : {u"Sending..."_s, widgets.submitBtn->text()}) {
            setTitle(*widgets.submitBtn, title);
        }
        for (const State state : {State::AwaitingRetry, State::Sending, State::Editing}) {
            setTitle(*widgets.secondBtn, secondTitle(state));
        }
        return widgets;
    }

    Ui::ReportWindow ui;
    KeyGuard keyGuard;
    FoldingPane foldingPane;
    QtWindow mainWindow;
    QtHeadline initialInfo;
    QtDisclosureButton disclosureBtn;
    QtView logView;
    QtReportText logText;
    QtTextView infoText;
    QtTextField emailText;
    QtSubmitButton submitBtn;
    QtProgressIndicator spinner;
};

// An ordinary window and no dialog to the window manager: it stands for itself and may be minimized.
ReportWindow::ReportWindow(QWidget *parent)
    : QDialog(parent, Qt::Window)
    , parts(std::make_unique<Parts>(*this))
{
    connectControls();
    addShortcuts();
    adaptToPalette();
}

ReportWindow::~ReportWindow() = default;

platform::ReportControls ReportWindow::controls()
{
    return {parts->mainWindow, parts->initialInfo, parts->disclosureBtn, parts->logView, parts->logText,
            parts->infoText,   parts->emailText,   parts->submitBtn,     parts->spinner};
}

ReportWindow::State ReportWindow::state() const
{
    if (parts->emailText.isEnabled()) {
        return State::Editing;
    }
    return parts->spinner.isAnimated() ? State::Sending : State::AwaitingRetry;
}

// The label is shortened where a name would fill the window. Assistive technology is given the whole, also with the
// triangle, which can have the keyboard.
void ReportWindow::setReportSummary(const ReportSummary &summary)
{
    const Ui::ReportWindow &ui = parts->ui;
    ReportSummary shown = summary;
    shown.logFile = withEllipsis(lastPathComponent(summary.logFile), kMaxNameUnits, kMaxNameUnits / 2);
    shown.host = withEllipsis(summary.host, kMaxNameUnits, kMaxNameUnits / 2);
    const QString whole = summaryText(summary);
    ui.summary->setText(leftToRight(breakable(summaryText(shown))));
    ui.summary->setAccessibleName(whole);
    // Where there is none, the toolkit takes the tool tip, with its markup.
    ui.summary->setAccessibleDescription(whole);
    ui.summary->setToolTip(toolTipText(whole));
    ui.summary->show();
    ui.disclosureBtn->setAccessibleDescription(whole);
}

void ReportWindow::setAppendedLogs(const QList<platform::AppendedLog> &logs)
{
    QList<reportview::Section> sections;
    for (const platform::AppendedLog &log : logs) {
        sections.append({log.title, log.offset});
    }
    parts->ui.logText->setSections(sections);
}

void ReportWindow::setUploadProgress(qint64 sent, qint64 total)
{
    if (parts->ui.spinner->isTurning()) {
        parts->ui.spinner->setProgress(sent, total);
    }
}

void ReportWindow::copyReport() const
{
    // The text may be large: it is copied once, into the room that it needs.
    const QString text = parts->logText.string();
    if (text.isEmpty()) {
        return;
    }
    QString report;
    if (const QString address = parts->emailText.stringValue(); !address.isEmpty()) {
        report += u"E-mail address:\n"_s + address + u"\n\n"_s;
    }
    if (const QString description = parts->infoText.string(); !description.isEmpty()) {
        report += u"Description:\n"_s + description + u"\n\n"_s;
    }
    report += u"Report:\n"_s;
    report.reserve(report.size() + text.size());
    report += text;
    QGuiApplication::clipboard()->setText(withoutHalves(std::move(report)));
    qCInfo(lcWindow) << "report copied";
}

void ReportWindow::reject()
{
    if (rowOf(state()).press == Press::Cancels) {
        Q_EMIT cancelClicked();
    }
}

void ReportWindow::changeEvent(QEvent *event)
{
    QDialog::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && parts) {
        adaptToPalette();
    }
}

void ReportWindow::closeEvent(QCloseEvent * /*event*/)
{
    // Not the dialog's own handling: that one rejects, which cancels here while a report is being sent.
    Q_EMIT closed();
}

void ReportWindow::dragEnterEvent(QDragEnterEvent *event)
{
    if (!droppedFiles(*event->mimeData()).isEmpty()) {
        acceptAsCopy(*event);
    }
}

void ReportWindow::dropEvent(QDropEvent *event)
{
    const QStringList paths = droppedFiles(*event->mimeData());
    if (paths.isEmpty()) {
        return;
    }
    acceptAsCopy(*event);
    qCInfo(lcWindow) << "files dropped:" << paths.size();
    Q_EMIT filesDropped(paths);
}

bool ReportWindow::eventFilter(QObject *object, QEvent *event)
{
    if (object == parts->ui.emailText && event->type() == QEvent::DragEnter) {
        // Files are opened, not typed: the field leaves them to the window.
        const bool bringsFiles = !droppedFiles(*static_cast<QDragEnterEvent *>(event)->mimeData()).isEmpty();
        event->setAccepted(event->isAccepted() && !bringsFiles);
        return bringsFiles;
    }
    // The first click of a double click may have changed what the button does: its second one does nothing.
    if (object == parts->ui.secondBtn && event->type() == QEvent::MouseButtonDblClick) {
        return true;
    }
    return false;
}

void ReportWindow::connectControls()
{
    const Ui::ReportWindow &ui = parts->ui;
    // Not its click: assistive technology toggles a checkable button without clicking it.
    connect(ui.disclosureBtn, &QToolButton::toggled, this, &ReportWindow::disclosureClicked);
    connect(ui.submitBtn, &QPushButton::clicked, this, &ReportWindow::submitClicked);
    connect(ui.secondBtn, &QPushButton::clicked, this, &ReportWindow::onSecondButton);
    ui.secondBtn->installEventFilter(this);
    ui.emailText->installEventFilter(this);
    nextTurn.setSingleShot(true);
    connect(&nextTurn, &QTimer::timeout, &secondTurn, qOverload<>(&QTimer::start));
    connect(&secondTurn, &QTimer::timeout, this, &ReportWindow::showState);
}

void ReportWindow::addShortcuts()
{
    const Ui::ReportWindow &ui = parts->ui;
    auto *copy = new QAction(u"Copy Report"_s, this);
    copy->setShortcut(QKeySequence(u"Ctrl+Shift+C"_s));
    connect(copy, &QAction::triggered, this, &ReportWindow::copyReport);
    addAction(copy);
    // Into its context menu.
    ui.logText->addAction(copy);
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter}) {
        auto *press = new QShortcut(QKeySequence(Qt::CTRL | key), ui.infoText);
        press->setContext(Qt::WidgetShortcut);
        press->setAutoRepeat(false);
        connect(press, &QShortcut::activated, ui.submitBtn, &QPushButton::click);
    }
}

// The form is locked at once: no key that is already on its way may find it open. It is given back two turns of the
// event loop later. When a report has been accepted the end comes first, in the next turn, and so the window goes from
// sending to its end without a flicker, or a word from a screen reader, in between.
void ReportWindow::onControlChanged()
{
    if (state() == State::Sending) {
        showState();
    } else {
        nextTurn.start();
    }
}

// The keyboard leaves a control before that is locked or hidden, so that it never visits one in between.
void ReportWindow::showState()
{
    nextTurn.stop();
    secondTurn.stop();
    const Ui::ReportWindow &ui = parts->ui;
    const State now = state();
    if (now == State::Sending) {
        ui.spinner->start();
    }
    setTitle(*ui.submitBtn, parts->submitBtn.title());
    ui.emailText->setEnabled(ui.emailText->isEnabled() || parts->emailText.isEnabled());
    ui.submitBtn->setEnabled(ui.submitBtn->isEnabled() || parts->submitBtn.isEnabled());
    if (now != shownState) {
        qCInfo(lcWindow) << rowOf(now).name;
        shownState = now;
        setTitle(*ui.secondBtn, secondTitle(now));
        focusTarget(now).setFocus();
    }
    ui.infoText->setEditable(parts->infoText.isEditable());
    ui.emailText->setEnabled(parts->emailText.isEnabled());
    ui.submitBtn->setEnabled(parts->submitBtn.isEnabled());
    if (!parts->spinner.isAnimated()) {
        ui.spinner->stop();
    }
}

QWidget &ReportWindow::focusTarget(State of) const
{
    const Ui::ReportWindow &ui = parts->ui;
    switch (of) {
    case State::Sending:
        return *ui.spinner;
    case State::AwaitingRetry:
        return *ui.submitBtn;
    default:
        return *ui.emailText;
    }
}

// What the button says is what it does, also where the state has changed and the window does not show that yet.
void ReportWindow::onSecondButton()
{
    if (rowOf(shownState).press == Press::Closes) {
        close();
    } else {
        Q_EMIT cancelClicked();
    }
}

void ReportWindow::adaptToPalette()
{
    const Ui::ReportWindow &ui = parts->ui;
    const QBrush window = palette().brush(QPalette::Active, QPalette::Window);
    const QBrush text = palette().brush(QPalette::Active, QPalette::WindowText);
    // Styles draw a frame in a darker shade of the window's colour. Where a field is of that colour itself, as with
    // high contrast, only the frame shows where the field is, and black has no darker shade.
    QPalette framed;
    if (palette().color(QPalette::Base) == window.color()) {
        framed.setBrush(QPalette::Window, text);
    }
    for (QWidget *widget : std::initializer_list<QWidget *>{ui.infoText, ui.logText, ui.secondBtn, ui.submitBtn}) {
        widget->setPalette(framed);
    }
    // The locked description shows the window's colour itself.
    QPalette unframed;
    unframed.setBrush(QPalette::Window, window);
    ui.infoText->viewport()->setPalette(unframed);
    // The locked address looks like the locked description: disabled text is too faint to read.
    framed.setBrush(QPalette::Disabled, QPalette::Text, palette().brush(QPalette::Active, QPalette::Text));
    framed.setBrush(QPalette::Disabled, QPalette::Base, window);
    ui.emailText->setPalette(framed);
}

#include "moc_ReportWindow.cpp"

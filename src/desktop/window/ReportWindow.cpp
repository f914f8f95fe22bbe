// The report window: what its controls do to each other, Escape, closing and dropped files.
#include "desktop/window/ReportWindow.h"

#include "desktop/window/DroppedFiles.h"
#include "desktop/window/FoldingPane.h"
#include "desktop/window/KeyGuard.h"
#include "desktop/window/QtControls.h"
#include "ui_ReportWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDropEvent>
#include <QKeyEvent>
#include <QPushButton>
#include <QStyle>

using namespace Qt::StringLiterals;

/// Resources in a static library register themselves only where something refers to them; the macro that does so has
/// to stand outside every namespace.
static void registerResources()
{
    Q_INIT_RESOURCE(resources);
}

namespace {

bool isEnter(const QKeyEvent &event)
{
    return event.key() == Qt::Key_Return || event.key() == Qt::Key_Enter;
}

QIcon applicationIcon()
{
    QIcon icon;
    for (const int side : {16, 24, 32, 48, 64, 128, 256}) {
        icon.addFile(u":/icons/%1.png"_s.arg(side), {side, side});
    }
    return icon;
}

} // namespace

/// The widgets, the pane that folds, and the controls made of them, in the order in which they come to be.
struct ReportWindow::Parts {
    explicit Parts(ReportWindow &window)
        : ui(setUp(window))
        , foldingPane(window, *ui.form, *ui.logView)
        , mainWindow(window, foldingPane)
        , initialInfo(*ui.initialInfo)
        , disclosureBtn(*ui.disclosureBtn, [this](bool enabled) { ui.disclosureBtn->setEnabled(enabled); })
        , logView(*ui.logView, foldingPane)
        , logText(*ui.logText)
        , infoText(*ui.infoText)
        , emailText(*ui.emailText, [&window](bool enabled) { window.setAddressEnabled(enabled); })
        , submitBtn(*ui.submitBtn, [&window](bool enabled) { window.setSubmitEnabled(enabled); })
        , spinner(*ui.spinner)
    {
    }

    static Ui::ReportWindow setUp(ReportWindow &window)
    {
        registerResources();
        Ui::ReportWindow widgets;
        widgets.setupUi(&window);
        const int side = window.style()->pixelMetric(QStyle::PM_MessageBoxIconSize, nullptr, &window);
        window.setWindowIcon(applicationIcon());
        widgets.iconLabel->setPixmap(window.windowIcon().pixmap(QSize(side, side), window.devicePixelRatio()));
        for (QPushButton *button : {widgets.cancelBtn, widgets.submitBtn}) {
            // Some styles leave hardly any room beside a title.
            const int room = 2 * button->fontMetrics().averageCharWidth();
            button->setMinimumWidth(button->sizeHint().width() + room);
        }
        return widgets;
    }

    Ui::ReportWindow ui;
    FoldingPane foldingPane;
    QtWindow mainWindow;
    QtHeadline initialInfo;
    QtButton disclosureBtn;
    QtView logView;
    QtReportText logText;
    QtTextView infoText;
    QtTextField emailText;
    QtButton submitBtn;
    QtProgressIndicator spinner;
};

// An ordinary window and no dialog to the window manager: it stands for itself and may be minimised.
ReportWindow::ReportWindow(QWidget *parent)
    : QDialog(parent, Qt::Window)
    , parts(std::make_unique<Parts>(*this))
{
    connectControls();
    showLockedAddress();
}

ReportWindow::~ReportWindow() = default;

platform::ReportControls ReportWindow::controls()
{
    return {parts->mainWindow, parts->initialInfo, parts->disclosureBtn, parts->logView, parts->logText,
            parts->infoText,   parts->emailText,   parts->submitBtn,     parts->spinner};
}

void ReportWindow::reject()
{
    if (parts->ui.cancelBtn->isEnabled()) {
        Q_EMIT cancelClicked();
        ignoreDoubledEscape();
        return;
    }
    if (escapeCloses.hasExpired()) {
        close();
    }
}

bool ReportWindow::event(QEvent *event)
{
    // An alert that stood before the window is gone.
    if (event->type() == QEvent::WindowUnblocked) {
        ignoreDoubledEscape();
    }
    return QDialog::event(event);
}

void ReportWindow::changeEvent(QEvent *event)
{
    QDialog::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && parts) {
        showLockedAddress();
    }
}

void ReportWindow::closeEvent(QCloseEvent *event)
{
    // Not the dialog's own handling: that one rejects, which cancels here while a report is being sent.
    event->accept();
    Q_EMIT closed();
}

void ReportWindow::dragEnterEvent(QDragEnterEvent *event)
{
    if (!droppedFiles(*event->mimeData()).isEmpty()) {
        event->acceptProposedAction();
    }
}

void ReportWindow::dropEvent(QDropEvent *event)
{
    const QStringList paths = droppedFiles(*event->mimeData());
    if (paths.isEmpty()) {
        return;
    }
    event->acceptProposedAction();
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
    if (object == parts->ui.cancelBtn && event->type() == QEvent::KeyPress) {
        return isEnter(*static_cast<QKeyEvent *>(event)) && !returnCancels.hasExpired();
    }
    return QDialog::eventFilter(object, event);
}

void ReportWindow::connectControls()
{
    const Ui::ReportWindow &ui = parts->ui;
    // Not its click: a screen reader turns a checkable button over without one.
    connect(ui.disclosureBtn, &QToolButton::toggled, this, &ReportWindow::disclosureClicked);
    connect(ui.submitBtn, &QPushButton::clicked, this, &ReportWindow::submitClicked);
    connect(ui.cancelBtn, &QPushButton::clicked, this, &ReportWindow::cancelClicked);
    ui.cancelBtn->installEventFilter(this);
    ui.emailText->installEventFilter(this);
    // The window's own keys are those that its controls leave to it.
    new KeyGuard({this, ui.disclosureBtn, ui.cancelBtn, ui.submitBtn}, this);
}

// Like the locked description: a disabled field's own letters are hardly to be read.
void ReportWindow::showLockedAddress()
{
    QPalette locked;
    locked.setBrush(QPalette::Disabled, QPalette::Text, palette().brush(QPalette::Active, QPalette::Text));
    locked.setBrush(QPalette::Disabled, QPalette::Base, palette().brush(QPalette::Active, QPalette::Window));
    parts->ui.emailText->setPalette(locked);
}

void ReportWindow::ignoreDoubledEscape()
{
    escapeCloses.setRemainingTime(QApplication::doubleClickInterval());
}

// There is something to cancel, or to unlock, exactly while the address is locked.
void ReportWindow::setAddressEnabled(bool enabled)
{
    const Ui::ReportWindow &ui = parts->ui;
    if (enabled) {
        ui.emailText->setEnabled(true);
        if (focusWidget() == ui.cancelBtn || (ui.cancelBtn->isEnabled() && focusWidget() == ui.submitBtn)) {
            ui.emailText->setFocus();
        }
        ui.cancelBtn->setEnabled(false);
        return;
    }
    ui.cancelBtn->setEnabled(true);
    // Cancel gets the keyboard now: a Return that was pressed twice to submit must not take the report back.
    returnCancels.setRemainingTime(QApplication::doubleClickInterval());
    if (focusWidget() == ui.emailText) {
        ui.cancelBtn->setFocus();
    }
    ui.emailText->setEnabled(false);
}

// A disabled button loses the keyboard to whatever is next; Cancel is what makes sense while a report is being sent.
void ReportWindow::setSubmitEnabled(bool enabled)
{
    const Ui::ReportWindow &ui = parts->ui;
    if (!enabled && focusWidget() == ui.submitBtn && ui.cancelBtn->isEnabled()) {
        ui.cancelBtn->setFocus();
    }
    ui.submitBtn->setEnabled(enabled);
    if (enabled) {
        returnCancels = QDeadlineTimer();
    }
    if (enabled && focusWidget() == ui.cancelBtn) {
        ui.submitBtn->setFocus();
    }
}

// The report window on Qt Widgets.
#pragma once

#include "desktop/window/ReportSummary.h"
#include "platform/LoadedReport.h"
#include "platform/ReportControls.h"

#include <QDialog>
#include <QStringList>
#include <QTimer>

#include <memory>

/// The window of resources/ReportWindow.ui, and its controls, through which the controller speaks to it.
///
/// What the window is for at a moment is its state. It is worked out from what the controller has told its controls:
/// Editing while the address is enabled, else Sending while the spinner turns, else AwaitingRetry. An upload that could
/// not be started (stalled) is Sending, too. The controller knows of no state; the window's own controls follow it:
///
/// | state         | second button | which        | Escape  | the keyboard goes to |
/// |---------------|---------------|--------------|---------|----------------------|
/// | Editing       | Don't Send    | closes       | nothing | the address          |
/// | Sending       | Cancel        | cancels      | cancels | the spinner          |
/// | AwaitingRetry | Edit Report   | cancels      | cancels | Report Crash         |
///
/// The keyboard goes there whenever the state changes, wherever it was: that is how a screen reader announces the
/// change.
class ReportWindow : public QDialog
{
    Q_OBJECT

public:
    enum class State { Editing, Sending, AwaitingRetry };

    explicit ReportWindow(QWidget *parent = nullptr);
    ~ReportWindow() override;

    /// The controls, for the controller; they live as long as the window.
    platform::ReportControls controls();

    /// What the controls were told amounts to, also where the window does not show it yet.
    State state() const;

    /// Says beside the triangle what would be sent and where to; also when another file was opened.
    void setReportSummary(const ReportSummary &summary);

    /// Names the parts of the report that its view can go to; also when another file was opened, after its text was
    /// set.
    void setAppendedLogs(const QList<platform::AppendedLog> &logs);

    /// Shows how many bytes of the request's body have gone, while a report is being sent.
    void setUploadProgress(qint64 sent, qint64 total);

    /// Puts the address, the description and the report on the clipboard, as they would be sent.
    void copyReport() const;

    /// What Escape does: cancels while there is something to cancel or to unlock, and else nothing. It never closes the
    /// window: what the user typed is not lost to a key.
    void reject() override;

Q_SIGNALS:
    /// The disclosure triangle was pressed.
    void disclosureClicked();
    /// The submit button was pressed.
    void submitClicked();
    /// The user wants to cancel the upload, or to unlock the form.
    void cancelClicked();
    /// Local files were dropped onto the window; their paths, in order.
    void filesDropped(const QStringList &paths);
    /// The user closed the window.
    void closed();

protected:
    void changeEvent(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    struct Parts;

    void connectControls();
    void addShortcuts();
    void onControlChanged();
    void showState();
    QWidget &focusTarget(State of) const;
    void onSecondButton();
    void adaptToPalette();

    std::unique_ptr<Parts> parts;
    State shownState = State::Editing; ///< What the window shows; state(), but where that is shown later.
    QTimer nextTurn;                   ///< Runs while the window does not show its state yet;
    QTimer secondTurn;                 ///< then this one does.
};

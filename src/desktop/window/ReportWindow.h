// The report window on Qt Widgets.
#pragma once

#include "platform/ReportControls.h"

#include <QDeadlineTimer>
#include <QDialog>
#include <QStringList>

#include <memory>

/// The window of resources/ReportWindow.ui, and its controls, through which the controller speaks to it.
class ReportWindow : public QDialog
{
    Q_OBJECT

public:
    explicit ReportWindow(QWidget *parent = nullptr);
    ~ReportWindow() override;

    /// The controls, for the controller; they live as long as the window.
    platform::ReportControls controls();

    /// What Escape does: cancels while there is something to cancel or to unlock, and else closes the window. Pressed
    /// twice it must not do both, nor close the window right after an alert: what the user typed would be lost. So it
    /// closes nothing for the time of a double click after it cancelled or an alert was dismissed.
    void reject() override;

Q_SIGNALS:
    /// The disclosure triangle was pressed.
    void disclosureClicked();
    /// The submit button was pressed.
    void submitClicked();
    /// Cancel was pressed, or Escape while there is something to cancel or to unlock.
    void cancelClicked();
    /// Local files were dropped onto the window; their paths, in order.
    void filesDropped(const QStringList &paths);
    /// The user closed the window.
    void closed();

protected:
    bool event(QEvent *event) override;
    void changeEvent(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    struct Parts;

    void connectControls();
    void showLockedAddress();
    void ignoreDoubledEscape();
    void setAddressEnabled(bool enabled);
    void setSubmitEnabled(bool enabled);

    std::unique_ptr<Parts> parts;
    QDeadlineTimer escapeCloses;  ///< Until then Escape closes nothing.
    QDeadlineTimer returnCancels; ///< Until then Return does not press Cancel.
};

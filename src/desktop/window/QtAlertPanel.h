// The modal alert on QMessageBox.
#pragma once

#include "platform/AlertPanel.h"

#include <QPointer>
#include <QWidget>

class QtAlertPanel : public platform::AlertPanel
{
public:
    /// Alerts are modal to the window while it is visible, and stand alone otherwise.
    explicit QtAlertPanel(QWidget *window);

    void runAlertPanel(const QString &title, const QString &message) override;

private:
    QPointer<QWidget> window;
};

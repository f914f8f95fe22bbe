// The modal alert over QMessageBox.
#pragma once

#include "platform/AlertPanel.h"

#include <QPointer>
#include <QWidget>

class QtAlertPanel : public platform::AlertPanel
{
public:
    /// Alerts stand before the window while it is visible.
    explicit QtAlertPanel(QWidget *window);

    void runAlertPanel(const QString &title, const QString &message) override;

private:
    QPointer<QWidget> window;
};

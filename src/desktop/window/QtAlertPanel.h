// The modal alert on QMessageBox.
#pragma once

#include "platform/AlertPanel.h"

#include <QWidget>

class QtAlertPanel : public platform::AlertPanel
{
public:
    /// Alerts are modal to the window while it is visible, and stand alone otherwise.
    /// The window must outlive the panel.
    explicit QtAlertPanel(QWidget &window);

    void runAlertPanel(const QString &title, const QString &message) override;

private:
    QWidget &window;
};

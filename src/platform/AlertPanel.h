// The modal alert with one default button.
#pragma once

#include "platform/Object.h"

#include <QString>

namespace platform {

class AlertPanel : public Object
{
public:
    /// Shows an alert with the title and, below it, the message, both as plain text, and returns when the user has
    /// dismissed it. Until then no other operation of the controller starts.
    virtual void runAlertPanel(const QString &title, const QString &message) = 0;
};

} // namespace platform

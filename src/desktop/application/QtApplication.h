// The running application on Qt.
#pragma once

#include "platform/Application.h"

#include <QWidget>

class QtApplication : public platform::Application
{
public:
    /// The window must outlive the application.
    explicit QtApplication(QWidget &window);

    void activateIgnoringOtherApps() override;
    void terminate(const platform::Object *sender) override;

private:
    QWidget &window;
};

// The running application on Qt.
#pragma once

#include "platform/Application.h"

#include <QPointer>
#include <QWidget>

class QtApplication : public platform::Application
{
public:
    explicit QtApplication(QWidget *window);

    void activateIgnoringOtherApps() override;
    void terminate(const platform::Object *sender) override;

private:
    QPointer<QWidget> window;
};

// The interface objects that a report window offers to the controller.
#pragma once

#include "platform/Controls.h"

namespace platform {

/// The controls of the report window. One that is left out is the missing object, which does nothing.
struct ReportControls {
    Window &mainWindow = Window::missing();
    TextField &initialInfo = TextField::missing();
    Button &disclosureBtn = Button::missing();
    View &logView = View::missing();
    TextView &logText = TextView::missing();
    TextView &infoText = TextView::missing();
    TextField &emailText = TextField::missing();
    Button &submitBtn = Button::missing();
    ProgressIndicator &spinner = ProgressIndicator::missing();
};

} // namespace platform

// The shared missing objects.
#include "platform/Controls.h"

#include "platform/LoadedReport.h"

namespace platform {

namespace {

template<typename Control>
Control &sharedInstance()
{
    static Control control;
    return control;
}

} // namespace

View &View::missing()
{
    return sharedInstance<View>();
}

TextField &TextField::missing()
{
    return sharedInstance<TextField>();
}

TextView &TextView::missing()
{
    return sharedInstance<TextView>();
}

Button &Button::missing()
{
    return sharedInstance<Button>();
}

ProgressIndicator &ProgressIndicator::missing()
{
    return sharedInstance<ProgressIndicator>();
}

Window &Window::missing()
{
    return sharedInstance<Window>();
}

ReportListener &ReportListener::missing()
{
    return sharedInstance<ReportListener>();
}

} // namespace platform

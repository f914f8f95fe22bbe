// A clear end where there is no display.
#include "desktop/application/DisplayCheck.h"

#include <QString>

#include <cstdio>
#include <cstdlib>

namespace {

/// The toolkit reports a missing display as a fatal message and aborts when the handler of messages returns. What it
/// says before that, about plugins it tried, helps nobody.
void endAtFatalMessage(QtMsgType type, const QMessageLogContext & /*context*/, const QString & /*message*/)
{
    if (type != QtFatalMsg) {
        return;
    }
    std::fputs("korvale-crash-reporter: no display can be opened, so the report window cannot be shown\n", stderr);
    std::_Exit(EXIT_FAILURE);
}

} // namespace

DisplayCheck::DisplayCheck()
    : previousHandler(qInstallMessageHandler(endAtFatalMessage))
{
}

DisplayCheck::~DisplayCheck()
{
    qInstallMessageHandler(previousHandler);
}

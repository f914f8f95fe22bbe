// A clear end where there is no display.
#pragma once

#include <QtGlobal>

/// While it lives, a toolkit that cannot open a display ends the process with one line on standard error and exit
/// status 1. Without it the toolkit would abort, with a page of its own messages. Lives around the construction of the
/// application object and no longer.
class DisplayCheck
{
public:
    DisplayCheck();
    DisplayCheck(const DisplayCheck &) = delete;
    DisplayCheck &operator=(const DisplayCheck &) = delete;
    ~DisplayCheck();

private:
    QtMessageHandler previousHandler;
};

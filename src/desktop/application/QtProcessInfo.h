// The process's command line and its unique texts.
#pragma once

#include "platform/ProcessInfo.h"

class QtProcessInfo : public platform::ProcessInfo
{
public:
    /// Copies the argument list, which QApplication would otherwise take words from.
    QtProcessInfo(int argc, char **argv);

    QStringList arguments() const override;
    QString globallyUniqueString() const override;

private:
    QStringList argumentList;
};

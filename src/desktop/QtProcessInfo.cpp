// The process's command line and its unique texts.
#include "desktop/QtProcessInfo.h"

#include <QFile>
#include <QUuid>

#include <algorithm>
#include <iterator>

QtProcessInfo::QtProcessInfo(int argc, char **argv)
{
    std::transform(argv, argv + argc, std::back_inserter(argumentList),
                   [](const char *argument) { return QFile::decodeName(argument); });
}

QStringList QtProcessInfo::arguments() const
{
    return argumentList;
}

QString QtProcessInfo::globallyUniqueString() const
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

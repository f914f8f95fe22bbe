// The process's command line and its unique texts.
#include "desktop/application/QtProcessInfo.h"

#include "base/Utf8.h"

#include <QFile>
#include <QUuid>

#include <algorithm>
#include <iterator>

namespace {

/// The argument's text, a byte-order mark at its start included; what is not UTF-8 is shown as well as it can be.
QString textOfArgument(const char *argument)
{
    return textFromUtf8(argument).value_or(QFile::decodeName(argument));
}

} // namespace

QtProcessInfo::QtProcessInfo(int argc, char **argv)
{
    std::transform(argv, argv + argc, std::back_inserter(argumentList), textOfArgument);
}

QStringList QtProcessInfo::arguments() const
{
    return argumentList;
}

QString QtProcessInfo::globallyUniqueString() const
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

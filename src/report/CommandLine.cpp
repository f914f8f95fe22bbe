// What the command line asks for.
#include "report/CommandLine.h"

namespace {

constexpr QStringView kRemoteNameOption = u"-remotename";
constexpr QStringView kLogOption = u"-log";

/// The program's path and two options with their values.
constexpr qsizetype kLeastArguments = 5;

std::optional<QString> valueOf(QStringView option, const QStringList &arguments)
{
    const qsizetype index = arguments.indexOf(option);
    if (index < 0 || index >= arguments.size() - 1) {
        return std::nullopt;
    }
    return arguments.at(index + 1);
}

} // namespace

LaunchOptions launchOptions(const QStringList &arguments)
{
    if (arguments.size() < kLeastArguments || !arguments.contains(kRemoteNameOption)
        || !arguments.contains(kLogOption)) {
        return {};
    }
    return {.remoteName = valueOf(kRemoteNameOption, arguments), .logPath = valueOf(kLogOption, arguments)};
}

QStringList openedFiles(const QStringList &arguments)
{
    QStringList files;
    for (qsizetype index = 1; index < arguments.size(); ++index) {
        if (arguments.at(index).startsWith(u'-')) {
            ++index;
            continue;
        }
        files.append(arguments.at(index));
    }
    return files;
}

// What the command line asks for.
#include "report/CommandLine.h"

namespace {

constexpr QStringView kRemoteNameOption = u"-remotename";
constexpr QStringView kLogOption = u"-log";

/// The program's path and two options with their values.
constexpr qsizetype kMinArguments = 5;

bool isConsidered(const QStringList &arguments)
{
    return arguments.size() >= kMinArguments && arguments.contains(kRemoteNameOption) && arguments.contains(kLogOption);
}

/// The word after the option, which is among them.
std::optional<QString> valueOf(QStringView option, const QStringList &arguments)
{
    const qsizetype next = arguments.indexOf(option) + 1;
    return next < arguments.size() ? std::optional(arguments.at(next)) : std::nullopt;
}

/// The words that are left when the launch decision has taken its own: both options and their values.
QStringList wordsForOpening(const QStringList &arguments)
{
    const bool taken = isConsidered(arguments);
    const qsizetype remoteName = arguments.indexOf(kRemoteNameOption);
    const qsizetype log = arguments.indexOf(kLogOption);
    QStringList words;
    for (qsizetype index = 1; index < arguments.size(); ++index) {
        const bool isTaken =
            taken && (index == remoteName || index == remoteName + 1 || index == log || index == log + 1);
        if (!isTaken) {
            words.append(arguments.at(index));
        }
    }
    return words;
}

} // namespace

LaunchOptions launchOptions(const QStringList &arguments)
{
    if (!isConsidered(arguments)) {
        return {};
    }
    return {.remoteName = valueOf(kRemoteNameOption, arguments), .logPath = valueOf(kLogOption, arguments)};
}

QStringList openedFiles(const QStringList &arguments)
{
    const QStringList words = wordsForOpening(arguments);
    QStringList files;
    for (qsizetype index = 0; index < words.size(); ++index) {
        const QString &word = words.at(index);
        if (word == u"--") {
            return files + words.mid(index + 1);
        }
        if (!word.startsWith(u'-')) {
            files.append(word);
        } else if (index + 1 < words.size() && !words.at(index + 1).startsWith(u'-')) {
            ++index;
        }
    }
    return files;
}

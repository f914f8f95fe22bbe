// What the command line asks for.
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

struct LaunchOptions {
    std::optional<QString> remoteName; ///< The machine on which the client ran.
    std::optional<QString> logPath;    ///< The crash log to load.

    bool operator==(const LaunchOptions &) const = default;
};

/// The values of "-remotename" and "-log" in an argument list whose element 0 is the program's own path. Both stay
/// std::nullopt unless the list has at least five elements and contains both options. The first occurrence of an option
/// counts, its value is the next element, whatever that says, and an option at the end has none.
LaunchOptions launchOptions(const QStringList &arguments);

/// The files that the command line opens onto the application, in their order. The words that launchOptions() uses are
/// taken out first. Of what is left, a word that begins with "-" is a key and takes the next word as its value, unless
/// that begins with "-" too; the other words are files, and so is everything after a lone "--".
QStringList openedFiles(const QStringList &arguments);

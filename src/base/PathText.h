// Rules for paths as texts; none of them looks at the file system.
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

/// The last component: "b" for "/a/b" and for "/a/b/", "/" for "/" and "//", empty for an empty path.
QString lastPathComponent(const QString &path);

/// The pieces of a path between its separators; an absolute path's leading "/" is a piece of its own.
QStringList pathComponents(const QString &path);

/// The path and the component with exactly one "/" at the seam, whatever separators the two have there. The path itself
/// for a component that is empty or separators alone, the component itself for an empty path, std::nullopt for no path.
std::optional<QString> byAppendingPathComponent(const std::optional<QString> &path, const QString &component);

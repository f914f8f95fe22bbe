// Whole files, read without ever waiting for them.
#pragma once

#include <QByteArray>
#include <QString>

#include <limits>
#include <optional>

/// No bound on the bytes of a file.
inline constexpr qsizetype kAnySize = std::numeric_limits<qsizetype>::max();

/// Whether something exists at the path, links followed; no for a dangling link.
bool fileExists(const QString &path);

/// The whole content of the regular file at the path, links followed. Nothing, at once, for whatever else is there (a
/// directory, FIFO, socket or device), for a file that cannot be read, for one of more
/// bytes than the most given and for one that memory cannot hold.
/// The size that the system reports is only a hint: what is there is read, also from /proc and from a file that grows
/// or shrinks meanwhile.
std::optional<QByteArray> contentsOfRegularFile(const QString &path, qsizetype mostBytes = kAnySize);

/// The same as UTF-8 text; nothing also when the content is not valid UTF-8.
std::optional<QString> textOfFile(const QString &path, qsizetype mostBytes = kAnySize);

// Whole files, read without waiting for them, but for a moment where another process holds a lease.
#pragma once

#include "base/FileDescriptor.h"

#include <QByteArray>
#include <QString>

#include <limits>
#include <optional>

/// No size limit but that of a byte array, one byte below the largest number: reading asks for a byte more than a file
/// reports.
inline constexpr qsizetype kAnySize = std::numeric_limits<qsizetype>::max() - 1;

/// Returns whether something exists at the path, following links; false for a dangling link.
bool fileExists(const QString &path);

/// Returns the whole content of the regular file at the path, following links. Returns std::nullopt, at once, for
/// anything else (a directory, FIFO, socket or device), for a file that cannot be read, for one larger than maxBytes
/// and for one that memory cannot hold; the logging category korvale.loading says which. A file under a lease
/// (fcntl(2), F_SETLEASE) is one that cannot be read if it stays so for longer than two seconds. The size that the
/// system reports is only a hint: what is there is read, also from /proc and from a file that grows or shrinks
/// meanwhile.
std::optional<QByteArray> contentsOfRegularFile(const QString &path, qsizetype maxBytes = kAnySize);

/// The same of a file that is open for reading; the path is for the log alone.
std::optional<QByteArray> contentsOfRegularFile(const FileDescriptor &file, const QString &path, qsizetype maxBytes);

/// The same as UTF-8 text; std::nullopt also when the content is not valid UTF-8.
std::optional<QString> textOfFile(const QString &path, qsizetype maxBytes = kAnySize);

/// Opens the file at the path as open(2) does: returns a descriptor, or -1 and sets errno.
using FileOpener = int (*)(const char *path, int flags);

/// The same of the file that the opener gives, which is closed afterwards.
std::optional<QString> textOfFile(const QString &path, qsizetype maxBytes, FileOpener open);

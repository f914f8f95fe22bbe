// The file that the settings are in.
#pragma once

#include "base/FileDescriptor.h"

#include <QByteArray>
#include <QString>

#include <sys/stat.h>

#include <filesystem>
#include <optional>

/// A regular file, or a place for one, that is read and replaced as a whole. What is done to its folder meanwhile, by
/// another user who may write it, leads to no other file: the folder is opened once, a link in it is the one that was
/// looked at, and what is read is never behind a link. The way to a folder is the system's to find, links included: it
/// is as safe as the folders in it. Why something is not done is logged in the category korvale.settings.
class SettingsFile
{
public:
    /// The one that the path leads to, there or not. A link in its place is followed, so that it stays one, if it is
    /// the user's own or root's: whoever else may write its folder might lead to any file of the user's.
    /// std::nullopt where there is no folder for it, where links lead in a circle, to no name for a file or are
    /// another user's, or where there is anything but a regular file.
    static std::optional<SettingsFile> at(const QString &path);

    /// Keeps other processes of this program from replacing files of the folder until this object's end; false where
    /// that is not possible within half a second. The lock is the folder's own (flock(2)): there is no file to be left
    /// behind by a process that is killed, or to be something else.
    bool lock();

    /// What it has: nothing while it is not there; std::nullopt where it cannot be read whole, has more than 64 KiB,
    /// or is under another process's lease (fcntl(2), F_SETLEASE) for a quarter of a second.
    std::optional<QByteArray> read();

    /// Puts a file with this content in the place of the one that was read, with the same group and rights if it has
    /// such and no access control list, otherwise for the user alone. It is written beside it, and is on the disk
    /// first; where that fails, where read() would not take the content, or where another file is there by then, or the
    /// same one changed, or one where there was none, false is returned, and what was there stays. Only what comes
    /// between the last look and the moving, one call each, is not noticed.
    bool replace(const QByteArray &content) const;

private:
    SettingsFile(FileDescriptor opened, std::filesystem::path place);

    bool moveIntoPlace(const QByteArray &fresh, const QByteArray &content) const;
    bool isAsItWasRead() const;

    FileDescriptor folder;
    FileDescriptor locked;
    FileDescriptor former;         ///< What was read; none where there was no file.
    struct stat formerStatus = {}; ///< Of that, before it was read.
    std::filesystem::path path;    ///< For the log alone.
    QByteArray name;               ///< In the folder.
};

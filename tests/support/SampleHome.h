// A home of its own for a test: crash logs, and the application's own logs where they are looked for.
#pragma once

#include "support/ScriptedLookups.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <stdexcept>

class SampleHome
{
public:
    SampleHome()
    {
        if (!folder.isValid()) {
            throw std::runtime_error("no temporary folder");
        }
        installStandardDirectories(lookups, folder.path());
    }

    QString path(const QString &name) const { return folder.filePath(name); }

    /// Writes a file, with the folders it needs, and returns its path.
    QString write(const QString &name, const QByteArray &content)
    {
        const QString file = path(name);
        QDir().mkpath(QFileInfo(file).path());
        QFile output(file);
        if (!output.open(QIODevice::WriteOnly) || output.write(content) != content.size()) {
            throw std::runtime_error("cannot write " + file.toStdString());
        }
        return file;
    }

    /// Writes one of the application's own logs, such as "Harbour.task.1.log".
    QString writeApplicationLog(const QString &name, const QByteArray &content)
    {
        return write(QStringLiteral("Library/Logs/Korvale/") + name, content);
    }

private:
    QTemporaryDir folder;

public:
    ScriptedLookups lookups;

private:
    LookupsScope scope{lookups};
};

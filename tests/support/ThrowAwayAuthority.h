// The certificates of the tests, made when they run.
#pragma once

#include <QSslConfiguration>
#include <QString>
#include <QTemporaryDir>

/// An authority made for this process, with the server certificates that tools/make-authority.sh lists.
class ThrowAwayAuthority
{
public:
    /// Made at the first call.
    static const ThrowAwayAuthority &shared();

    /// For a server that shows the named certificate, such as "localhost" or "expired".
    QSslConfiguration serverConfiguration(const QString &certificateName) const;

    /// A folder of authorities that holds this one and no other.
    QString trustedFolder() const { return folder.filePath(QStringLiteral("trusted")); }

private:
    ThrowAwayAuthority();

    QTemporaryDir folder;
};

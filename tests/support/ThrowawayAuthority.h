// The certificates of the tests, made anew for each run.
#pragma once

#include <QSslConfiguration>
#include <QString>
#include <QTemporaryDir>

#include <optional>

/// An authority with the server certificates that tools/make-authority.sh lists: the one in the folder that the
/// variable KORVALE_TEST_AUTHORITY names, as CTest makes one for all tests of a run, or else one made for this process.
class ThrowawayAuthority
{
public:
    static const ThrowawayAuthority &shared();

    /// For a server that shows the named certificate, such as "localhost" or "expired".
    QSslConfiguration serverConfiguration(const QString &certificateName) const;

    /// A folder of authorities that holds this one and no other.
    QString trustedFolder() const { return file(QStringLiteral("trusted")); }

private:
    ThrowawayAuthority();

    QString file(const QString &name) const;

    std::optional<QTemporaryDir> ownFolder; ///< Where no other is given.
    QString folder;
};

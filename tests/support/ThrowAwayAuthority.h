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

    /// Makes this authority, and no other, the one that the process trusts.
    void trust() const;

private:
    ThrowAwayAuthority();

    QTemporaryDir folder;
};

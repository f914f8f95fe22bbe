// The certificates of the tests, made when they run.
#include "support/ThrowAwayAuthority.h"

#include <QFile>
#include <QProcess>
#include <QSslCertificate>
#include <QSslKey>

using namespace Qt::StringLiterals;

const ThrowAwayAuthority &ThrowAwayAuthority::shared()
{
    static const ThrowAwayAuthority authority;
    return authority;
}

ThrowAwayAuthority::ThrowAwayAuthority()
{
    QProcess script;
    script.setProcessChannelMode(QProcess::ForwardedChannels);
    script.start(QStringLiteral(PROJECT_FOLDER "/tools/make-authority.sh"), {folder.path()});
    if (!script.waitForFinished() || script.exitStatus() != QProcess::NormalExit || script.exitCode() != 0) {
        qFatal("tools/make-authority.sh failed: %s", qPrintable(script.errorString()));
    }
}

QSslConfiguration ThrowAwayAuthority::serverConfiguration(const QString &certificateName) const
{
    const QString path = folder.filePath(certificateName);
    QFile keyFile(path + u".key"_s);
    if (!keyFile.open(QFile::ReadOnly)) {
        qFatal("There is no certificate named %s", qPrintable(certificateName));
    }
    QSslConfiguration configuration;
    configuration.setLocalCertificateChain(QSslCertificate::fromPath(path + u".pem"_s));
    configuration.setPrivateKey(QSslKey(&keyFile, QSsl::Ec));
    return configuration;
}

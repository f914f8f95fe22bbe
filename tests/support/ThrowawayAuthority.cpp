// The certificates of the tests, made anew for each run.
#include "support/ThrowawayAuthority.h"

#include <QFile>
#include <QProcess>
#include <QSslCertificate>
#include <QSslKey>

using namespace Qt::StringLiterals;

const ThrowawayAuthority &ThrowawayAuthority::shared()
{
    static const ThrowawayAuthority authority;
    return authority;
}

ThrowawayAuthority::ThrowawayAuthority()
    : folder(qEnvironmentVariable("KORVALE_TEST_AUTHORITY"))
{
    if (!folder.isEmpty()) {
        return;
    }
    folder = ownFolder.emplace().path();
    QProcess script;
    script.setProcessChannelMode(QProcess::ForwardedChannels);
    script.start(QStringLiteral(PROJECT_FOLDER "/tools/make-authority.sh"), {folder});
    if (!script.waitForFinished() || script.exitStatus() != QProcess::NormalExit || script.exitCode() != 0) {
        qFatal("tools/make-authority.sh failed: %s", qPrintable(script.errorString()));
    }
}

QString ThrowawayAuthority::file(const QString &name) const
{
    return folder + u'/' + name;
}

QSslConfiguration ThrowawayAuthority::serverConfiguration(const QString &certificateName) const
{
    const QString path = file(certificateName);
    QFile keyFile(path + u".key"_s);
    if (!keyFile.open(QFile::ReadOnly)) {
        qFatal("There is no certificate named %s", qPrintable(certificateName));
    }
    QSslConfiguration configuration;
    configuration.setLocalCertificateChain(QSslCertificate::fromPath(path + u".pem"_s));
    configuration.setPrivateKey(QSslKey(&keyFile, QSsl::Ec));
    return configuration;
}

// The body of a request as a device that can be read once.
#pragma once

#include <QByteArray>
#include <QIODevice>

/// Reads the bytes front to back and cannot be rewound. A network layer that wants to send a request a second time
/// would have to rewind its body, so a body of this kind is sent once or not at all.
class SequentialBody : public QIODevice
{
    Q_OBJECT

public:
    SequentialBody(QByteArray content, QObject *parent);

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override;
    /// Always refused, and without the warning of QIODevice: a refusal is what the class is for.
    bool seek(qint64 position) override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 size) override;

private:
    QByteArray bytes;
    qsizetype taken = 0;
};

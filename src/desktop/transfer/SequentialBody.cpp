// The body of a request as a device that can be read once.
#include "desktop/transfer/SequentialBody.h"

#include <algorithm>
#include <utility>

SequentialBody::SequentialBody(QByteArray content, QObject *parent)
    : QIODevice(parent)
    , bytes(std::move(content))
{
    // Unbuffered, for QIODevice would keep a copy of its own.
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

qint64 SequentialBody::bytesAvailable() const
{
    return bytes.size() - taken + QIODevice::bytesAvailable();
}

bool SequentialBody::seek(qint64 /*position*/)
{
    return false;
}

qint64 SequentialBody::readData(char *data, qint64 maxSize)
{
    if (taken == bytes.size()) {
        return -1;
    }
    const qsizetype count = std::min<qsizetype>(maxSize, bytes.size() - taken);
    std::copy_n(bytes.cbegin() + taken, count, data);
    taken += count;
    return count;
}

qint64 SequentialBody::writeData(const char * /*data*/, qint64 /*size*/)
{
    return -1;
}

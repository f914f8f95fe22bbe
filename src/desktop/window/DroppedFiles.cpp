// Reads the files out of a drop.
#include "desktop/window/DroppedFiles.h"

#include <QUrl>

QStringList droppedFiles(const QMimeData &data)
{
    QStringList paths;
    const QList<QUrl> urls = data.urls();
    for (const QUrl &url : urls) {
        if (url.isLocalFile()) {
            paths += url.toLocalFile();
        }
    }
    return paths;
}

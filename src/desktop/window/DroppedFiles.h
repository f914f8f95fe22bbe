// Which files a drop brings.
#pragma once

#include <QMimeData>
#include <QStringList>

/// The paths of the local files among what is dropped, in order; anything else is left out.
QStringList droppedFiles(const QMimeData &data);

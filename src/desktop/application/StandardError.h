// What is written to standard error, which whoever has started the program may have stopped reading.
#pragma once

#include <QByteArrayView>

/// Writes as many of the bytes as are taken at once, and leaves out the rest; never waits. Allocates nothing.
void writeToStandardError(QByteArrayView bytes);

/// Has the toolkit's own messages written like that, formatted as it would (QT_MESSAGE_PATTERN).
void writeToolkitMessagesToStandardError();

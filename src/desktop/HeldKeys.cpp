// Which key events are repetitions that press nothing.
#include "desktop/HeldKeys.h"

#include <QKeyEvent>

namespace {

bool pressesSomething(int key)
{
    return key == Qt::Key_Return || key == Qt::Key_Enter || key == Qt::Key_Space || key == Qt::Key_Escape;
}

} // namespace

bool HeldKeys::eventFilter(QObject * /*watched*/, QEvent *event)
{
    if (event->type() != QEvent::KeyPress) {
        return false;
    }
    const auto &key = *static_cast<QKeyEvent *>(event);
    return key.isAutoRepeat() && pressesSomething(key.key());
}

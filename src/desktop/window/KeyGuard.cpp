// Which key presses are repetitions that press nothing.
#include "desktop/window/KeyGuard.h"

#include <QCoreApplication>
#include <QKeyEvent>

namespace {

/// Milliseconds between the two halves of a repetition, at most; no finger is that quick.
constexpr quint64 kLongestPair = 2;

bool pressesSomething(int key)
{
    return key == Qt::Key_Return || key == Qt::Key_Enter || key == Qt::Key_Space || key == Qt::Key_Escape;
}

} // namespace

// On the application, because the keyboard goes from one window to another while a key is held down.
KeyGuard::KeyGuard(const QList<QWidget *> &widgets, QObject *parent)
    : QObject(parent)
    , guarded(widgets.begin(), widgets.end())
{
    QCoreApplication::instance()->installEventFilter(this);
}

bool KeyGuard::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease) {
        return false;
    }
    const auto &key = *static_cast<QKeyEvent *>(event);
    if (event->type() == QEvent::KeyRelease) {
        releasedKey = key.key();
        releasedAt = key.timestamp();
        return false;
    }
    return pressesSomething(key.key()) && isRepetition(key) && guarded.contains(watched);
}

// An X server repeats a key as a release and a press at the same time, which the toolkit takes for a repetition only
// when it has both at hand as it handles the release. Events that a program made have no time.
bool KeyGuard::isRepetition(const QKeyEvent &press) const
{
    const bool followsItsRelease =
        press.key() == releasedKey && press.timestamp() != 0 && press.timestamp() - releasedAt <= kLongestPair;
    return press.isAutoRepeat() || followsItsRelease;
}

// Which key presses are repetitions that activate nothing.
#include "desktop/window/KeyGuard.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QKeyEvent>

namespace {

/// Milliseconds between the two halves of a repetition, at most; no finger is that quick.
constexpr quint64 kMaxPairInterval = 2;

bool isGuarded(int key)
{
    return key == Qt::Key_Return || key == Qt::Key_Enter || key == Qt::Key_Space || key == Qt::Key_Escape;
}

/// A window's own keys are those that its controls leave to it.
bool isGuarded(const QObject &object)
{
    const auto *widget = qobject_cast<const QWidget *>(&object);
    return widget && (widget->isWindow() || qobject_cast<const QAbstractButton *>(widget));
}

} // namespace

KeyGuard::KeyGuard(QObject *parent)
    : QObject(parent)
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
    return isGuarded(key.key()) && isRepetition(key) && isGuarded(*watched);
}

// An X server repeats a key as a release and a press at the same time, which the toolkit takes for a repetition only
// when it has both at hand as it handles the release. Events that a program made have no time.
bool KeyGuard::isRepetition(const QKeyEvent &press) const
{
    const bool followsItsRelease =
        press.key() == releasedKey && press.timestamp() != 0 && press.timestamp() - releasedAt <= kMaxPairInterval;
    return press.isAutoRepeat() || followsItsRelease;
}

#include "moc_KeyGuard.cpp"

// Keeps a key that is held down from pressing buttons and closing windows.
#pragma once

#include <QObject>

class QKeyEvent;

/// Return, Enter, Space and Escape activate something in a window or a button, and a key that is held down would do so
/// again and again, in whatever gets the keyboard next: so each of these keys counts once, when it goes down. Text
/// fields take their keys before the window around them sees any, and go on repeating.
class KeyGuard : public QObject
{
    Q_OBJECT

public:
    /// Guards all windows of the application, whose object must exist.
    explicit KeyGuard(QObject *parent = nullptr);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool isRepetition(const QKeyEvent &press) const;

    int releasedKey = 0;
    quint64 releasedAt = 0; ///< Milliseconds of the window system's clock.
};

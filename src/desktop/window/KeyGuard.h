// Keeps a key that is held down from pressing buttons and closing windows.
#pragma once

#include <QList>
#include <QObject>
#include <QWidget>

class QKeyEvent;

/// Watches windows and buttons. Return, Enter, the blank and Escape press something there, and a key that is held down
/// would press it, and whatever gets the keyboard after it, many times a second: so each of these keys counts once,
/// when it goes down. Text fields take their keys before the window around them sees any, and go on repeating.
class KeyGuard : public QObject
{
    Q_OBJECT

public:
    /// The widgets must outlive the watch. Needs the application object.
    explicit KeyGuard(const QList<QWidget *> &widgets, QObject *parent = nullptr);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool isRepetition(const QKeyEvent &press) const;

    QList<QObject *> guarded;
    int releasedKey = 0;
    quint64 releasedAt = 0; ///< Milliseconds of the window system's clock.
};

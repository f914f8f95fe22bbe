// Keeps a key that is held down from pressing buttons and closing windows.
#pragma once

#include <QObject>

/// An event filter for windows and buttons. Return, Enter, the blank and Escape press something there, and a key that
/// is held down would press it, and whatever gets the keyboard after it, many times a second: so each of these keys
/// counts once, when it goes down. Text fields take their keys before the window around them sees any, and go on
/// repeating.
class HeldKeys : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    bool eventFilter(QObject *watched, QEvent *event) override;
};

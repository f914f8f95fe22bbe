// The activity indicator of the sending state.
#pragma once

#include <QBasicTimer>
#include <QProgressBar>

/// A ring of turning spokes, shown only while it turns, or a ring that closes as the progress goes on. To assistive
/// technology it is a busy progress bar. It can have the keyboard, so that no key presses anything while there is
/// nothing to do but wait.
class Spinner : public QProgressBar
{
    Q_OBJECT

public:
    explicit Spinner(QWidget *parent = nullptr);

    void start();
    void stop();
    bool isTurning() const { return timer.isActive(); }
    /// Shows how much of what is sent has gone, in bytes. Before the first byte and after the last one there is nothing
    /// to show but that something is going on.
    void setProgress(qint64 sent, qint64 total);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void timerEvent(QTimerEvent *event) override;

private:
    void paintSpokes(QPainter &painter) const;
    void paintProgress(QPainter &painter) const;

    QBasicTimer timer;
    int leadingSpoke = 0;
};

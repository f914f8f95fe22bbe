// The activity indicator of the sending state.
#pragma once

#include <QBasicTimer>
#include <QProgressBar>

/// A ring of turning spokes, shown only while it turns. To assistive technology it is a progress bar without a known
/// end. It can have the keyboard, so that no key presses anything while there is nothing to do but wait.
class Spinner : public QProgressBar
{
    Q_OBJECT

public:
    explicit Spinner(QWidget *parent = nullptr);

    void start();
    void stop();
    bool isTurning() const { return timer.isActive(); }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void timerEvent(QTimerEvent *event) override;

private:
    QBasicTimer timer;
    int leadingSpoke = 0;
};

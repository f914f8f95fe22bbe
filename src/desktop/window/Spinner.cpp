// Draws the spinner from the palette and turns it by a timer.
#include "desktop/window/Spinner.h"

#include <QKeyEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionFocusRect>
#include <QTimerEvent>

#include <chrono>

namespace {

constexpr int kPercent = 100;
constexpr int kSpokes = 12;
/// One turn a second.
constexpr std::chrono::milliseconds kStep = std::chrono::milliseconds(1000) / kSpokes;

} // namespace

Spinner::Spinner(QWidget *parent)
    : QProgressBar(parent)
{
    setRange(0, 0);
    setTextVisible(false);
    setFocusPolicy(Qt::StrongFocus);
    QSizePolicy policy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    // The buttons beside it must not jump when it appears.
    policy.setRetainSizeWhenHidden(true);
    setSizePolicy(policy);
    hide();
}

void Spinner::start()
{
    if (!timer.isActive()) {
        timer.start(static_cast<int>(kStep.count()), this);
    }
    show();
}

void Spinner::stop()
{
    timer.stop();
    leadingSpoke = 0;
    setRange(0, 0);
    hide();
}

void Spinner::setProgress(qint64 sent, qint64 total)
{
    if (sent <= 0 || sent >= total) {
        setRange(0, 0);
        return;
    }
    setRange(0, kPercent);
    setValue(static_cast<int>(static_cast<double>(sent) / static_cast<double>(total) * kPercent));
}

QSize Spinner::sizeHint() const
{
    const int side = fontMetrics().height();
    return {side, side};
}

// The window's default button is never pressed from here.
void Spinner::keyPressEvent(QKeyEvent *event)
{
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    event->setAccepted(isReturn);
}

void Spinner::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    if (hasFocus()) {
        QStyleOptionFocusRect option;
        option.initFrom(this);
        style()->drawPrimitive(QStyle::PE_FrameFocusRect, &option, &painter, this);
    }
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(rect().toRectF().center());
    if (maximum() > minimum()) {
        paintProgress(painter);
    } else {
        paintSpokes(painter);
    }
}

void Spinner::paintSpokes(QPainter &painter) const
{
    const qreal radius = width() / 2.0;
    QColor color = palette().color(QPalette::WindowText);
    for (int spoke = 0; spoke < kSpokes; ++spoke) {
        const int age = (leadingSpoke - spoke + kSpokes) % kSpokes;
        color.setAlphaF(1.0F - static_cast<float>(age) / (kSpokes + 1));
        painter.setPen(QPen(color, radius / 5, Qt::SolidLine, Qt::RoundCap));
        painter.save();
        painter.rotate(360.0 * spoke / kSpokes);
        painter.drawLine(QPointF(0, -radius * 0.5), QPointF(0, -radius * 0.85));
        painter.restore();
    }
}

void Spinner::paintProgress(QPainter &painter) const
{
    // Angles count sixteenths of a degree, and grow against the clock.
    constexpr int kFullCircle = 360 * 16;
    constexpr int kTop = 90 * 16;
    const qreal radius = width() * 0.4;
    const QRectF ring(-radius, -radius, 2 * radius, 2 * radius);
    QColor color = palette().color(QPalette::WindowText);
    painter.setPen(QPen(color, radius / 3, Qt::SolidLine, Qt::FlatCap));
    painter.drawArc(ring, kTop, -kFullCircle * value() / kPercent);
    color.setAlphaF(0.25F);
    painter.setPen(QPen(color, radius / 3, Qt::SolidLine, Qt::FlatCap));
    painter.drawEllipse(ring);
}

void Spinner::timerEvent(QTimerEvent *event)
{
    if (event->timerId() != timer.timerId()) {
        QProgressBar::timerEvent(event);
        return;
    }
    leadingSpoke = (leadingSpoke + 1) % kSpokes;
    update();
}

#include "moc_Spinner.cpp"

// How the disclosure triangle looks, and what assistive technology hears of its state.
#include "desktop/window/DisclosureButton.h"

#include "desktop/window/ExpansionAnnouncement.h"

#include <QEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyleOptionToolButton>

namespace {

/// The side of the triangle, in heights of the font.
constexpr double kSide = 0.7;

QPolygonF triangle(double side, bool down)
{
    // Two thirds of the side high, and in the middle of the square.
    const double near = side / 6;
    const double far = side - near;
    const double middle = side / 2;
    return down ? QPolygonF({{0, near}, {side, near}, {middle, far}})
                : QPolygonF({{near, 0}, {far, middle}, {near, side}});
}

QPixmap trianglePixmap(const QSize &size, double pixelRatio, const QColor &color, bool down)
{
    QPixmap pixmap(size * pixelRatio);
    pixmap.setDevicePixelRatio(pixelRatio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addPolygon(triangle(size.width(), down));
    painter.fillPath(path, color);
    return pixmap;
}

} // namespace

DisclosureButton::DisclosureButton(QWidget *parent)
    : QToolButton(parent)
{
    adaptToFont();
}

void DisclosureButton::initStyleOption(QStyleOptionToolButton *option) const
{
    QToolButton::initStyleOption(option);
    const QColor color = option->palette.color(QPalette::ButtonText);
    // The button itself has no icon, for which its style would leave no space.
    option->toolButtonStyle = Qt::ToolButtonTextBesideIcon;
    option->icon = trianglePixmap(iconSize(), devicePixelRatioF(), color, isChecked());
    option->state &= ~QStyle::State_On;
    if (!isDown()) {
        option->state |= QStyle::State_Raised;
    }
}

void DisclosureButton::changeEvent(QEvent *event)
{
    QToolButton::changeEvent(event);
    if (event->type() == QEvent::FontChange) {
        adaptToFont();
    }
}

// The state that the controller sets is told of here, and the one that a press brings below.
void DisclosureButton::checkStateSet()
{
    QToolButton::checkStateSet();
    announceExpansion(*this);
}

void DisclosureButton::nextCheckState()
{
    QToolButton::nextCheckState();
    announceExpansion(*this);
}

void DisclosureButton::adaptToFont()
{
    const int side = qRound(fontMetrics().height() * kSide);
    setIconSize({side, side});
}

#include "moc_DisclosureButton.cpp"

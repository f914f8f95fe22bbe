// The size of the icon, and where it is painted.
#include "desktop/window/IconView.h"

#include <QIcon>
#include <QPainter>

namespace {

constexpr int kLines = 3;

} // namespace

IconView::IconView(QWidget *parent)
    : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Preferred);
}

QSize IconView::sizeHint() const
{
    const int side = fontMetrics().height() * kLines;
    return {side, side};
}

void IconView::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    window()->windowIcon().paint(&painter, QRect(QPoint(0, 0), sizeHint()));
}

#include "moc_IconView.cpp"

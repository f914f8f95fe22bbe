// How the disclosure triangle shows its state.
#include "desktop/window/DisclosureButton.h"

#include <QStyleOptionToolButton>

void DisclosureButton::initStyleOption(QStyleOptionToolButton *option) const
{
    QToolButton::initStyleOption(option);
    const Qt::ArrowType along = layoutDirection() == Qt::RightToLeft ? Qt::LeftArrow : Qt::RightArrow;
    option->arrowType = isChecked() ? Qt::DownArrow : along;
    option->features |= QStyleOptionToolButton::Arrow;
    option->state &= ~QStyle::State_On;
    if (!isDown()) {
        option->state |= QStyle::State_Raised;
    }
}

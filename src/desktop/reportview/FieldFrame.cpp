// How the frame is painted.
#include "desktop/reportview/FieldFrame.h"

#include <QAbstractScrollArea>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionFrame>

namespace reportview {

void paintFieldFrame(QAbstractScrollArea &area)
{
    QStyleOptionFrame option;
    option.initFrom(&area);
    option.lineWidth = area.frameWidth();
    option.state |= QStyle::State_Sunken;
    QPainter painter(&area);
    area.style()->drawPrimitive(QStyle::PE_FrameLineEdit, &option, &painter, &area);
}

} // namespace reportview

// On macOS: the toolkit's own event.
#include "desktop/window/ExpansionAnnouncement.h"

#include <QAccessible>
#include <QWidget>

void announceExpansion(QWidget &control)
{
    QAccessible::State changed;
    changed.expanded = true;
    changed.collapsed = true;
    QAccessibleStateChangeEvent event(&control, changed);
    QAccessible::updateAccessibility(&event);
}

// On Linux: signals of AT-SPI, which the toolkit's bridge (6.4) sends for other states alone.
#include "desktop/window/ExpansionAnnouncement.h"

#include <QAccessible>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QWidget>

using namespace Qt::StringLiterals;

namespace {

QDBusMessage stateChanged(QAccessibleInterface *accessible, const QString &state, bool value)
{
    const QString path = u"/org/a11y/atspi/accessible/%1"_s.arg(QAccessible::uniqueId(accessible));
    QDBusMessage signal = QDBusMessage::createSignal(path, u"org.a11y.atspi.Event.Object"_s, u"StateChanged"_s);
    signal << state << int{value} << 0 << QVariant::fromValue(QDBusVariant(0)) << QVariantMap();
    return signal;
}

} // namespace

void announceExpansion(QWidget &control)
{
    if (!QAccessible::isActive()) {
        return;
    }
    // The bridge's own connection and its name for the control: a listener knows the program by nothing else. Where a
    // later toolkit has changed either, nobody hears of the change, as nobody would without this.
    const QDBusConnection bridge(u"a11y"_s);
    if (QAccessibleInterface *const accessible = QAccessible::queryAccessibleInterface(&control)) {
        // A screen reader remembers the states, and speaks when it hears of the second one.
        bridge.send(stateChanged(accessible, u"collapsed"_s, accessible->state().collapsed));
        bridge.send(stateChanged(accessible, u"expanded"_s, accessible->state().expanded));
    }
}

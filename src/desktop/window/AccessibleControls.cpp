// The roles, states and actions of the window, the disclosure triangle, the spinner and the box around buttons.
#include "desktop/window/AccessibleControls.h"

#include "desktop/window/AccessibleField.h"
#include "desktop/window/DisclosureButton.h"
#include "desktop/window/Spinner.h"

#include <QAccessibleWidget>
#include <QAction>
#include <QDialogButtonBox>
#include <QLineEdit>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

class AccessibleTriangle : public QAccessibleWidget
{
public:
    explicit AccessibleTriangle(DisclosureButton &button)
        : QAccessibleWidget(&button, QAccessible::Button)
        , triangle(button)
    {
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.expandable = true;
        state.expanded = triangle.isChecked();
        state.collapsed = !triangle.isChecked();
        return state;
    }

    QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Accelerator ? triangle.shortcut().toString() : QAccessibleWidget::text(kind);
    }

    /// The first one is what a press does.
    QStringList actionNames() const override
    {
        QStringList names = QAccessibleWidget::actionNames();
        names.prepend(triangle.isChecked() ? u"Collapse"_s : u"Expand"_s);
        return names;
    }

    void doAction(const QString &name) override
    {
        if (triangle.isEnabled() && name == actionNames().constFirst()) {
            triangle.toggle();
        } else {
            QAccessibleWidget::doAction(name);
        }
    }

private:
    DisclosureButton &triangle;
};

class AccessibleSpinner : public QAccessibleWidget, public QAccessibleValueInterface
{
public:
    explicit AccessibleSpinner(Spinner &indicator)
        : QAccessibleWidget(&indicator, QAccessible::ProgressBar)
        , spinner(indicator)
    {
    }

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ValueInterface ? static_cast<QAccessibleValueInterface *>(this)
                                                   : QAccessibleWidget::interface_cast(type);
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.busy = spinner.isTurning();
        return state;
    }

    /// Within the range, also while nothing is known of the progress: a screen reader (Orca 43) that is given a range
    /// of nothing and a value outside of it fails, and says nothing of the indicator.
    QVariant currentValue() const override { return std::max(spinner.value(), spinner.minimum()); }
    void setCurrentValue(const QVariant & /*value*/) override {}
    QVariant maximumValue() const override { return spinner.maximum(); }
    QVariant minimumValue() const override { return spinner.minimum(); }
    QVariant minimumStepSize() const override { return {}; }

private:
    Spinner &spinner;
};

/// The report window, whose actions anyone can take who finds it.
class AccessibleWindow : public QAccessibleWidget
{
public:
    explicit AccessibleWindow(QWidget &window)
        : QAccessibleWidget(&window, QAccessible::Dialog)
    {
    }

    QStringList actionNames() const override
    {
        QStringList names;
        const QList<QAction *> actions = widget()->actions();
        for (const QAction *action : actions) {
            names += action->text();
        }
        return names + QAccessibleWidget::actionNames();
    }

    void doAction(const QString &name) override
    {
        const QList<QAction *> actions = widget()->actions();
        for (QAction *action : actions) {
            if (action->text() == name) {
                action->trigger();
                return;
            }
        }
        QAccessibleWidget::doAction(name);
    }
};

QAccessibleInterface *accessibleControl(const QString &className, QObject *object)
{
    if (className == "ReportWindow"_L1) {
        return new AccessibleWindow(*static_cast<QWidget *>(object));
    }
    if (auto *triangle = qobject_cast<DisclosureButton *>(object)) {
        return new AccessibleTriangle(*triangle);
    }
    if (auto *spinner = qobject_cast<Spinner *>(object)) {
        return new AccessibleSpinner(*spinner);
    }
    if (auto *field = qobject_cast<QLineEdit *>(object)) {
        return accessibleField(*field);
    }
    // The toolkit calls it a group of controls, which would be announced without a name before the alert's one button.
    if (auto *buttons = qobject_cast<QDialogButtonBox *>(object)) {
        return new QAccessibleWidget(buttons, QAccessible::Client);
    }
    return nullptr;
}

} // namespace

void installAccessibleControls()
{
    QAccessible::installFactory(accessibleControl);
}

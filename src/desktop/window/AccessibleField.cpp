// The accessible interfaces of text over a line edit.
#include "desktop/window/AccessibleField.h"

#include <QAccessibleWidget>
#include <QLineEdit>

#include <algorithm>

namespace {

class AccessibleField : public QAccessibleWidget,
                        public QAccessibleTextInterface,
                        public QAccessibleEditableTextInterface
{
public:
    explicit AccessibleField(QLineEdit &lineEdit)
        : QAccessibleWidget(&lineEdit, QAccessible::EditableText)
        , field(lineEdit)
    {
    }

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::TextInterface) {
            return static_cast<QAccessibleTextInterface *>(this);
        }
        return type == QAccessible::EditableTextInterface ? static_cast<QAccessibleEditableTextInterface *>(this)
                                                          : QAccessibleWidget::interface_cast(type);
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.editable = isEditable();
        state.selectableText = true;
        return state;
    }

    QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Value ? field.text() : QAccessibleWidget::text(kind);
    }

    void setText(QAccessible::Text kind, const QString &text) override
    {
        if (kind == QAccessible::Value) {
            replaceText(0, characterCount(), text);
        }
    }

    // The text and its one run

    int characterCount() const override { return static_cast<int>(field.text().size()); }
    QString text(int start, int end) const override { return field.text().mid(start, end - start); }

    QString attributes(int /*offset*/, int *start, int *end) const override
    {
        *start = 0;
        *end = characterCount();
        return {};
    }

    // The cursor and the selection, of which there is one at most

    int cursorPosition() const override { return field.cursorPosition(); }
    void setCursorPosition(int position) override { field.setCursorPosition(position); }
    void scrollToSubstring(int start, int /*end*/) override { field.setCursorPosition(start); }
    int selectionCount() const override { return field.hasSelectedText() ? 1 : 0; }
    void addSelection(int start, int end) override { field.setSelection(start, end - start); }
    void setSelection(int /*index*/, int start, int end) override { addSelection(start, end); }
    void removeSelection(int /*index*/) override { field.deselect(); }

    void selection(int /*index*/, int *start, int *end) const override
    {
        *start = field.hasSelectedText() ? field.selectionStart() : 0;
        *end = field.hasSelectedText() ? field.selectionEnd() : 0;
    }

    // Places on the screen

    /// The field tells only where its cursor stands; the other characters' places follow from that.
    QRect characterRect(int offset) const override
    {
        const auto advance = [this](int end) { return field.fontMetrics().horizontalAdvance(field.text(), end); };
        const QRect cursor = field.inputMethodQuery(Qt::ImCursorRectangle).toRect();
        const int left = cursor.center().x() - advance(cursorPosition()) + advance(offset);
        return {field.mapToGlobal(QPoint(left, cursor.top())),
                QSize(advance(offset + 1) - advance(offset), cursor.height())};
    }

    int offsetAtPoint(const QPoint &point) const override
    {
        const QPoint place = field.mapFromGlobal(point);
        return field.rect().contains(place) ? field.cursorPositionAt(place) : -1;
    }

    // Changes

    void deleteText(int start, int end) override { replaceText(start, end, {}); }
    void insertText(int offset, const QString &text) override { replaceText(offset, offset, text); }

    void replaceText(int start, int end, const QString &text) override
    {
        if (isEditable()) {
            const auto [from, to] = std::minmax({within(start), within(end)});
            field.setText(field.text().replace(from, to - from, text));
        }
    }

private:
    /// A place that assistive technology has named, as one that there is.
    int within(int offset) const { return std::clamp(offset, 0, characterCount()); }
    bool isEditable() const { return field.isEnabled() && !field.isReadOnly(); }

    QLineEdit &field;
};

} // namespace

QAccessibleInterface *accessibleField(QLineEdit &field)
{
    return new AccessibleField(field);
}

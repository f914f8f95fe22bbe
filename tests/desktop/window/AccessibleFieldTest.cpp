// The accessible interfaces of a field, call by call against the field.
#include "desktop/window/AccessibleControls.h"
#include "support/WindowSupport.h"

#include <QAccessible>
#include <QLineEdit>

using namespace Qt::StringLiterals;

namespace {

class AccessibleFieldTest : public testing::Test
{
protected:
    AccessibleFieldTest()
    {
        installAccessibleControls();
        field.setAccessibleName(u"Address"_s);
        field.setText(u"jo@example.org"_s);
        accessible = QAccessible::queryAccessibleInterface(&field);
        text = accessible->textInterface();
        editable = accessible->editableTextInterface();
    }

    QLineEdit field;
    QAccessibleInterface *accessible = nullptr;
    QAccessibleTextInterface *text = nullptr;
    QAccessibleEditableTextInterface *editable = nullptr;
};

} // namespace

TEST_F(AccessibleFieldTest, IsATextThatCanBeEditedAndSelected)
{
    EXPECT_EQ(accessible->role(), QAccessible::EditableText);
    EXPECT_TRUE(accessible->state().editable);
    EXPECT_TRUE(accessible->state().selectableText);
    EXPECT_TRUE(accessible->state().focusable);
    EXPECT_EQ(accessible->text(QAccessible::Name), u"Address"_s);
    EXPECT_EQ(accessible->text(QAccessible::Value), u"jo@example.org"_s);
    ASSERT_TRUE(accessible->actionInterface());
    EXPECT_EQ(accessible->actionInterface()->actionNames(), QStringList{QAccessibleActionInterface::setFocusAction()});
}

TEST_F(AccessibleFieldTest, ItsTextIsOneRunOfAttributes)
{
    for (const int offset : {0, 7, 13}) {
        int start = -1;
        int end = -1;
        EXPECT_EQ(text->attributes(offset, &start, &end), QString());
        EXPECT_EQ(start, 0);
        EXPECT_EQ(end, 14);
    }
}

TEST_F(AccessibleFieldTest, ItsTextIsReadByTheCharacterTheWordAndTheLine)
{
    EXPECT_EQ(text->characterCount(), 14);
    EXPECT_EQ(text->text(3, 10), u"example"_s);
    int start = -1;
    int end = -1;
    EXPECT_EQ(text->textAtOffset(2, QAccessible::CharBoundary, &start, &end), u"@"_s);
    EXPECT_EQ(text->textAtOffset(12, QAccessible::WordBoundary, &start, &end), u"org"_s);
    EXPECT_EQ(start, 11);
    EXPECT_EQ(end, 14);
    EXPECT_EQ(text->textAtOffset(5, QAccessible::LineBoundary, &start, &end), field.text());
}

TEST_F(AccessibleFieldTest, CursorIsTheFields)
{
    field.setCursorPosition(4);
    EXPECT_EQ(text->cursorPosition(), 4);
    text->setCursorPosition(9);
    EXPECT_EQ(field.cursorPosition(), 9);
    text->scrollToSubstring(2, 5);
    EXPECT_EQ(field.cursorPosition(), 2);
}

TEST_F(AccessibleFieldTest, SelectionIsTheFields)
{
    int start = -1;
    int end = -1;
    EXPECT_EQ(text->selectionCount(), 0);
    text->selection(0, &start, &end);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, 0);
    text->addSelection(3, 10);
    EXPECT_EQ(field.selectedText(), u"example"_s);
    EXPECT_EQ(text->selectionCount(), 1);
    text->selection(0, &start, &end);
    EXPECT_EQ(start, 3);
    EXPECT_EQ(end, 10);
    text->setSelection(0, 0, 2);
    EXPECT_EQ(field.selectedText(), u"jo"_s);
    text->removeSelection(0);
    EXPECT_FALSE(field.hasSelectedText());
}

TEST_F(AccessibleFieldTest, CharacterIsFoundAtItsPlace)
{
    field.resize(400, field.sizeHint().height());
    field.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&field));
    for (const int offset : {0, 2, 13}) {
        const QRect place = text->characterRect(offset);
        EXPECT_EQ(place.width(), field.fontMetrics().horizontalAdvance(field.text().at(offset)));
        EXPECT_TRUE(QRect(field.mapToGlobal(QPoint()), field.size()).contains(place));
        EXPECT_EQ(text->offsetAtPoint(QPoint(place.left() + 1, place.center().y())), offset);
    }
    EXPECT_EQ(text->offsetAtPoint(field.mapToGlobal(QPoint(0, -1))), -1);
}

TEST_F(AccessibleFieldTest, CharacterIsFoundAtItsPlaceInATextThatHasScrolled)
{
    field.resize(60, field.sizeHint().height());
    field.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&field));
    field.end(false);
    const QRect place = text->characterRect(13);
    EXPECT_EQ(text->offsetAtPoint(QPoint(place.left() + 1, place.center().y())), 13);
    EXPECT_LT(text->characterRect(0).right(), field.mapToGlobal(QPoint()).x());
}

TEST_F(AccessibleFieldTest, TextIsReplacedInPartAndAsAWhole)
{
    editable->insertText(2, u"hn"_s);
    EXPECT_EQ(field.text(), u"john@example.org"_s);
    editable->replaceText(5, 12, u"sample"_s);
    EXPECT_EQ(field.text(), u"john@sample.org"_s);
    editable->deleteText(0, 5);
    EXPECT_EQ(field.text(), u"sample.org"_s);
    accessible->setText(QAccessible::Value, u"mia@example.org"_s);
    EXPECT_EQ(field.text(), u"mia@example.org"_s);
}

TEST_F(AccessibleFieldTest, TextIsReplacedBetweenTwoPlacesInAnyOrderAndWithinWhatThereIs)
{
    editable->deleteText(3, 0);
    EXPECT_EQ(field.text(), u"example.org"_s);
    editable->replaceText(1000, 7, u".net"_s);
    EXPECT_EQ(field.text(), u"example.net"_s);
    editable->insertText(1000, u"!"_s);
    EXPECT_EQ(field.text(), u"example.net!"_s);
    editable->deleteText(0, -2'000'000);
    EXPECT_EQ(field.text(), u"example.net!"_s);
    editable->deleteText(-5, 8);
    EXPECT_EQ(field.text(), u"net!"_s);
}

TEST_F(AccessibleFieldTest, TextIsReadAndNotEditedWhileItIsLocked)
{
    const auto assertKept = [this] {
        EXPECT_FALSE(accessible->state().editable);
        editable->insertText(2, u"hn"_s);
        editable->replaceText(5, 12, u"sample"_s);
        editable->deleteText(0, 5);
        accessible->setText(QAccessible::Value, u"mia@example.org"_s);
        EXPECT_EQ(accessible->text(QAccessible::Value), u"jo@example.org"_s);
    };
    field.setEnabled(false);
    assertKept();
    field.setEnabled(true);
    field.setReadOnly(true);
    assertKept();
}

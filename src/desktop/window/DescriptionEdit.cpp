// Reading, locking and sizing of the description.
#include "desktop/window/DescriptionEdit.h"

#include "desktop/reportview/FieldFrame.h"
#include "desktop/window/DroppedFiles.h"

#include <QKeyEvent>

#include <cmath>

namespace {

constexpr int kPreferredLines = 6;
constexpr int kMinLines = 3;
constexpr int kMinColumns = 20;
/// UTF-16 code units of the longest paragraph that wraps. The time that wrapping takes grows with the square of the
/// length: some 15 milliseconds for this one, and half a minute for a million units.
constexpr int kLongestWrapped = 20'000;

bool isVeryLong(const QTextBlock &paragraph)
{
    constexpr int kSeparator = 1; // counts for the toolkit as a part of the paragraph
    return paragraph.isValid() && paragraph.length() - kSeparator > kLongestWrapped;
}

} // namespace

DescriptionEdit::DescriptionEdit(QWidget *parent)
    : QPlainTextEdit(parent)
{
    // contentsChange is emitted before the change is laid out.
    connect(document(), &QTextDocument::contentsChange, this,
            [this](int position, int /*removedUnits*/, int addedUnits) { wrapUnlessVeryLong(position, addedUnits); });
    connect(this, &QPlainTextEdit::textChanged, this, &DescriptionEdit::keepLockedText);
}

void DescriptionEdit::setEditable(bool editable)
{
    lockedText = editable ? QString() : typedText();
    setTextInteractionFlags(editable ? Qt::TextEditorInteraction
                                     : Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    // By role and not by colour, so that it follows the palette.
    viewport()->setBackgroundRole(editable ? QPalette::Base : QPalette::Window);
}

// Read paragraph by paragraph: the document's own conversion to plain text turns no-break spaces into spaces.
QString DescriptionEdit::typedText() const
{
    QStringList paragraphs;
    for (QTextBlock block = document()->begin(); block.isValid(); block = block.next()) {
        paragraphs += block.text();
    }
    return paragraphs.join(u'\n').replace(QChar::LineSeparator, u'\n');
}

QSize DescriptionEdit::sizeHint() const
{
    return sizeForLines(kPreferredLines);
}

QSize DescriptionEdit::minimumSizeHint() const
{
    return sizeForLines(kMinLines);
}

bool DescriptionEdit::event(QEvent *event)
{
    if (event->type() == QEvent::Paint) {
        reportview::paintFieldFrame(*this);
        return true;
    }
    return QPlainTextEdit::event(event);
}

void DescriptionEdit::keyPressEvent(QKeyEvent *event)
{
    QPlainTextEdit::keyPressEvent(event);
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        event->accept();
    }
}

bool DescriptionEdit::canInsertFromMimeData(const QMimeData *source) const
{
    return droppedFiles(*source).isEmpty() && QPlainTextEdit::canInsertFromMimeData(source);
}

/// The toolkit's interface for assistive technology (6.4) changes a text that is only to be read, too.
void DescriptionEdit::keepLockedText()
{
    if (isReadOnly() && typedText() != lockedText) {
        setPlainText(lockedText);
    }
}

void DescriptionEdit::wrapUnlessVeryLong(int position, int addedUnits)
{
    const bool didWrap = !veryLong.isValid();
    if (didWrap) {
        veryLong = veryLongParagraph(position, position + addedUnits);
    } else if (!isVeryLong(veryLong)) {
        veryLong = veryLongParagraph(0, document()->characterCount());
    }
    setLineWrapMode(veryLong.isValid() ? NoWrap : WidgetWidth);
}

QTextBlock DescriptionEdit::veryLongParagraph(int from, int to) const
{
    QTextBlock paragraph = document()->findBlock(from);
    while (paragraph.isValid() && paragraph.position() <= to && !isVeryLong(paragraph)) {
        paragraph = paragraph.next();
    }
    return isVeryLong(paragraph) && paragraph.position() <= to ? paragraph : QTextBlock();
}

QSize DescriptionEdit::sizeForLines(int lines) const
{
    const int margins = 2 * static_cast<int>(std::ceil(document()->documentMargin()) + frameWidth());
    return {fontMetrics().averageCharWidth() * kMinColumns, fontMetrics().lineSpacing() * lines + margins};
}

#include "moc_DescriptionEdit.cpp"

// Reading, locking and sizing of the description.
#include "desktop/DescriptionEdit.h"

#include "desktop/DroppedFiles.h"

#include <QKeyEvent>
#include <QTextBlock>

#include <cmath>

namespace {

constexpr int kUsualLines = 6;
constexpr int kLeastLines = 3;
constexpr int kLeastCharacters = 20;

} // namespace

void DescriptionEdit::setEditable(bool editable)
{
    setTextInteractionFlags(editable ? Qt::TextEditorInteraction
                                     : Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    // By role and not by colour, so that it follows the palette.
    viewport()->setBackgroundRole(editable ? QPalette::Base : QPalette::Window);
}

// Read paragraph by paragraph: the document's own conversion to plain text turns no-break spaces into blanks.
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
    return sizeForLines(kUsualLines);
}

QSize DescriptionEdit::minimumSizeHint() const
{
    return sizeForLines(kLeastLines);
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

QSize DescriptionEdit::sizeForLines(int lines) const
{
    const int margins = 2 * static_cast<int>(std::ceil(document()->documentMargin()) + frameWidth());
    return {fontMetrics().averageCharWidth() * kLeastCharacters, fontMetrics().lineSpacing() * lines + margins};
}

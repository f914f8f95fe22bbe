// The field for what the user was doing.
#pragma once

#include <QPlainTextEdit>
#include <QTextBlock>

/// A text field of a few lines that can be locked. Files dropped onto it are left to the window, and Return is its own,
/// locked or not: the window's default button is never pressed from here. Its lines wrap unless one is very long.
class DescriptionEdit : public QPlainTextEdit
{
    Q_OBJECT

public:
    explicit DescriptionEdit(QWidget *parent = nullptr);

    /// A locked description can be read and copied, and looks like the window around it.
    void setEditable(bool editable);
    /// The text as it was typed, lines ended by line feeds; no-break spaces stay what they are.
    QString typedText() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool canInsertFromMimeData(const QMimeData *source) const override;

private:
    void keepLockedText();
    void wrapUnlessVeryLong(int position, int addedUnits);
    QTextBlock veryLongParagraph(int from, int to) const;
    QSize sizeForLines(int lines) const;

    QString lockedText;  ///< What the user typed, while it is locked.
    QTextBlock veryLong; ///< One that keeps the text from wrapping; not valid while none does.
};

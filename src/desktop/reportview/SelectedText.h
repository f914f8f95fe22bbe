// A selection on the clipboard: made into data when somebody pastes it.
#pragma once

#include "desktop/reportview/TextRows.h"

#include <QMimeData>
#include <QString>

namespace reportview {

/// Offers a part of a text as plain text. It shares the text with whoever else holds it, and copies its part only for
/// the one who asks: copying a text of any size takes no time and no memory, pasting it takes both.
///
/// Each code unit is given as it is, NUL and halves of surrogate pairs included, to a paste within the program. To
/// another program the window system hands UTF-8, in which the toolkit writes a half as a question mark; a NUL goes
/// over, and it is for that program to make something of it.
class SelectedText : public QMimeData
{
    Q_OBJECT

public:
    SelectedText(QString wholeText, Range selectedPart);

    QStringList formats() const override;
    bool hasFormat(const QString &mimeType) const override;

protected:
    QVariant retrieveData(const QString &mimeType, QMetaType type) const override;

private:
    QString text;
    Range part;
};

} // namespace reportview

// Which characters are shown as marks, because they would be invisible or would move others, and what the marks say.
#pragma once

#include <QList>
#include <QString>

namespace reportview {

/// A character that is shown as a mark: a box with its name in it, and an arrow for a tab.
struct Mark {
    qsizetype offset = 0; ///< Of its first code unit.
    qsizetype units = 1;  ///< 2 for a surrogate pair.
    QString name;         ///< Its abbreviation in the Unicode charts where it has one, else its number in hex.

    bool operator==(const Mark &) const = default;
};

inline constexpr char16_t kTab = u'\t';

/// The marks of a text in their order: control characters, line ends other than LF, halves of surrogate pairs, and
/// what Unicode calls format characters, default ignorable or noncharacters. One variation selector and one joiner
/// behind a letter or a picture of a script that is written with them are no marks: they are what gives it its shape.
QList<Mark> marksOf(QStringView text);

} // namespace reportview

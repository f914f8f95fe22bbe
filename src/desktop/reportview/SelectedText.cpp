// What is handed to whoever pastes.
#include "desktop/reportview/SelectedText.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace reportview {

SelectedText::SelectedText(QString wholeText, Range selectedPart)
    : text(std::move(wholeText))
    , part(selectedPart)
{
}

QStringList SelectedText::formats() const
{
    return {u"text/plain"_s};
}

bool SelectedText::hasFormat(const QString &mimeType) const
{
    return mimeType == "text/plain"_L1;
}

QVariant SelectedText::retrieveData(const QString &mimeType, QMetaType /*type*/) const
{
    return hasFormat(mimeType) ? QVariant(text.mid(part.begin, part.size())) : QVariant();
}

} // namespace reportview

#include "moc_SelectedText.cpp"

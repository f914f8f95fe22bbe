// How a search is divided into blocks, and blocks into slices.
#include "desktop/reportview/TextSearch.h"

#include <QElapsedTimer>

#include <algorithm>

namespace reportview {

namespace {

/// Code units that are searched before the time is looked at.
constexpr qsizetype kSearchBlockUnits = qsizetype(64) * 1024;
/// Milliseconds that one slice takes: less than one frame on a screen.
constexpr qint64 kSliceTime = 10;

} // namespace

TextSearch::TextSearch(QObject *parent)
    : QObject(parent)
{
    connect(&slices, &QTimer::timeout, this, &TextSearch::searchSlice);
}

void TextSearch::start(const QString &searchedText, const QString &soughtWords, qsizetype offset,
                       SearchDirection wayToGo)
{
    text = searchedText;
    words = soughtWords;
    direction = wayToGo;
    origin = std::clamp<qsizetype>(offset, 0, text.size());
    position = origin;
    wrapped = false;
    slices.start(0);
    searchSlice();
}

void TextSearch::stop()
{
    slices.stop();
    // The text may be large, and its owner may want to be rid of it.
    text.clear();
}

void TextSearch::searchSlice()
{
    QElapsedTimer elapsed;
    elapsed.start();
    while (!elapsed.hasExpired(kSliceTime)) {
        if (isAtGoal()) {
            if (wrapped) {
                stop();
                Q_EMIT notFound();
                return;
            }
            wrapped = true;
            position = direction == SearchDirection::Forward ? 0 : text.size();
            continue;
        }
        if (const auto place = searchedNext()) {
            stop();
            Q_EMIT found(*place, wrapped);
            return;
        }
    }
}

bool TextSearch::isAtGoal() const
{
    if (direction == SearchDirection::Forward) {
        return position >= (wrapped ? origin : text.size());
    }
    return position <= (wrapped ? origin : 0);
}

// Blocks overlap by the words' length less one: what stands across their border is found in the second.
std::optional<Range> TextSearch::searchedNext()
{
    const qsizetype overlap = words.size() - 1;
    const QStringView all(text);
    if (direction == SearchDirection::Forward) {
        const qsizetype begin = position;
        position = std::min(begin + kSearchBlockUnits, text.size());
        const QStringView block = all.mid(begin, position - begin + overlap);
        const qsizetype index = block.indexOf(words, 0, Qt::CaseInsensitive);
        return index < 0 ? std::nullopt : std::optional(Range{begin + index, begin + index + words.size()});
    }
    const qsizetype end = position;
    position = std::max<qsizetype>(0, end - kSearchBlockUnits);
    const qsizetype begin = std::max<qsizetype>(0, position - overlap);
    const qsizetype index = all.mid(begin, end - begin).lastIndexOf(words, -1, Qt::CaseInsensitive);
    return index < 0 ? std::nullopt : std::optional(Range{begin + index, begin + index + words.size()});
}

} // namespace reportview

#include "moc_TextSearch.cpp"

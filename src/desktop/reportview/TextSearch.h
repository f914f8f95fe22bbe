// Finding words in a text of any size without keeping the event loop from its other work.
#pragma once

#include "desktop/reportview/TextRows.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <optional>

namespace reportview {

enum class SearchDirection { Forward, Backward };

/// Searches a text for words in slices from the event loop, in either direction, without regard to case, and goes on at
/// the other end of the text once it has come to this one.
class TextSearch : public QObject
{
    Q_OBJECT

public:
    explicit TextSearch(QObject *parent = nullptr);

    /// Begins a search, and ends the one before without a word. Forward finds the first place at or behind the offset,
    /// backward the last place that ends at or before it, before all others. The first slice is searched at once.
    void start(const QString &searchedText, const QString &soughtWords, qsizetype offset, SearchDirection wayToGo);
    void stop();
    bool isRunning() const { return slices.isActive(); }

Q_SIGNALS:
    /// The words stand there. Wrapped tells that the search had to go on at the other end of the text.
    void found(reportview::Range place, bool wrapped);
    void notFound();

private:
    void searchSlice();
    bool isAtGoal() const;
    std::optional<Range> searchedNext();

    QString text;
    QString words;
    SearchDirection direction = SearchDirection::Forward;
    qsizetype origin = 0;
    qsizetype position = 0; ///< Where the next block begins; where it ends when searching backward.
    bool wrapped = false;
    QTimer slices;
};

} // namespace reportview

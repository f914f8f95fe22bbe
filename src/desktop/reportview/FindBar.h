// The bar below a text for finding words in it.
#pragma once

#include "desktop/reportview/TextSearch.h"

#include <QWidget>

#include <optional>

class QLabel;
class QLineEdit;

namespace reportview {

class TextDisplay;

/// Finds words in a display's text, selects them there, and says so where there are none, to the eye and to assistive
/// technology. It hides itself on Escape.
class FindBar : public QWidget
{
    Q_OBJECT

public:
    FindBar(TextDisplay &searchedDisplay, QWidget *parent);

    /// Shows the bar with the keyboard in its field, and with the words that are selected in the display, if they are
    /// part of one line.
    void open();
    /// Hides the bar and gives the keyboard back to the display.
    void dismiss();
    void findNext() { find(SearchDirection::Forward); }
    void findPrevious() { find(SearchDirection::Backward); }
    /// Ends a search in a text that is no longer shown.
    void stop();

Q_SIGNALS:
    void dismissed();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void addWidgets();
    void find(SearchDirection direction);
    void searchFrom(qsizetype offset, SearchDirection direction);
    void showFound(Range words, bool wrapped);
    Range place() const;
    void say(const QString &outcome);

    TextDisplay &display;
    TextSearch search;
    QLineEdit *field; ///< A child.
    QLabel *status;   ///< A child.
    /// What was found last, and the whole characters that were selected for it.
    struct Found {
        Range words;
        Range selected;
    };
    std::optional<Found> found;
};

} // namespace reportview

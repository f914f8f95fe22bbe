// The report text: kept exactly as it was set, and displayed when somebody looks.
#pragma once

#include "desktop/reportview/TextDisplay.h"

#include <QDeadlineTimer>
#include <QList>
#include <QString>
#include <QWidget>

class QLabel;
class QMenu;

namespace reportview {
class FindBar;
}

/// Keeps the report text and displays it below its label, read-only, in the system's monospaced font and without
/// wrapping; Ctrl+F opens a bar for finding words in it, Ctrl+Page Down and Up go from one of its sections to another.
///
/// Actions with a text that are added to the view appear in its context menu.
///
/// The display is made when the view is first shown, which most users never ask for. It shares the text.
class ReportTextView : public QWidget
{
    Q_OBJECT

public:
    explicit ReportTextView(QWidget *parent = nullptr);

    /// The text exactly as it was set.
    QString string() const { return text; }
    /// Replaces the text and forgets its sections.
    void setString(const QString &newText);
    /// Names parts of the text, such as appended logs, in their order: where they begin is known to whoever put the
    /// text together.
    void setSections(const QList<reportview::Section> &named);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void showEvent(QShowEvent *event) override;
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    QSize sizeBelowLabel(int columns, int lines) const;
    void makeDisplay();
    void addKeys();
    void addActionsTo(QMenu &menu) const;
    void openFindBar();

    QString text;
    QList<reportview::Section> sections;
    QLabel *label; ///< A child, beside the display: assistive technology looks for labels there.
    reportview::TextDisplay *display = nullptr; ///< A child; none before the view is first shown.
    reportview::FindBar *findBar = nullptr;     ///< A child; none before it is first opened.
    QDeadlineTimer dismissedLately;             ///< Expires when a further Escape is no longer meant for the find bar.
};

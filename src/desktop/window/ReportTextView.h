// The report text: kept exactly as it was set, and displayed when somebody looks.
#pragma once

#include <QLabel>
#include <QPlainTextEdit>
#include <QString>
#include <QTimer>

/// Keeps the report text and displays it below its label, read-only, in the system's monospaced font and without
/// wrapping.
///
/// A text document changes what it is given: CR, CR LF and U+2029 become line feeds, for one. So the text that is sent
/// is the kept one and never the document's. The document is made when the view is first shown, which most users never
/// ask for, and is filled in slices from the event loop, so that a text of any size leaves the window usable.
class ReportTextView : public QWidget
{
    Q_OBJECT

public:
    explicit ReportTextView(QWidget *parent = nullptr);

    /// The text exactly as it was set.
    QString string() const { return text; }
    void setString(const QString &newText);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    /// The whole text is displayed.
    void displayed();

protected:
    void showEvent(QShowEvent *event) override;

private:
    QSize sizeBelowLabel(int columns, int lines) const;
    void makeDisplay();
    void startDisplaying();
    void displayNextSlice();

    QString text;
    QLabel *label;                     ///< A child, beside the display: assistive technology looks for labels there.
    QPlainTextEdit *display = nullptr; ///< A child; none before the view is first shown.
    QTimer nextSlice;
    qsizetype displayedUnits = 0; ///< UTF-16 code units of the text that the display holds.
    int lineUnits = 0;            ///< UTF-16 code units in the display's last line.
    bool displayIsCurrent = false;
};

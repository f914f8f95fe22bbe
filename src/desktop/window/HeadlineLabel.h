// The headline of the report window: bold plain text that wraps and stays within a few lines.
#pragma once

#include <QLabel>
#include <QTextLayout>

#include <memory>

/// A label for text that may come from anywhere. It breaks words that are wider than the label, puts an ellipsis in the
/// middle of a text that is too long and offers the whole as a tool tip, so no text widens the window or fills it.
class HeadlineLabel : public QLabel
{
    Q_OBJECT

public:
    explicit HeadlineLabel(QWidget *parent = nullptr);

    /// Shows the text on its own lines as far as it has room. Control characters and line ends are shown as blanks,
    /// and so are characters that would reorder the sentence around them.
    void setHeadline(const QString &text);

    /// What of the text is in view.
    QString shownText() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    std::unique_ptr<QTextLayout> layOut(const QString &text, int width, int lineLimit) const;
    bool fits(const QString &text, int lineLimit) const;
    void fit();

    std::unique_ptr<QTextLayout> lines;
};

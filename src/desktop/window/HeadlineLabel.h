// The headline of the report window: bold plain text that wraps and stays within a few lines.
#pragma once

#include <QLabel>

/// A label for text that may come from anywhere: no text widens the window or fills it.
class HeadlineLabel : public QLabel
{
    Q_OBJECT

public:
    explicit HeadlineLabel(QWidget *parent = nullptr);

    /// Shows the text as plain text, as displayText() gives it. A very long one is shown with an ellipsis and has a
    /// tool tip; its accessible name is whole.
    void setHeadline(const QString &text);
};

// The window's icon, beside the headline.
#pragma once

#include <QWidget>

/// Paints the icon of its window in a size that follows the font. It is no image to assistive technology, which would
/// have nothing to say of it.
class IconView : public QWidget
{
    Q_OBJECT

public:
    explicit IconView(QWidget *parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;
};

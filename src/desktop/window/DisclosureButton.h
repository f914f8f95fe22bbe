// The disclosure triangle.
#pragma once

#include <QToolButton>

/// A checkable button whose triangle points down while it is on and to the right while it is off. The triangle has the
/// size of the font, and the button is never drawn sunken.
class DisclosureButton : public QToolButton
{
    Q_OBJECT

public:
    explicit DisclosureButton(QWidget *parent = nullptr);

protected:
    void initStyleOption(QStyleOptionToolButton *option) const override;
    void changeEvent(QEvent *event) override;
    void checkStateSet() override;
    void nextCheckState() override;

private:
    void adaptToFont();
};

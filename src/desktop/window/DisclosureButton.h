// The disclosure triangle.
#pragma once

#include <QToolButton>

/// A checkable button whose arrow points down while it is on and along the text while it is off; it never looks pressed
/// in.
class DisclosureButton : public QToolButton
{
    Q_OBJECT

public:
    using QToolButton::QToolButton;

protected:
    void initStyleOption(QStyleOptionToolButton *option) const override;
};

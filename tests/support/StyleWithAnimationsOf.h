// A style with animations of a test's choice.
#pragma once

#include <QProxyStyle>

/// A style whose animations take this many milliseconds; with 0 it has none.
class StyleWithAnimationsOf : public QProxyStyle
{
public:
    explicit StyleWithAnimationsOf(int milliseconds)
        : duration(milliseconds)
    {
    }

    int styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                  QStyleHintReturn *data) const override
    {
        return hint == SH_Widget_Animation_Duration ? duration : QProxyStyle::styleHint(hint, option, widget, data);
    }

private:
    int duration;
};

// How the disclosure triangle asks its style to be drawn.
#include "desktop/window/DisclosureButton.h"

#include <QStyleOptionToolButton>

#include <gtest/gtest.h>

namespace {

class ShownButton : public DisclosureButton
{
public:
    QStyle::State state() const
    {
        QStyleOptionToolButton option;
        initStyleOption(&option);
        return option.state;
    }
};

} // namespace

TEST(DisclosureButton, IsRaisedUnlessItIsPressedWhetherItIsOnOrOff)
{
    ShownButton button;
    button.setCheckable(true);
    for (const bool isOn : {false, true}) {
        button.setChecked(isOn);
        for (const bool isPressed : {false, true}) {
            button.setDown(isPressed);

            EXPECT_EQ(button.state().testFlag(QStyle::State_Raised), !isPressed);
            EXPECT_FALSE(button.state().testFlag(QStyle::State_On));
        }
    }
}

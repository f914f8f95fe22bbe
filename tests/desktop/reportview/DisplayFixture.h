// A view of a usual size with the keyboard, for the tests of what it does and of what it paints.
#pragma once

#include "desktop/reportview/TextDisplay.h"

#include <QFontDatabase>
#include <QTest>

#include <gtest/gtest.h>

class DisplayFixture : public testing::Test
{
protected:
    DisplayFixture()
    {
        display.setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        display.resize(640, 300);
    }

    /// Shows the text and waits until the view has the keyboard.
    void show(const QString &text)
    {
        display.setText(text);
        display.show();
        display.activateWindow();
        display.setFocus();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&display));
    }

    reportview::TextDisplay display;
};

// What the spinner looks like, read from its pixels.
#include "desktop/window/Spinner.h"

#include "support/WindowSupport.h"

#include <QApplication>
#include <QImage>
#include <QPalette>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kSpokes = 12;
constexpr int kSide = 81;

class SpinnerTest : public testing::Test
{
protected:
    SpinnerTest()
    {
        QPalette colors;
        colors.setColor(QPalette::Window, Qt::white);
        colors.setColor(QPalette::WindowText, Qt::black);
        spinner.setPalette(colors);
        spinner.setAutoFillBackground(true);
        spinner.resize(kSide, kSide);
    }

    QImage painted() { return spinner.grab().toImage(); }

    /// How dark the picture is at an angle clockwise from the top, at a part of the radius; 255 is black.
    static int darkness(const QImage &image, double degrees, double part)
    {
        const double angle = degrees * std::numbers::pi / 180;
        const double middle = kSide / 2.0;
        const auto x = static_cast<int>(middle + std::sin(angle) * middle * part);
        const auto y = static_cast<int>(middle - std::cos(angle) * middle * part);
        return 255 - image.pixelColor(x, y).red();
    }

    /// Pixels that a line of one colour is thick from the middle outwards.
    static double thickness(const QImage &image, double degrees)
    {
        constexpr double kStep = 0.002;
        const int full = darkness(image, degrees, 0.8);
        int samples = 0;
        for (double part = 0; part < 1; part += kStep) {
            samples += 2 * darkness(image, degrees, part) > full ? 1 : 0;
        }
        return samples * kStep * kSide / 2;
    }

    /// The spokes from the darkest to the faintest, numbered clockwise from the top.
    static std::vector<int> spokesByDarkness(const QImage &image)
    {
        std::vector<int> spokes;
        for (int spoke = 0; spoke < kSpokes; ++spoke) {
            spokes.push_back(spoke);
        }
        std::sort(spokes.begin(), spokes.end(), [&image](int one, int other) {
            return darkness(image, one * 30.0, 0.67) > darkness(image, other * 30.0, 0.67);
        });
        return spokes;
    }

    /// Against the clock, from the leading one on.
    static std::vector<int> spokesBehind(int leading)
    {
        std::vector<int> spokes;
        for (int age = 0; age < kSpokes; ++age) {
            spokes.push_back((leading - age + kSpokes) % kSpokes);
        }
        return spokes;
    }

    /// Whether the spoke comes to lead before any of the others but the first.
    bool comesToLead(int spoke)
    {
        int leading = 0;
        eventually([&] {
            leading = leading != 0 ? leading : spokesByDarkness(painted()).front();
            return leading != 0;
        });
        return leading == spoke;
    }

    Spinner spinner;
};

} // namespace

TEST_F(SpinnerTest, SpokesFadeAgainstTheClockBehindTheLeadingOne)
{
    spinner.start();
    const QImage image = painted();
    EXPECT_EQ(spokesByDarkness(image), spokesBehind(0));
    // By equal steps, from the leading one, which is not faded, to the last one, which can still be seen.
    for (int age = 0; age < kSpokes; ++age) {
        EXPECT_NEAR(darkness(image, -30.0 * age, 0.67), 255.0 * (kSpokes + 1 - age) / (kSpokes + 1), 2) << age;
    }
    for (int spoke = 0; spoke < kSpokes; ++spoke) {
        EXPECT_EQ(darkness(image, spoke * 30.0, 0.3), 0) << "nothing in the middle";
        EXPECT_EQ(darkness(image, spoke * 30.0, 0.98), 0) << "nor at the rim";
        EXPECT_EQ(darkness(image, spoke * 30.0 + 15, 0.75), 0) << "nor between two";
    }
}

TEST_F(SpinnerTest, EachSpokeIsPaintedOnceWhicheverLeads)
{
    spinner.start();
    std::vector<int> spokes;
    ASSERT_TRUE(eventually([&] {
        spokes = spokesByDarkness(painted());
        return spokes.front() >= kSpokes / 2;
    }));
    EXPECT_EQ(spokes, spokesBehind(spokes.front()));
}

TEST_F(SpinnerTest, SpokeIsAFifthOfTheRadiusThick)
{
    spinner.start();
    const QImage image = painted();
    double thick = 0;
    for (int x = kSide / 2 - 10; x <= kSide / 2 + 10; ++x) {
        thick += (255 - image.pixelColor(x, kSide / 6).red()) / 255.0;
    }
    EXPECT_NEAR(thick, kSide / 2.0 / 5, 0.5);
}

TEST_F(SpinnerTest, RingIsAThirdOfItsRadiusThickAndEndsWhereTheProgressIs)
{
    spinner.start();
    spinner.setProgress(3, 4);
    const QImage image = painted();
    for (const double degrees : {45.0, 225.0, 315.0}) {
        EXPECT_NEAR(thickness(image, degrees), kSide * 0.4 / 3, 1.5) << degrees;
    }
    for (const double degrees : {5.0, 265.0}) {
        EXPECT_GT(darkness(image, degrees, 0.8), 200) << degrees;
    }
    for (const double degrees : {275.0, 355.0}) {
        EXPECT_LT(darkness(image, degrees, 0.8), 90) << degrees;
    }
}

TEST_F(SpinnerTest, TakesReturnAndEnterAndLeavesOtherKeys)
{
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Escape, Qt::Key_A}) {
        QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
        QCoreApplication::sendEvent(&spinner, &press);
        EXPECT_EQ(press.isAccepted(), key == Qt::Key_Return || key == Qt::Key_Enter) << key;
    }
}

TEST_F(SpinnerTest, SpokesTurnWithTheClockUntilItStops)
{
    spinner.start();
    ASSERT_EQ(spokesByDarkness(painted()).front(), 0);
    EXPECT_TRUE(comesToLead(1));
    spinner.stop();
    EXPECT_TRUE(spinner.isHidden());
    spinner.start();
    EXPECT_EQ(spokesByDarkness(painted()).front(), 0) << "it begins anew";
    spinner.start();
    EXPECT_TRUE(comesToLead(1)) << "as fast as before";
}

TEST_F(SpinnerTest, ProgressClosesARingFromTheTopWithTheClock)
{
    spinner.start();
    for (const int quarters : {1, 2, 3}) {
        spinner.setProgress(quarters, 4);
        const QImage image = painted();
        for (int quarter = 0; quarter < 4; ++quarter) {
            const int ring = darkness(image, quarter * 90.0 + 45, 0.8);
            if (quarter < quarters) {
                EXPECT_GT(ring, 200) << quarters << " of 4, quarter " << quarter;
            } else {
                EXPECT_GT(ring, 40) << quarters << " of 4, quarter " << quarter;
                EXPECT_LT(ring, 90) << quarters << " of 4, quarter " << quarter;
            }
            EXPECT_EQ(darkness(image, quarter * 90.0 + 45, 0.4), 0);
            EXPECT_EQ(darkness(image, quarter * 90.0 + 45, 1.05), 0);
        }
    }
}

TEST_F(SpinnerTest, ProgressIsAPartOfAHundred)
{
    spinner.setProgress(1, 3);
    EXPECT_EQ(spinner.value(), 33);
    EXPECT_EQ(spinner.maximum(), 100);
    spinner.setProgress(2, 3);
    EXPECT_EQ(spinner.value(), 66);
    spinner.setProgress(1, 1'000'000'000'000);
    EXPECT_EQ(spinner.value(), 0);
    EXPECT_EQ(spinner.maximum(), 100) << "a little is known";
    spinner.stop();
    EXPECT_EQ(spinner.maximum(), 0);
    EXPECT_EQ(spinner.minimum(), 0);
}

TEST_F(SpinnerTest, IsASquareAsHighAsItsLetters)
{
    EXPECT_EQ(spinner.sizeHint(), QSize(spinner.fontMetrics().height(), spinner.fontMetrics().height()));
    EXPECT_EQ(spinner.minimumSizeHint(), spinner.sizeHint());
    EXPECT_TRUE(spinner.isHidden());
    EXPECT_TRUE(spinner.sizePolicy().retainSizeWhenHidden());
    EXPECT_FALSE(spinner.isTextVisible());
}

// The alert: what it shows, that everything is plain text, and how it is dismissed.
#include "desktop/window/QtAlertPanel.h"

#include "support/WindowSupport.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

const QString kTitle = u"Crash log upload failed."_s;
const QString kMessage = u"Please try again later."_s;

/// Runs the alert and hands it to the visitor as soon as it is in view; the visitor dismisses it.
bool runAlert(QtAlertPanel &panel, const QString &title, const QString &message,
              const std::function<void(QMessageBox &)> &visit)
{
    bool visited = false;
    QTimer look;
    look.setInterval(0);
    QObject::connect(&look, &QTimer::timeout, [&] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box || !box->isVisible())
            return;
        look.stop();
        visited = true;
        visit(*box);
        // Whatever the visitor did wrong, the test goes on.
        box->close();
    });
    look.start();
    panel.runAlertPanel(title, message);
    return visited;
}

class QtAlertPanelTest : public testing::Test
{
protected:
    ReportWindow window;
    QtAlertPanel panel{&window};
};

} // namespace

TEST_F(QtAlertPanelTest, ShowsTitleMessageAndOneButton)
{
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) {
        EXPECT_EQ(box.windowTitle(), u"Korvale Crash Reporter"_s);
        EXPECT_EQ(box.text(), kTitle);
        EXPECT_EQ(box.informativeText(), kMessage);
        EXPECT_EQ(box.standardButtons(), QMessageBox::Ok);
        EXPECT_TRUE(box.isModal());
        EXPECT_EQ(box.accessibleDescription(), kTitle + u'\n' + kMessage);
    }));
}

TEST_F(QtAlertPanelTest, ShowsTheTitleInBoldAndTheMessageNot)
{
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) {
        const QList<QLabel *> labels = box.findChildren<QLabel *>();
        QMap<QString, bool> boldness;
        for (const QLabel *label : labels)
            boldness[label->text()] = label->font().bold();
        EXPECT_TRUE(boldness.value(kTitle, false));
        EXPECT_FALSE(boldness.value(kMessage, true));
    }));
}

TEST_F(QtAlertPanelTest, ShowsShortTextsInOneLineEach)
{
    EXPECT_TRUE(
        runAlert(panel, u"Crash log upload failed."_s, u"The report could not be sent."_s, [](QMessageBox &box) {
            const QList<QLabel *> labels = box.findChildren<QLabel *>();
            for (const QLabel *label : labels) {
                if (label->text().isEmpty()) {
                    continue;
                }
                EXPECT_GE(label->contentsRect().width(), label->fontMetrics().horizontalAdvance(label->text()));
            }
            EXPECT_GE(box.width(), 40 * box.fontMetrics().averageCharWidth());
        }));
}

TEST_F(QtAlertPanelTest, ShowsMarkupAsPlainText)
{
    EXPECT_TRUE(runAlert(panel, u"<b>title</b>"_s, u"<i>message</i>"_s, [](QMessageBox &box) {
        const QList<QLabel *> labels = box.findChildren<QLabel *>();
        int shownTexts = 0;
        for (const QLabel *label : labels) {
            EXPECT_EQ(label->textFormat(), Qt::PlainText);
            shownTexts += label->text().contains(u'<') ? 1 : 0;
        }
        EXPECT_EQ(shownTexts, 2);
    }));
}

class DismissalTest : public QtAlertPanelTest, public testing::WithParamInterface<Qt::Key>
{
};

TEST_P(DismissalTest, KeyDismissesTheAlert)
{
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) {
        QTest::keyClick(&box, GetParam());
        EXPECT_TRUE(comesTrue([&box] { return !box.isVisible(); }));
    }));
}

INSTANTIATE_TEST_SUITE_P(, DismissalTest, testing::Values(Qt::Key_Escape, Qt::Key_Return),
                         [](const testing::TestParamInfo<Qt::Key> &given) {
                             return std::string(given.param == Qt::Key_Escape ? "Escape" : "Return");
                         });

TEST_F(QtAlertPanelTest, PressingOkDismissesTheAlert)
{
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) {
        QTest::mouseClick(box.button(QMessageBox::Ok), Qt::LeftButton);
        EXPECT_FALSE(box.isVisible());
    }));
}

TEST_F(QtAlertPanelTest, StandsBeforeTheWindowWhileThatIsVisible)
{
    window.show();
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [this](QMessageBox &box) { EXPECT_EQ(box.parent(), &window); }));
}

TEST_F(QtAlertPanelTest, StandsAloneWhileTheWindowIsHidden)
{
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) { EXPECT_EQ(box.parent(), nullptr); }));
}

TEST_F(QtAlertPanelTest, LeavesTheFocusOfTheWindowWhereItWas)
{
    window.show();
    auto &submit = child<QPushButton>(window, "submitBtn");
    submit.setFocus();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox & /*box*/) {}));
    EXPECT_EQ(window.focusWidget(), &submit);
}

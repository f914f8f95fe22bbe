// The alert: what it shows, that everything is plain text, and how it is dismissed.
#include "desktop/window/QtAlertPanel.h"

#include "desktop/window/ReportWindow.h"
#include "support/WindowSupport.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTextBlock>
#include <QTextDocument>
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
        if (!box || !box->isVisible()) {
            return;
        }
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

/// The names and descriptions of the widget and what is in it, as far as it is visible and has any.
QStringList accessibleTexts(QWidget &widget)
{
    QAccessibleInterface *const accessible = QAccessible::queryAccessibleInterface(&widget);
    QStringList texts{accessible->text(QAccessible::Name), accessible->text(QAccessible::Description)};
    for (int index = 0; index < accessible->childCount(); ++index) {
        if (auto *inside = qobject_cast<QWidget *>(accessible->child(index)->object()); inside && inside->isVisible()) {
            texts += accessibleTexts(*inside);
        }
    }
    texts.removeAll(QString());
    return texts;
}

/// What of the markup is shown in bold.
QString boldText(const QString &markup)
{
    QTextDocument document;
    document.setHtml(markup);
    QString bold;
    const QTextBlock paragraph = document.begin();
    for (auto fragment = paragraph.begin(); fragment != paragraph.end(); ++fragment) {
        bold += fragment.fragment().charFormat().font().bold() ? fragment.fragment().text() : QString();
    }
    return bold;
}

class QtAlertPanelTest : public testing::Test
{
protected:
    ReportWindow window;
    QtAlertPanel panel{window};
};

} // namespace

TEST_F(QtAlertPanelTest, ShowsTitleMessageAndOneButton)
{
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) {
        EXPECT_EQ(box.windowTitle(), u"Korvale Crash Reporter"_s);
        EXPECT_EQ(readText(box.text()), kTitle);
        EXPECT_EQ(readText(box.informativeText()), kMessage);
        EXPECT_EQ(box.standardButtons(), QMessageBox::Ok);
        EXPECT_TRUE(box.isModal());
    }));
}

TEST_F(QtAlertPanelTest, HasNoIconAndNoneOnItsButton)
{
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) {
        EXPECT_EQ(box.icon(), QMessageBox::NoIcon);
        EXPECT_TRUE(box.iconPixmap().isNull());
        EXPECT_TRUE(box.button(QMessageBox::Ok)->icon().isNull());
    }));
}

TEST_F(QtAlertPanelTest, AScreenReaderIsToldOfNoGroupAroundTheOneButton)
{
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) {
        auto *const buttons = box.findChild<QDialogButtonBox *>();
        EXPECT_NE(QAccessible::queryAccessibleInterface(buttons)->role(), QAccessible::Grouping);
    }));
}

TEST_F(QtAlertPanelTest, AScreenReaderIsGivenEachTextOnce)
{
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) {
        EXPECT_EQ(QAccessible::queryAccessibleInterface(&box)->role(), QAccessible::AlertMessage);
        EXPECT_EQ(accessibleTexts(box), (QStringList{u"Korvale Crash Reporter"_s, kTitle, u"OK"_s, kMessage}));
    }));
}

TEST_F(QtAlertPanelTest, TheReportIsCopiedByTheWindowsKey)
{
    window.controls().logText.setString(u"Process: Harbour\n"_s);
    window.show();
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) {
        ASSERT_TRUE(QTest::qWaitForWindowActive(&box));
        QTest::keyClick(&box, Qt::Key_C, Qt::ControlModifier | Qt::ShiftModifier);
    }));
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"Report:\nProcess: Harbour\n"_s);
}

TEST_F(QtAlertPanelTest, ShowsTheTitleInBoldAndTheMessageNot)
{
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) {
        EXPECT_EQ(boldText(box.text()), kTitle);
        EXPECT_EQ(boldText(box.informativeText()), QString());
    }));
}

TEST_F(QtAlertPanelTest, HasSpaceForFortyCharactersAndTheWindowsTitle)
{
    EXPECT_TRUE(runAlert(panel, u"No."_s, u"No."_s, [](QMessageBox &box) {
        const int wanted = 40 * box.fontMetrics().averageCharWidth();
        EXPECT_EQ(child<QLabel>(box, "qt_msgbox_informativelabel").width(), wanted);
    }));
}

TEST_F(QtAlertPanelTest, ShowsMarkupAsPlainText)
{
    EXPECT_TRUE(runAlert(panel, u"<b>title</b> &amp;"_s, u"<i>message</i> &amp;"_s, [](QMessageBox &box) {
        EXPECT_TRUE(accessibleTexts(box).contains(u"<b>title</b> &amp;"_s));
        EXPECT_TRUE(accessibleTexts(box).contains(u"<i>message</i> &amp;"_s));
    }));
}

class DismissalTest : public QtAlertPanelTest, public testing::WithParamInterface<Qt::Key>
{
};

TEST_P(DismissalTest, KeyDismissesTheAlert)
{
    EXPECT_TRUE(runAlert(panel, kTitle, kMessage, [](QMessageBox &box) {
        QTest::keyClick(&box, GetParam());
        EXPECT_TRUE(eventually([&box] { return !box.isVisible(); }));
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

TEST_F(QtAlertPanelTest, IsModalToTheWindowWhileThatIsVisible)
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

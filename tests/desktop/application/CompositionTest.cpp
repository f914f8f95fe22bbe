// The running application: the files that reach it, when launching finishes, what an alert holds up, and its end.
#include "desktop/application/Composition.h"

#include "desktop/reportview/ReportTextView.h"
#include "desktop/reportview/TextDisplay.h"
#include "desktop/window/HeadlineLabel.h"
#include "support/EventLoop.h"
#include "support/SampleHome.h"
#include "support/WindowSupport.h"

#include <QApplication>
#include <QFile>
#include <QFileOpenEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>
#include <QToolButton>

#include <unistd.h>

#include <csignal>
#include <functional>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

const QByteArray kConflicting = "loaded: com.unsanity.ape";
const QString kConflictAlert = u"Unsanity Application Enhancer is installed"_s;
const QString kAddressAlert = u"Invalid email format."_s;

/// The window of the running application; there is one.
ReportWindow &reportWindow()
{
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget *widget : widgets) {
        if (auto *window = qobject_cast<ReportWindow *>(widget)) {
            return *window;
        }
    }
    qFatal("The application has no report window.");
}

/// Acts while alerts are up, and dismisses each of them.
class Alerts
{
public:
    /// The steps are taken while the first alert is up, each in a turn of the event loop of its own.
    explicit Alerts(std::vector<std::function<void()>> stepsToTake = {})
        : steps(std::move(stepsToTake))
    {
        QObject::connect(&look, &QTimer::timeout, [this] { meet(); });
        look.start(1);
    }

    QStringList titles; ///< Of the alerts that came up, in their order.

private:
    void meet()
    {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box || !box->isVisible() || box == met) {
            return;
        }
        met = box;
        titles << readText(box->text());
        for (const std::function<void()> &step : std::exchange(steps, {})) {
            QMetaObject::invokeMethod(box, step, Qt::QueuedConnection);
        }
        // Not from here: a step that brings another alert up needs this timer for that one.
        QMetaObject::invokeMethod(box, &QWidget::close, Qt::QueuedConnection);
    }

    std::vector<std::function<void()>> steps;
    QPointer<QMessageBox> met;
    QTimer look;
};

class CompositionTest : public testing::Test
{
protected:
    CompositionTest()
    {
        QApplication::setQuitOnLastWindowClosed(false);
        systems.home = folder.path();
    }
    ~CompositionTest() override { QApplication::setQuitOnLastWindowClosed(true); }

    /// Writes a crash log and returns its path.
    QString crashLog(const QString &name, const QByteArray &content) const
    {
        const QString path = folder.filePath(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        EXPECT_EQ(file.write(content), content.size());
        return path;
    }

    /// Makes the application with the words on its command line.
    void start(const QStringList &words = {})
    {
        std::vector<QByteArray> texts = {"korvale-crash-reporter"};
        for (const QString &word : words) {
            texts.push_back(word.toUtf8());
        }
        std::vector<char *> arguments;
        for (QByteArray &text : texts) {
            arguments.push_back(text.data());
        }
        processInfo = std::make_unique<QtProcessInfo>(static_cast<int>(arguments.size()), arguments.data());
        application = std::make_unique<Composition>(*processInfo);
    }

    /// Starts the application with a report in its shown window.
    void startWithReport()
    {
        start({crashLog(u"Harbour_1.crash"_s, "first report")});
        application->launch();
        ASSERT_TRUE(eventually([] { return reportWindow().isVisible(); }));
    }

    /// Queues the launch and runs the event loop, as the program does; returns the exit status, or -1 after twenty
    /// seconds.
    int run()
    {
        QTimer limit;
        QObject::connect(&limit, &QTimer::timeout, [] { QCoreApplication::exit(-1); });
        limit.start(20'000);
        QMetaObject::invokeMethod(application.get(), &Composition::launch, Qt::QueuedConnection);
        return QCoreApplication::exec();
    }

    void expectToQuitOnceItIsShown(const std::function<void()> &end)
    {
        start({crashLog(u"Harbour_1.crash"_s, "harbour")});
        QSignalSpy quitting(qApp, &QCoreApplication::aboutToQuit);
        bool wasShown = false;
        QTimer look;
        QObject::connect(&look, &QTimer::timeout, [&] {
            if (reportWindow().isVisible()) {
                wasShown = true;
                end();
            }
        });
        look.start(1);

        EXPECT_EQ(run(), 0);

        EXPECT_TRUE(wasShown);
        EXPECT_EQ(quitting.count(), 1);
    }

    /// The system opens the file onto the application.
    static void open(const QString &path)
    {
        QFileOpenEvent event(path);
        EXPECT_TRUE(QCoreApplication::sendEvent(qApp, &event)) << "nobody has taken it";
    }

    static void drop(const QStringList &paths)
    {
        QMimeData data;
        QList<QUrl> urls;
        for (const QString &path : paths) {
            urls << QUrl::fromLocalFile(path);
        }
        data.setUrls(urls);
        ReportWindow &window = reportWindow();
        const QPoint centre = window.rect().center();
        QDragEnterEvent enter(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&window, &enter);
        QDropEvent event(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&window, &event);
    }

    static QString report() { return child<ReportTextView>(reportWindow(), "logText").string(); }
    static bool headlineNames(const QString &name)
    {
        return child<HeadlineLabel>(reportWindow(), "initialInfo").accessibleName().startsWith(name + u" crashed"_s);
    }
    static bool paneIsShown() { return child<ReportTextView>(reportWindow(), "logText").isVisible(); }

    QTemporaryDir folder;
    ScriptedLookups systems;
    const LookupsScope scope{systems};
    std::unique_ptr<QtProcessInfo> processInfo;
    std::unique_ptr<Composition> application;
};

} // namespace

// Launching

TEST_F(CompositionTest, FilesOfTheCommandLineAreOpenedAtOnceAndLaunchingFinishesATurnLater)
{
    start({crashLog(u"Harbour_1.crash"_s, "harbour"), crashLog(u"Beacon_1.crash"_s, "beacon")});

    application->launch();

    EXPECT_EQ(report(), u"beacon"_s);
    EXPECT_FALSE(reportWindow().isVisible());
    QCoreApplication::sendPostedEvents(application.get(), QEvent::MetaCall);
    EXPECT_TRUE(reportWindow().isVisible());
    EXPECT_TRUE(headlineNames(u"Beacon"_s));
}

TEST_F(CompositionTest, FileThatTheSystemOpensInTheTurnOfTheLaunchIsLoadedBeforeLaunchingFinishes)
{
    start();
    QMetaObject::invokeMethod(application.get(), &Composition::launch, Qt::QueuedConnection);
    QCoreApplication::postEvent(qApp, new QFileOpenEvent(crashLog(u"Harbour_1.crash"_s, "harbour")));

    EXPECT_TRUE(eventually([] { return reportWindow().isVisible(); }));

    EXPECT_EQ(report(), u"harbour"_s);
    EXPECT_TRUE(headlineNames(u"Harbour"_s));
}

TEST_F(CompositionTest, FileThatTheSystemOpensBetweenLaunchAndItsEndTakesThePlaceOfTheCommandLines)
{
    start({crashLog(u"Harbour_1.crash"_s, "harbour")});
    application->launch();

    open(crashLog(u"Beacon_1.crash"_s, "beacon"));

    ASSERT_TRUE(eventually([] { return reportWindow().isVisible(); }));
    EXPECT_EQ(report(), u"beacon"_s);
    EXPECT_TRUE(headlineNames(u"Beacon"_s));
}

TEST_F(CompositionTest, LaunchingFinishesAfterEveryFileThatAnAlertHeldUp)
{
    const QString beacon = crashLog(u"Beacon_1.crash"_s, "beacon");
    start({crashLog(u"Harbour_1.crash"_s, kConflicting), crashLog(u"Anchor_1.crash"_s, "anchor")});
    Alerts alerts({[&] { open(beacon); }, [] { EXPECT_EQ(report(), QString()); }});

    application->launch();

    EXPECT_EQ(alerts.titles, QStringList{kConflictAlert});
    ASSERT_TRUE(eventually([] { return reportWindow().isVisible(); }));
    EXPECT_EQ(report(), u"anchor"_s);
    EXPECT_TRUE(headlineNames(u"Anchor"_s));
}

TEST_F(CompositionTest, RemoteNameAndLogOfTheCommandLineAreShownWithoutAnAlert)
{
    Alerts alerts;
    start({u"-remotename"_s, u"build-mac-3"_s, u"-style"_s, u"windows"_s, u"-log"_s,
           crashLog(u"Harbour_1.crash"_s, kConflicting)});

    application->launch();

    ASSERT_TRUE(eventually([] { return reportWindow().isVisible(); }));
    EXPECT_TRUE(headlineNames(u"The client running on build-mac-3"_s));
    EXPECT_EQ(report(), QString::fromLatin1(kConflicting));
    EXPECT_EQ(alerts.titles, QStringList());
}

TEST_F(CompositionTest, AlertBeforeTheWindowHasItsIcon)
{
    QApplication::setWindowIcon({});

    start();

    EXPECT_FALSE(QApplication::windowIcon().isNull());
}

// Files that come later

TEST_F(CompositionTest, FileThatTheSystemOpensLaterReplacesTheReportAlone)
{
    startWithReport();

    open(crashLog(u"Beacon_1.crash"_s, "beacon"));

    EXPECT_EQ(report(), u"beacon"_s);
    EXPECT_TRUE(headlineNames(u"Harbour"_s));
}

TEST_F(CompositionTest, WindowSaysWhatWouldBeSentAndFollowsALaterFile)
{
    startWithReport();
    const auto &summary = child<QLabel>(reportWindow(), "summary");
    EXPECT_EQ(summary.accessibleName(), u"Harbour_1.crash (12 bytes), sent to localhost"_s);

    open(crashLog(u"Beacon_1.crash"_s, "caf\xC3\xA9"));

    EXPECT_EQ(summary.accessibleName(), u"Beacon_1.crash (5 bytes), sent to localhost"_s);
}

TEST_F(CompositionTest, KeyGoesToTheLogThatWasAppendedToTheReport)
{
    SampleHome home;
    home.writeApplicationLog(u"Harbour.1.log"_s, "opened");
    startWithReport();
    child<QToolButton>(reportWindow(), "disclosureBtn").click();
    ASSERT_TRUE(eventually([] { return paneIsShown(); }));
    auto *display = reportWindow().findChild<reportview::TextDisplay *>();
    ASSERT_NE(display, nullptr);
    display->setFocus();

    QTest::keyClick(display, Qt::Key_PageDown, Qt::ControlModifier);

    EXPECT_EQ(report().sliced(display->caret()), u"Log 1:\nopened"_s);
}

TEST_F(CompositionTest, DroppedFilesReplaceTheReportInTheirOrder)
{
    startWithReport();
    const QString beacon = crashLog(u"Beacon_1.crash"_s, "beacon");
    const QString anchor = crashLog(u"Anchor_1.crash"_s, "anchor");

    drop({beacon, anchor});
    EXPECT_EQ(report(), u"anchor"_s);

    drop({anchor, beacon});
    EXPECT_EQ(report(), u"beacon"_s);
}

TEST_F(CompositionTest, OfRootTakesNoFileFromWhoeverOwnsTheDisplay)
{
    runAsRoot(systems, u"user1"_s);
    startWithReport();
    drop({crashLog(u"Anchor_1.crash"_s, "for root alone")});
    QCoreApplication::processEvents();
    EXPECT_EQ(report(), u"first report"_s);
}

TEST_F(CompositionTest, EachOfSeveralDroppedFilesIsLoaded)
{
    startWithReport();
    Alerts alerts;

    drop({crashLog(u"Beacon_1.crash"_s, kConflicting), crashLog(u"Anchor_1.crash"_s, "net.culater.SIMBL")});

    EXPECT_TRUE(eventually([] { return report() == u"net.culater.SIMBL"; }));
    EXPECT_EQ(alerts.titles, (QStringList{kConflictAlert, u"SIMBL is installed"_s}));
}

// While an alert is up

TEST_F(CompositionTest, FilesThatComeWhileAnAlertIsUpWaitUntilTheFirstIsLoaded)
{
    startWithReport();
    const QString opened = crashLog(u"Beacon_1.crash"_s, "opened");
    const QString dropped = crashLog(u"Anchor_1.crash"_s, "dropped");
    QString heldUp;
    Alerts alerts({[&] {
                       open(opened);
                       drop({dropped});
                   },
                   [&] { heldUp = report(); }});

    open(crashLog(u"Harbour_2.crash"_s, kConflicting));

    EXPECT_EQ(alerts.titles, QStringList{kConflictAlert});
    EXPECT_EQ(heldUp, u"first report"_s);
    EXPECT_EQ(report(), QString::fromLatin1(kConflicting)) << "the others come from the event loop";
    EXPECT_TRUE(eventually([] { return report() == u"dropped"; }));
}

TEST_F(CompositionTest, SubmittingWhileAnAlertIsUpIsDropped)
{
    startWithReport();
    child<QLineEdit>(reportWindow(), "emailText").setText(u"anna"_s);
    auto &submit = child<QPushButton>(reportWindow(), "submitBtn");
    Alerts alerts({[&] { submit.click(); }});

    open(crashLog(u"Harbour_2.crash"_s, kConflicting));
    QCoreApplication::processEvents();
    EXPECT_EQ(alerts.titles, QStringList{kConflictAlert});

    submit.click();
    EXPECT_EQ(alerts.titles, (QStringList{kConflictAlert, kAddressAlert}));
}

TEST_F(CompositionTest, DisclosingWhileAnAlertIsUpWaitsSoThatTriangleAndPaneAgree)
{
    startWithReport();
    auto &triangle = child<QToolButton>(reportWindow(), "disclosureBtn");
    ASSERT_FALSE(paneIsShown());
    bool shownBehindTheAlert = true;
    Alerts alerts({[&] {
        triangle.click();
        shownBehindTheAlert = paneIsShown();
    }});

    open(crashLog(u"Harbour_2.crash"_s, kConflicting));

    EXPECT_FALSE(shownBehindTheAlert);
    EXPECT_TRUE(eventually([] { return paneIsShown(); }));
    EXPECT_TRUE(triangle.isChecked());
}

TEST_F(CompositionTest, CancellingWhileAnAlertIsUpIsDropped)
{
    startWithReport();
    // As while a report is being sent.
    reportWindow().controls().emailText.setEnabled(false);
    reportWindow().controls().spinner.startAnimation(nullptr);
    auto &address = child<QLineEdit>(reportWindow(), "emailText");
    auto &cancel = child<QPushButton>(reportWindow(), "secondBtn");
    Alerts alerts({[&] { cancel.click(); }});

    open(crashLog(u"Harbour_2.crash"_s, kConflicting));
    QCoreApplication::processEvents();
    EXPECT_EQ(alerts.titles, QStringList{kConflictAlert});
    EXPECT_EQ(reportWindow().state(), ReportWindow::State::Sending);
    EXPECT_TRUE(reportWindow().isVisible());

    cancel.click();
    EXPECT_TRUE(eventually([&] { return address.isEnabled(); }));
}

// The end

TEST_F(CompositionTest, LaunchingWithoutAReportQuitsAndShowsNothing)
{
    start({folder.filePath(u"gone_1.crash"_s)});
    QSignalSpy quitting(qApp, &QCoreApplication::aboutToQuit);

    EXPECT_EQ(run(), 0);

    EXPECT_EQ(quitting.count(), 1);
    EXPECT_FALSE(reportWindow().isVisible());
}

TEST_F(CompositionTest, ClosingTheWindowQuits)
{
    expectToQuitOnceItIsShown([] { reportWindow().close(); });
}

TEST_F(CompositionTest, SignalThatAsksForTheEndQuits)
{
    expectToQuitOnceItIsShown([] { std::raise(SIGTERM); });
    ::alarm(0); // This program goes on.
}

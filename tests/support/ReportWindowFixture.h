// The real report window with its real controller; everything around them is recorded.
#pragma once

#include "desktop/window/DescriptionEdit.h"
#include "desktop/window/HeadlineLabel.h"
#include "desktop/window/ReportWindow.h"
#include "desktop/window/Spinner.h"
#include "support/RecordingPlatform.h"
#include "support/WindowSupport.h"

#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QToolButton>

class ReportWindowFixture : public testing::Test
{
protected:
    ReportWindowFixture()
    {
        // As the application connects them.
        QObject::connect(&window, &ReportWindow::disclosureClicked, [this] { toggleDisclosure(); });
        QObject::connect(&window, &ReportWindow::submitClicked, [this] { submitReport(); });
        QObject::connect(&window, &ReportWindow::cancelClicked, [this] { controller.cancel(); });
        controller.init();
    }

    /// Opens a crash log as the report.
    void load(const QByteArray &report = "Process: Harbour\n")
    {
        const QString path = folder.filePath(QStringLiteral("Harbour_1.crash"));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(report) == report.size() && file.flush());
        ASSERT_TRUE(controller.applicationOpenFile(nullptr, path));
    }

    /// Opens a crash log and finishes launching, which shows the window with the pane folded.
    void show()
    {
        load();
        controller.applicationDidFinishLaunching(nullptr);
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    }

    void toggleDisclosure() { controller.disclosureClick(nullptr); }
    void submitReport() { controller.submitReport(nullptr); }

    /// The window shows what its controls were told.
    void waitUntilShown(ReportWindow::State state)
    {
        ASSERT_EQ(window.state(), state);
        const QString title = secondTitle(state);
        ASSERT_TRUE(eventually([&] { return QString(second.text()).remove(u'&') == title; })) << qPrintable(title);
    }

    void startSending()
    {
        submitReport();
        waitUntilShown(ReportWindow::State::Sending);
    }

    void refuse()
    {
        controller.connectionDidReceiveData(*controller.connection, "no");
        waitUntilShown(ReportWindow::State::AwaitingRetry);
    }

    void cancel()
    {
        controller.cancel();
        waitUntilShown(ReportWindow::State::Editing);
    }

    bool hasFocus(const QWidget &widget) const { return window.focusWidget() == &widget; }

    static QString secondTitle(ReportWindow::State state)
    {
        switch (state) {
        case ReportWindow::State::Sending:
            return QStringLiteral("Cancel");
        case ReportWindow::State::AwaitingRetry:
            return QStringLiteral("Edit Report");
        default:
            return QStringLiteral("Don't Send");
        }
    }

    QTemporaryDir folder;
    RecordingPlatform recorded;
    ReportWindow window;
    platform::ReportControls controls = window.controls();
    PublicController controller{controls, recorded.services()};
    QWidget &form = child<QWidget>(window, "form");
    QWidget &pane = child<QWidget>(window, "logView");
    HeadlineLabel &headline = child<HeadlineLabel>(window, "initialInfo");
    QLineEdit &email = child<QLineEdit>(window, "emailText");
    DescriptionEdit &description = child<DescriptionEdit>(window, "infoText");
    QToolButton &triangle = child<QToolButton>(window, "disclosureBtn");
    Spinner &spinner = child<Spinner>(window, "spinner");
    QPushButton &second = child<QPushButton>(window, "secondBtn");
    QPushButton &submit = child<QPushButton>(window, "submitBtn");
    QWidget &reportText = child<QWidget>(window, "logText");
    QSignalSpy disclosures{&window, &ReportWindow::disclosureClicked};
    QSignalSpy submissions{&window, &ReportWindow::submitClicked};
    QSignalSpy cancellations{&window, &ReportWindow::cancelClicked};
    QSignalSpy drops{&window, &ReportWindow::filesDropped};
    QSignalSpy closings{&window, &ReportWindow::closed};
};

// Saves pictures of the report window in each of its states, for a person to compare: see scripts/screenshots.
#include "desktop/reportview/TextDisplay.h"
#include "desktop/window/QtAlertPanel.h"
#include "desktop/window/ReportWindow.h"

#include <QApplication>
#include <QTest>
#include <QTimer>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

QPalette paletteNamed(const QString &name)
{
    const bool isLight = name == u"light"_s;
    const bool isDark = name == u"dark"_s;
    const QColor window = isLight ? QColor(239, 239, 239) : isDark ? QColor(49, 54, 59) : QColor(Qt::black);
    const QColor base = isLight ? QColor(Qt::white) : isDark ? QColor(35, 38, 41) : QColor(Qt::black);
    const QColor text = isLight ? QColor(Qt::black) : isDark ? QColor(239, 240, 241) : QColor(Qt::yellow);
    QPalette palette(text, window, window.lighter(150), window.darker(150), window.darker(120), text, Qt::white, base,
                     window);
    palette.setColor(QPalette::Highlight, isLight || isDark ? QColor(61, 174, 233) : QColor(Qt::white));
    palette.setColor(QPalette::HighlightedText, Qt::black);
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, Qt::gray);
    return palette;
}

/// Higher and wider than the pane.
QString report()
{
    QString text = u"Process: Harbour [4711]\nException Type: EXC_BAD_ACCESS\n\nThread 0 Crashed:\n"_s;
    for (int frame = 0; frame < 40; ++frame) {
        text +=
            u"%1 Harbour 0x%2 harbour::Window::layOut(harbour::Rectangle const &, harbour::Children const &) + %3\n"_s
                .arg(frame)
                .arg(0x4f2a10 + 64 * frame, 8, 16, QLatin1Char('0'))
                .arg(12 * frame);
    }
    return text;
}

void turnEventLoop()
{
    QEventLoop loop;
    // Long enough for the window to stand still after folding.
    QTimer::singleShot(600, &loop, &QEventLoop::quit);
    loop.exec();
}

class Pictures
{
public:
    explicit Pictures(const QString &pathPrefix)
        : prefix(pathPrefix)
    {
        controls.logText.setString(report());
        controls.initialInfo.setStringValue(u"The client running on anvil.example.org crashed the last time it ran. "
                                            "Please submit a bug report so we can prevent this occurring in future."_s);
        window.setReportSummary({u"/logs/Harbour_2026-11-02-101500_anvil.crash"_s, 52'400, 4, u"crash.example.org"_s});
        toggle();
        controls.disclosureBtn.setState(platform::kStateOff);
        controls.mainWindow.makeKeyAndOrderFront(nullptr);
    }

    void takeAll()
    {
        take("editing");
        controls.disclosureBtn.setState(platform::kStateOn);
        toggle();
        take("unfolded");
        showEveryKindOfText();
        take("every-kind-of-text");
        controls.spinner.startAnimation(nullptr);
        controls.infoText.setEditable(false);
        controls.emailText.setEnabled(false);
        controls.submitBtn.setEnabled(false);
        controls.submitBtn.setTitle(u"Sending..."_s);
        window.setUploadProgress(2, 3);
        take("sending");
        controls.spinner.stopAnimation(nullptr);
        controls.submitBtn.setTitle(u"Report Crash"_s);
        controls.submitBtn.setEnabled(true);
        take("awaiting-another-try");
        takeAlert();
        find(u"task"_s);
        take("finding");
    }

private:
    void toggle()
    {
        const bool unfold = controls.logView.isHidden();
        platform::Rect frame = controls.mainWindow.frame();
        frame.height += unfold ? controls.logView.frame().height : -controls.logView.frame().height;
        frame.y -= frame.height - controls.mainWindow.frame().height;
        controls.mainWindow.setFrameDisplayAnimate(frame, platform::Display::On, platform::Animation::Off);
        controls.logView.setHidden(!unfold);
    }

    /// A report with what no text widget shows, and the application's own logs behind it, the first of them in view.
    void showEveryKindOfText()
    {
        const QString crashLog = u"Process:         Harbour [4711]\n"
                                 "Exception Type:  EXC_BAD_ACCESS (SIGSEGV)\n\n"
                                 "Thread 0 Crashed:\n"
                                 "0\tHarbour\t0x00007f2a4c01 main + 12\r\n"
                                 "1\tlibc.so.6\t0x00007f2a4bd0 start + 133\r\n\n"_s;
        const QString own = u"\nLog 1:\n"
                            "10:14:58 opened \u201Cz\u00FCrich\u00A0\u2192 \u0391\u03B8\u03AE\u03BD\u03B1.txt\u201D\n"
                            "10:14:59 \u05E4\u05EA\u05D7 \u05E7\u05D5\u05D1\u05E5 / \u0641\u062A\u062D "
                            "\u0645\u0644\u0641\n"
                            "10:15:00 \x1B[31mwarning:\x1B[0m name ends with \u202Etxt.exe\u202C\n"
                            "10:15:00 read 3 bytes: \x01\x7F\u0085 and a bell \a\n"_s;
        controls.logText.setString(crashLog + own + u"\nTask Log 1:\n10:15:00 task 7 was waiting\n"_s);
        window.setAppendedLogs({{u"Log 1"_s, crashLog.size()}, {u"Task Log 1"_s, crashLog.size() + own.size()}});
    }

    void find(const QString &words)
    {
        auto &pane = *window.findChild<reportview::TextDisplay *>();
        // The alert had the keyboard.
        window.activateWindow();
        if (!QTest::qWaitForWindowActive(&window)) {
            qFatal("the window does not become active");
        }
        Q_EMIT pane.findRequested();
        QTest::keyClicks(QApplication::focusWidget(), words);
    }

    void take(const char *state)
    {
        turnEventLoop();
        save(window, state);
    }

    void takeAlert()
    {
        QTimer::singleShot(0, &window, [this] {
            QWidget *const box = QApplication::activeModalWidget();
            turnEventLoop();
            save(*box, "alert");
            box->close();
        });
        QtAlertPanel(window).runAlertPanel(u"Crash log upload failed."_s, u"Please try again later."_s);
    }

    void save(QWidget &widget, const char *state) const
    {
        const QString path = prefix + u'-' + QLatin1StringView(state) + u".png"_s;
        if (!widget.grab().save(path)) {
            qFatal("cannot write %s", qPrintable(path));
        }
        std::puts(qPrintable(path));
    }

    QString prefix;
    ReportWindow window;
    platform::ReportControls controls = window.controls();
};

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    if (argc != 4) {
        std::fputs("usage: window-pictures PATH-PREFIX light|dark|high-contrast FONT-FACTOR\n", stderr);
        return 2;
    }
    QApplication::setStyle(u"fusion"_s);
    QApplication::setPalette(paletteNamed(QString::fromLocal8Bit(argv[2])));
    QFont font = QApplication::font();
    font.setPointSizeF(font.pointSizeF() * QByteArray(argv[3]).toDouble());
    QApplication::setFont(font);
    Pictures(QString::fromLocal8Bit(argv[1])).takeAll();
    return 0;
}

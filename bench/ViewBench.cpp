// What the report view costs: unfolding, moving about and copying, for a small text and a large one, in lines of usual
// length and as a single line, all in turn. Prints the medians in milliseconds.
#include "desktop/reportview/ReportTextView.h"

#include <QApplication>
#include <QClipboard>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QScrollBar>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

using namespace Qt::StringLiterals;
using reportview::TextDisplay;

namespace {

constexpr int kRuns = 9;
constexpr qsizetype kMebi = 1024 * 1024;

QString ordinaryLines(qsizetype units)
{
    QString text;
    text.reserve(units + 200);
    for (int line = 0; text.size() < units; ++line) {
        text += u"%1  Harbour  0x00000001%2 "_s.arg(line % 512).arg(line * 7919 % 100'000'000, 8, 16, QLatin1Char('0'));
        text += u"pier"_s.repeated(line % 13) + u'\n';
    }
    text.truncate(units);
    return text;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double milliseconds(const QElapsedTimer &timer)
{
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

/// The longest time for which the event loop could not run a timer that is always due, while the action's
/// consequences are worked off.
double longestStall(const std::function<void()> &action)
{
    double longest = 0;
    QElapsedTimer turn;
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, [&] {
        longest = std::max(longest, milliseconds(turn));
        turn.restart();
    });
    watch.start(0);
    turn.start();
    action();
    QElapsedTimer whole;
    whole.start();
    while (whole.elapsed() < 60) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return longest;
}

struct Figures {
    std::vector<double> unfold, stall, end, pages, copyAll;
};

void press(QWidget &widget, int key, Qt::KeyboardModifiers modifiers = {})
{
    QKeyEvent event(QEvent::KeyPress, key, modifiers);
    QCoreApplication::sendEvent(&widget, &event);
    widget.repaint();
    static_cast<QAbstractScrollArea &>(widget).viewport()->repaint();
}

void measure(const QString &text, Figures &figures)
{
    ReportTextView view;
    view.resize(640, 300);
    view.setString(text);
    QElapsedTimer timer;
    figures.stall.push_back(longestStall([&] {
        timer.start();
        view.show();
        QCoreApplication::sendPostedEvents();
        view.repaint();
        figures.unfold.push_back(milliseconds(timer));
    }));
    auto &display = *view.findChild<TextDisplay *>();
    const int range = display.verticalScrollBar()->maximum();

    timer.start();
    press(display, Qt::Key_End, Qt::ControlModifier);
    figures.end.push_back(milliseconds(timer));
    timer.start();
    for (int count = 0; count < 10; ++count) {
        press(display, Qt::Key_PageUp);
    }
    for (int count = 0; count < 10; ++count) {
        press(display, Qt::Key_PageDown);
    }
    figures.pages.push_back(milliseconds(timer) / 20);
    timer.start();
    press(display, Qt::Key_A, Qt::ControlModifier);
    press(display, Qt::Key_C, Qt::ControlModifier);
    figures.copyAll.push_back(milliseconds(timer));
    if (!QGuiApplication::clipboard()->ownsClipboard()) {
        std::fputs("the clipboard does not own the copy\n", stderr);
        std::exit(1);
    }
    if (display.verticalScrollBar()->maximum() != range) {
        std::fputs("the scroll range changed after the view was shown\n", stderr);
        std::exit(1);
    }
}

/// The medians of each text, in the order in which they are measured.
void print(const char *what, const std::vector<Figures> &texts, std::vector<double> Figures::*kind)
{
    std::printf("%s", what);
    for (const Figures &figures : texts) {
        std::printf("|%.3f", median(figures.*kind));
    }
    std::printf("\n");
}

} // namespace

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    const std::vector<QString> texts = {ordinaryLines(kMebi),
                                        ordinaryLines((argc > 1 ? std::atoi(argv[1]) : 128) * kMebi),
                                        QString(kMebi, u'x'), QString(16'000'000, u'x')};
    std::vector<Figures> figures(texts.size());
    // Fonts and the like are loaded by whoever comes first.
    Figures warmUp;
    measure(texts.front(), warmUp);
    for (int run = 0; run < kRuns; ++run) {
        for (size_t index = 0; index < texts.size(); ++index) {
            measure(texts[index], figures[index]);
        }
    }
    print("unfold to final range", figures, &Figures::unfold);
    print("longest stall of unfolding", figures, &Figures::stall);
    print("to the end", figures, &Figures::end);
    print("a page up or down", figures, &Figures::pages);
    print("select all and copy", figures, &Figures::copyAll);
    return 0;
}

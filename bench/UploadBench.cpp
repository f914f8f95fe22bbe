// Uploads a body of a given size and prints how many seconds it took, or the longest turn of the event loop meanwhile,
// in milliseconds by the clock and, which may be another turn, of the processor's time.
#include "desktop/transfer/CurlUrlLoader.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTimer>

#include <time.h>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

class Ending : public platform::UrlConnectionDelegate
{
public:
    void connectionDidReceiveData(platform::UrlConnection &connection, const QByteArray & /*data*/) override
    {
        connection.cancel();
        QCoreApplication::exit(1);
    }
    void connectionDidFailWithError(platform::UrlConnection & /*connection*/,
                                    const platform::UrlError & /*error*/) override
    {
        QCoreApplication::exit(1);
    }
    void connectionDidFinishLoading(platform::UrlConnection & /*connection*/) override { QCoreApplication::exit(0); }
};

double milliseconds(clockid_t clock)
{
    timespec time = {};
    ::clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

/// The longest turn of the event loop by one clock.
struct Turns {
    clockid_t clock;
    double began = 0;
    double longest = 0;

    void begin() { began = milliseconds(clock); }
    void next()
    {
        const double now = milliseconds(clock);
        longest = std::max(longest, now - began);
        began = now;
    }
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 5) {
        std::fputs("usage: upload-bench time|turns URL AUTHORITIES FILE\n", stderr);
        return 2;
    }
    QFile file(arguments.at(4));
    if (!file.open(QFile::ReadOnly)) {
        return 2;
    }
    TransferSettings settings;
    settings.authorities = arguments.at(3);
    OperationQueue operations;
    Ending ending;
    CurlUrlLoader loader(operations, settings);

    QTimer heart;
    Turns turns = {CLOCK_MONOTONIC};
    Turns busyTurns = {CLOCK_THREAD_CPUTIME_ID}; // What else the machine does is not counted.
    QObject::connect(&heart, &QTimer::timeout, [&] {
        turns.next();
        busyTurns.next();
    });
    const platform::UrlRequest request = {
        QUrl(arguments.at(2)), "POST", {{"Content-Type", "text/plain"}}, file.readAll()};
    QElapsedTimer whole;
    QTimer::singleShot(0, &application, [&] {
        if (arguments.at(1) == u"turns") {
            turns.begin();
            busyTurns.begin();
            heart.start(0);
        }
        whole.start();
        loader.connectionWithRequestDelegate(request, ending);
    });
    const int status = QCoreApplication::exec();
    if (arguments.at(1) == u"turns") {
        std::printf("%.2f %.2f\n", turns.longest, busyTurns.longest);
    } else {
        std::printf("%.4f\n", static_cast<double>(whole.nsecsElapsed()) / 1e9);
    }
    return status;
}

// Uploads a body of a given size and prints how long it took, or the longest turn of the event loop meanwhile, in
// milliseconds.
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

/// Of the processor's time that this thread has had, so that what else the machine does is not counted.
double milliseconds()
{
    timespec time = {};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

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
    double turnBegan = 0;
    double longest = 0;
    QObject::connect(&heart, &QTimer::timeout, [&] {
        const double now = milliseconds();
        longest = std::max(longest, now - turnBegan);
        turnBegan = now;
    });
    const platform::UrlRequest request = {
        QUrl(arguments.at(2)), "POST", {{"Content-Type", "text/plain"}}, file.readAll()};
    QElapsedTimer whole;
    QTimer::singleShot(0, &application, [&] {
        if (arguments.at(1) == u"turns") {
            turnBegan = milliseconds();
            heart.start(0);
        }
        whole.start();
        loader.connectionWithRequestDelegate(request, ending);
    });
    const int status = QCoreApplication::exec();
    if (arguments.at(1) == u"turns") {
        std::printf("%.2f\n", longest);
    } else {
        std::printf("%.4f\n", static_cast<double>(whole.nsecsElapsed()) / 1e9);
    }
    return status;
}

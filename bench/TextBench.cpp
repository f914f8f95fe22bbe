// What a text costs on its way from a file to the body of a request, beside the least that this could cost.
#include "base/TextFile.h"
#include "base/Utf8.h"
#include "report/ReportText.h"

#include <QElapsedTimer>

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

namespace {

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double milliseconds(const std::function<void()> &work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

/// Both sides in turn.
void compare(const char *name, int rounds, const std::function<void()> &ours, const std::function<void()> &least)
{
    std::vector<double> oursTook;
    std::vector<double> leastTook;
    for (int round = 0; round < rounds; ++round) {
        oursTook.push_back(milliseconds(ours));
        leastTook.push_back(milliseconds(least));
    }
    std::printf("%s %.3f %.3f\n", name, median(oursTook), median(leastTook));
}

/// Keeps the compiler from leaving out work whose result nobody looks at.
void use(const void *result)
{
    asm volatile("" : : "r"(result) : "memory");
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fputs("usage: text-bench ROUNDS FILE\nPrints name, milliseconds and those of the least work.\n", stderr);
        return 2;
    }
    // Memory that nobody has used yet is what a program meets that reads one report. The allocator would keep what one
    // round has used for the next, of a small text.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    const int rounds = std::atoi(argv[1]);
    const QString path = QString::fromLocal8Bit(argv[2]);
    const std::optional<QString> text = textOfFile(path);
    if (!text) {
        return 2;
    }
    compare(
        "read", rounds, [&] { use(textOfFile(path)->constData()); },
        [&] { use(contentsOfRegularFile(path)->constData()); });
    const QByteArray bytes = text->toUtf8();
    const auto encode = [&] {
        QByteArray body;
        appendUtf8(body, *text);
        use(body.constData());
    };
    compare("encode", rounds, encode, [&] {
        QByteArray body(bytes.size(), Qt::Uninitialized);
        std::memcpy(body.data(), bytes.constData(), static_cast<size_t>(bytes.size()));
        use(body.constData());
    });
    const auto lookForWords = [&] { use(withoutLongHangReport(*text).constData()); };
    compare("rules", rounds, lookForWords, [&] {
        // Each byte of the text looked at once.
        use(std::memchr(text->constData(), '\1', static_cast<size_t>(text->size()) * sizeof(QChar)));
    });
    return 0;
}

// What a text costs on its way from a file to the body of a request, beside the least that this could cost.
#include "base/TextFile.h"
#include "base/Utf8.h"
#include "report/ReportText.h"

#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// A small text would lie in the processor's cache from the step before, and a large one would not.
void emptyCache()
{
    static std::vector<char> other(size_t(256) << 20);
    std::memset(other.data(), ++other.front(), other.size());
}

/// Milliseconds of the processor's time, so that what else the machine does is not counted.
double milliseconds(const std::function<void()> &work)
{
    const auto now = [] {
        timespec time = {};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
    };
    emptyCache();
    const double begin = now();
    work();
    return now() - begin;
}

/// Keeps the compiler from leaving out work whose result nobody looks at.
void use(const void *result)
{
    asm volatile("" : : "r"(result) : "memory");
}

void useNumber(qsizetype result)
{
    asm volatile("" : : "r"(result));
}

/// A step of a text's way, and the least work that its result could be had for.
struct Step {
    const char *name;
    std::function<void()> ours;
    std::function<void()> least;
};

std::vector<Step> stepsOf(const QString &path, const QString &text, const QByteArray &bytes)
{
    const auto encode = [&text] {
        QByteArray body;
        appendUtf8(body, text);
        use(body.constData());
    };
    const auto copy = [&bytes] {
        QByteArray body(bytes.size(), Qt::Uninitialized);
        std::memcpy(body.data(), bytes.constData(), static_cast<size_t>(bytes.size()));
        use(body.constData());
    };
    const auto lookAtEachByte = [&text] {
        use(std::memchr(text.constData(), '\1', static_cast<size_t>(text.size()) * sizeof(QChar)));
    };
    return {{"read", [path] { use(textOfFile(path)->constData()); },
             [path] { use(contentsOfRegularFile(path)->constData()); }},
            {"encode", encode, copy},
            {"rules", [&text] { use(withoutLongHangReport(text).constData()); }, lookAtEachByte},
            {"length", [&text] { useNumber(utf8Length(text)); }, lookAtEachByte}};
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        std::fputs("usage: text-bench ROUNDS FILE...\n"
                   "Prints for each step its name and, file by file, its milliseconds and those of the least work.\n",
                   stderr);
        return 2;
    }
    // Memory that nobody has used yet is what a program meets that reads one report. The allocator would keep what one
    // round has used for the next, of a small text.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    std::vector<QString> texts;
    std::vector<QByteArray> bytes;
    for (int index = 2; index < argc; ++index) {
        texts.push_back(textOfFile(QString::fromLocal8Bit(argv[index])).value());
        bytes.push_back(texts.back().toUtf8());
    }
    std::map<std::string, std::vector<std::vector<double>>> took;
    for (int round = std::atoi(argv[1]); round > 0; --round) {
        for (size_t file = 0; file < texts.size(); ++file) {
            for (const Step &step : stepsOf(QString::fromLocal8Bit(argv[file + 2]), texts[file], bytes[file])) {
                std::vector<std::vector<double>> &times = took[step.name];
                times.resize(2 * texts.size());
                times[2 * file].push_back(milliseconds(step.ours));
                times[2 * file + 1].push_back(milliseconds(step.least));
            }
        }
    }
    for (const auto &[name, times] : took) {
        std::printf("%s", name.c_str());
        for (const std::vector<double> &values : times) {
            std::printf(" %.3f", median(values));
        }
        std::printf("\n");
    }
    return 0;
}

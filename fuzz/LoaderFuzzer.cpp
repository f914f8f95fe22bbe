// Loading a crash log with the application's own logs, against a second reading of the rules. The input says what five
// files hold; their lengths are drawn from around the bounds that the rules name.
#include "fuzz/ReferenceText.h"
#include "fuzz/Require.h"
#include "support/RecordingPlatform.h"
#include "support/SampleHome.h"

#include <QDir>
#include <QFile>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

/// A file's bytes; nothing where there is no file.
using Content = std::optional<std::string>;

struct Input {
    std::string fileName;
    bool silent = false;
    Content crashLog;
    std::array<Content, 4> logs; ///< In the order in which they are appended.
};

constexpr std::array<const char *, 4> kSuffixes = {".1.log", ".task.1.log", ".2.log", ".task.2.log"};
constexpr std::array<const char16_t *, 4> kHeaders = {u"\nLog 1:\n", u"\nTask Log 1:\n", u"\nLog 2:\n",
                                                      u"\nTask Log 2:\n"};
constexpr std::array<std::size_t, 4> kBounds = {1'048'567, 1'048'562, 1'048'567, 1'048'562};
constexpr std::size_t kCeiling = 1'048'576;
constexpr std::size_t kLongestHangReport = 50'000;

/// One, two and three bytes for a code unit, and four bytes for two.
constexpr std::array<const char *, 4> kFillers = {"x", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"};
constexpr std::array kMarkers = {"hang",       "Duration:", "com.unsanity.ape", "net.culater.SIMBL",
                                 "\nLog 1:\n", "change",    "\xEF\xBB\xBF",     "\xE2\x82"};

std::size_t unitsIn(std::string_view bytes)
{
    const auto text = reference::decoded(bytes);
    return text ? text->size() : 0;
}

/// Many times the same, by doubling.
std::string repeated(const std::string &text, std::size_t count)
{
    std::string all = count == 0 ? "" : text;
    all.reserve(text.size() * count);
    while (all.size() < text.size() * count) {
        all.append(all, 0, text.size() * count - all.size());
    }
    return all;
}

/// A text that brings the running length near a bound, or a short one.
std::string contentFrom(FuzzedDataProvider &input, std::size_t running)
{
    std::string content;
    for (auto left = input.ConsumeIntegralInRange<int>(0, 4); left > 0; --left) {
        // Bytes of any kind are no text, mostly, and then nothing else of the file matters.
        const auto choice = input.ConsumeIntegralInRange<std::size_t>(0, kMarkers.size());
        content += choice < kMarkers.size() ? kMarkers.at(choice) : input.ConsumeRandomLengthString(12);
    }
    constexpr std::array<std::size_t, 5> kGoals = {kLongestHangReport, kBounds[0], kBounds[1], kCeiling, kCeiling / 2};
    const auto choice = input.ConsumeIntegralInRange<std::size_t>(0, kGoals.size() + 2);
    if (choice < 3) {
        return content;
    }
    const std::size_t goal = kGoals.at(choice - 3) + input.ConsumeIntegralInRange<std::size_t>(0, 6) - 3;
    const std::string filler = kFillers.at(input.ConsumeIntegralInRange<std::size_t>(0, kFillers.size() - 1));
    const std::size_t present = running + unitsIn(content);
    const std::size_t missing = goal > present ? (goal - present) / unitsIn(filler) : 0;
    const std::string filled = repeated(filler, missing);
    return input.ConsumeBool() ? content + filled : filled + content;
}

/// Where the input has come to its end, all that is drawn from it is 0: then every file is there.
Input inputFrom(FuzzedDataProvider &bytes)
{
    Input input;
    for (auto left = bytes.ConsumeIntegralInRange<int>(0, 6); left > 0; --left) {
        input.fileName += bytes.PickValueInArray({"a", "_", ".", " ", "%1", "\xC3\xA9", "-", "\n"});
    }
    input.fileName += ".crash";
    input.silent = bytes.ConsumeBool();
    std::size_t running = 0;
    const auto next = [&bytes, &running]() -> Content {
        if (bytes.ConsumeIntegralInRange(0, 3) == 3) {
            return std::nullopt;
        }
        std::string content = contentFrom(bytes, running);
        running += unitsIn(content);
        return content;
    };
    input.crashLog = bytes.ConsumeIntegralInRange(0, 31) == 31 ? std::nullopt : Content(contentFrom(bytes, 0));
    running = input.crashLog ? unitsIn(*input.crashLog) : 0;
    for (Content &log : input.logs) {
        log = next();
    }
    return input;
}

std::string applicationOf(const std::string &fileName)
{
    const std::size_t underscore = fileName.find('_');
    return underscore == std::string::npos ? "This application" : fileName.substr(0, underscore);
}

bool contains(const std::u16string &text, std::u16string_view words)
{
    return text.find(words) != std::u16string::npos;
}

/// "Log 1" of "\nLog 1:\n".
QString titleIn(std::u16string_view header)
{
    return QString::fromStdU16String(std::u16string(header.substr(1, header.size() - 3)));
}

struct Report {
    std::u16string text;
    QList<platform::AppendedLog> appendedLogs;
};

Report expectedReport(const Input &input, const std::u16string &crashLog)
{
    Report expected = {.text = crashLog, .appendedLogs = {}};
    std::u16string &report = expected.text;
    if (contains(report, u"hang") && contains(report, u"Duration:") && report.size() > kLongestHangReport) {
        report.resize(kLongestHangReport);
    }
    std::size_t running = report.size();
    for (std::size_t i = 0; i < input.logs.size(); ++i) {
        const auto log = input.logs[i] ? reference::decoded(*input.logs[i]) : std::nullopt;
        if (log && running < kCeiling && log->size() + running < kBounds[i]) {
            // The title stands behind the line feed that the header begins with.
            const auto offset = static_cast<qsizetype>(report.size() + 1);
            expected.appendedLogs.append({.title = titleIn(kHeaders[i]), .offset = offset});
            report += kHeaders[i] + *log;
            running += log->size();
        }
    }
    return expected;
}

Calls::List expectedCalls(const Input &input, const std::u16string &crashLog)
{
    const std::string message =
        " / This software causes incompatibilities with Korvale products and we recommend disabling it.";
    Calls::List calls;
    if (!input.silent && contains(crashLog, u"com.unsanity.ape")) {
        calls.push_back("alert Unsanity Application Enhancer is installed" + message);
    }
    if (!input.silent && contains(crashLog, u"net.culater.SIMBL")) {
        calls.push_back("alert SIMBL is installed" + message);
    }
    calls.emplace_back("logText setString");
    return calls;
}

/// The files of one input, for as long as the object lives.
class Files
{
public:
    Files(SampleHome &home, const Input &input)
    {
        crashLog = home.path(QString::fromStdString(input.fileName));
        if (input.crashLog) {
            written << home.write(QString::fromStdString(input.fileName), QByteArray::fromStdString(*input.crashLog));
        }
        for (std::size_t i = 0; i < input.logs.size(); ++i) {
            if (input.logs[i]) {
                written << home.writeApplicationLog(
                    QString::fromStdString(applicationOf(input.fileName) + kSuffixes[i]),
                    QByteArray::fromStdString(*input.logs[i]));
            }
        }
    }
    Files(const Files &) = delete;
    Files &operator=(const Files &) = delete;
    ~Files()
    {
        for (const QString &file : std::as_const(written)) {
            QFile::remove(file);
        }
    }

    QString crashLog;

private:
    QStringList written;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static SampleHome home;
    FuzzedDataProvider bytes(data, size);
    const Input input = inputFrom(bytes);
    const Files files(home, input);
    RecordingPlatform world;
    world.controller.init();

    const bool loaded = world.controller.loadLogSilent(files.crashLog, input.silent);

    const auto crashLog = input.crashLog ? reference::decoded(*input.crashLog) : std::nullopt;
    require(loaded == crashLog.has_value(), "a log of valid UTF-8 is loaded, and no other");
    require(world.controller.logOpened == loaded, "it is known that a log is loaded");
    if (!loaded) {
        require(world.calls.taken().empty() && !world.controller.appName, "a failure changes nothing");
        return 0;
    }
    const Report report = expectedReport(input, *crashLog);
    require(reference::units(world.logText.text) == report.text, "the report is what it should be");
    require(world.reportListener.report.appendedLogs == report.appendedLogs,
            "the window hears of each log that was appended, and where its title stands");
    require(world.calls.taken() == expectedCalls(input, *crashLog), "the alerts are those of the markers, in order");
    require(world.controller.appName == QString::fromStdString(applicationOf(input.fileName)),
            "the application's name");
    return 0;
}

// What the command line asks for, against a second reading of its rules that crosses off words one by one. The input is
// a list of words, most of them from a table.
#include "fuzz/Require.h"
#include "report/CommandLine.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

constexpr std::size_t kMaxWords = 12;
constexpr std::array kKnownWords = {"-remotename", "-log", "--",    "-",    "-x",         "--log", "-Log",
                                    "-logs",       "",     "anvil", "/a_b", "remotename", " -log"};

Words wordsFrom(FuzzedDataProvider &input)
{
    Words words(input.ConsumeIntegralInRange<std::size_t>(0, kMaxWords));
    for (std::string &word : words) {
        const auto choice = input.ConsumeIntegralInRange<std::size_t>(0, kKnownWords.size());
        word = choice < kKnownWords.size() ? kKnownWords.at(choice) : input.ConsumeRandomLengthString(8);
        // The program's words are texts already; what is invalid in them does not matter here.
        word = QString::fromUtf8(word.data(), static_cast<qsizetype>(word.size())).toStdString();
    }
    return words;
}

/// The place of the first such word; the number of words when there is none.
std::size_t placeOf(const std::string &word, const Words &words)
{
    std::size_t place = 0;
    while (place < words.size() && words[place] != word) {
        ++place;
    }
    return place;
}

bool beginsWithMinus(const std::string &word)
{
    return !word.empty() && word.front() == '-';
}

/// Crosses off what launching takes, then every key with its value, and then gives what is left.
Words filesOf(const Words &words, bool launches)
{
    std::vector<bool> crossed(words.size(), false);
    if (!words.empty()) {
        crossed[0] = true;
    }
    for (const char *option : {"-remotename", "-log"}) {
        const std::size_t place = placeOf(option, words);
        for (std::size_t at = place; launches && at < words.size() && at <= place + 1; ++at) {
            crossed[at] = true;
        }
    }
    Words left;
    for (std::size_t at = 0; at < words.size(); ++at) {
        if (!crossed[at]) {
            left.push_back(words[at]);
        }
    }
    Words files;
    bool wantsValue = false;
    bool onlyFiles = false;
    for (const std::string &word : left) {
        if (onlyFiles) {
            files.push_back(word);
        } else if (word == "--") {
            onlyFiles = true;
        } else if (beginsWithMinus(word)) {
            wantsValue = true;
        } else if (!std::exchange(wantsValue, false)) {
            files.push_back(word);
        }
    }
    return files;
}

std::optional<QString> valueOf(const char *option, const Words &words)
{
    const std::size_t value = placeOf(option, words) + 1;
    return value < words.size() ? std::optional(QString::fromStdString(words[value])) : std::nullopt;
}

QStringList listOf(const Words &words)
{
    QStringList list;
    for (const std::string &word : words) {
        list.append(QString::fromStdString(word));
    }
    return list;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const Words words = wordsFrom(input);
    const bool launches =
        words.size() >= 5 && placeOf("-remotename", words) < words.size() && placeOf("-log", words) < words.size();

    LaunchOptions expected;
    if (launches) {
        expected = {.remoteName = valueOf("-remotename", words), .logPath = valueOf("-log", words)};
    }
    require(launchOptions(listOf(words)) == expected, "both options together, and the first of each, are taken");
    require(openedFiles(listOf(words)) == listOf(filesOf(words, launches)), "what is neither key nor value is opened");
    return 0;
}

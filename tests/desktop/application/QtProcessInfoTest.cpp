// The command line as the process was started with it, and texts that nobody else produces.
#include "desktop/application/QtProcessInfo.h"

#include "support/PrintQt.h"

#include <QRegularExpression>
#include <QSet>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

QStringList argumentsOf(std::vector<std::string> words)
{
    std::vector<char *> vector;
    for (std::string &word : words) {
        vector.push_back(word.data());
    }
    const int count = static_cast<int>(vector.size());
    vector.push_back(nullptr);
    return QtProcessInfo(count, vector.data()).arguments();
}

} // namespace

TEST(QtProcessInfo, GivesTheArgumentsWithTheProgramFirst)
{
    EXPECT_EQ(argumentsOf({"/usr/bin/program", "-log", "", "a b"}),
              (QStringList{u"/usr/bin/program"_s, u"-log"_s, u""_s, u"a b"_s}));
}

TEST(QtProcessInfo, KeepsOptionsThatTheToolkitKnows)
{
    EXPECT_EQ(
        argumentsOf({"program", "-style", "fusion", "-platform", "none", "-geometry", "1x1"}),
        (QStringList{u"program"_s, u"-style"_s, u"fusion"_s, u"-platform"_s, u"none"_s, u"-geometry"_s, u"1x1"_s}));
}

TEST(QtProcessInfo, ReadsArgumentsAsUtf8)
{
    EXPECT_EQ(argumentsOf({"program", "\xc3\xa4 \xe6\x97\xa5 \xf0\x9f\x98\x80"}),
              (QStringList{u"program"_s, u"\u00e4 \u65e5 \U0001F600"_s}));
}

TEST(QtProcessInfo, KeepsAByteOrderMarkAtTheStartOfAnArgument)
{
    EXPECT_EQ(argumentsOf({"program", "-log", "\xef\xbb\xbfHarbour_1.crash"}),
              (QStringList{u"program"_s, u"-log"_s, u"\uFEFFHarbour_1.crash"_s}));
}

TEST(QtProcessInfo, AProcessWithoutArgumentsHasNone)
{
    EXPECT_EQ(argumentsOf({}), QStringList{});
}

TEST(QtProcessInfo, CopiesTheArguments)
{
    std::string word = "before";
    char *vector[] = {word.data(), nullptr};
    const QtProcessInfo info(1, vector);

    word = "behind";

    EXPECT_EQ(info.arguments(), QStringList{u"before"_s});
}

TEST(QtProcessInfo, AUniqueTextIsAUuidWithoutBraces)
{
    static const QRegularExpression uuid(u"^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$"_s);

    EXPECT_TRUE(uuid.match(QtProcessInfo(0, nullptr).globallyUniqueString()).hasMatch());
}

TEST(QtProcessInfo, EveryUniqueTextIsNew)
{
    const QtProcessInfo info(0, nullptr);
    QSet<QString> texts;
    for (int count = 0; count < 1000; ++count) {
        texts.insert(info.globallyUniqueString());
    }

    EXPECT_EQ(texts.size(), 1000);
}

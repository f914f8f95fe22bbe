// The path utility, asked from two threads at once with the lookups of the system.
#include "paths/KVLocalPaths.h"
#include "support/PrintQt.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

using Answer = std::optional<QString>;

/// Everything but randomString and what calls it, which share the process's generator.
std::vector<Answer> everyAnswer()
{
    std::vector<Answer> answers;
    for (const auto ask :
         {KVLocalPaths::applicationDirectory, KVLocalPaths::adminApplicationDirectory, KVLocalPaths::documentDirectory,
          KVLocalPaths::libraryDirectory, KVLocalPaths::prefsDirectory, KVLocalPaths::cacheDirectory,
          KVLocalPaths::appSupportDirectory, KVLocalPaths::logDirectory}) {
        answers.push_back(ask(true));
        answers.push_back(ask(false));
    }
    for (const auto ask :
         {KVLocalPaths::darwinCacheDirectory, KVLocalPaths::userDirectory, KVLocalPaths::username,
          KVLocalPaths::trashDirectory, KVLocalPaths::tempDirectory, KVLocalPaths::currentConsoleUser}) {
        answers.push_back(ask());
    }
    const auto yesOrNo = [](bool yes) { return yes ? u"yes"_s : u"no"_s; };
    answers.push_back(yesOrNo(KVLocalPaths::isPathSystemDirectory(u"/usr/local"_s)));
    answers.push_back(yesOrNo(KVLocalPaths::isPathSystemDirectoryExactMatch(u"/no such"_s, true)));
    answers.push_back(yesOrNo(KVLocalPaths::isPathOnTimeMachineVolume(u"/Volumes/a/Backups.backupdb"_s)));
    return answers;
}

} // namespace

TEST(KVLocalPaths, TwoThreadsCallingEverythingButRandomStringAtOnceGetTheSameAnswers)
{
    constexpr int kRounds = 200;
    const std::vector<Answer> expected = everyAnswer();
    const auto differingRounds = [&expected](int *differing) {
        for (int round = 0; round < kRounds; ++round) {
            if (everyAnswer() != expected || KVLocalPaths::uuid() == KVLocalPaths::uuid()) {
                ++*differing;
            }
        }
    };
    int differingInFirst = 0;
    int differingInSecond = 0;

    std::thread first(differingRounds, &differingInFirst);
    std::thread second(differingRounds, &differingInSecond);
    first.join();
    second.join();

    EXPECT_EQ(differingInFirst, 0);
    EXPECT_EQ(differingInSecond, 0);
}

// What the command line asks for.
#include "report/CommandLine.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QStringList commandLine(const QStringList &words)
{
    return QStringList{u"/usr/bin/korvale-crash-reporter"_s} + words;
}

} // namespace

TEST(CommandLine, BothOptionsGiveTheirValues)
{
    EXPECT_EQ(launchOptions(commandLine({u"-remotename"_s, u"m"_s, u"-log"_s, u"/l"_s})),
              (LaunchOptions{.remoteName = u"m"_s, .logPath = u"/l"_s}));
}

TEST(CommandLine, FewerThanFiveElementsGiveNothing)
{
    EXPECT_EQ(launchOptions(commandLine({u"-remotename"_s, u"-log"_s, u"/l"_s})), LaunchOptions());
    EXPECT_EQ(launchOptions({}), LaunchOptions());
}

TEST(CommandLine, OneOptionAloneGivesNothing)
{
    EXPECT_EQ(launchOptions(commandLine({u"-log"_s, u"/l"_s, u"-more"_s, u"words"_s})), LaunchOptions());
    EXPECT_EQ(launchOptions(commandLine({u"-remotename"_s, u"m"_s, u"-more"_s, u"words"_s})), LaunchOptions());
}

TEST(CommandLine, OptionsAreMatchedExactly)
{
    EXPECT_EQ(launchOptions(commandLine({u"-RemoteName"_s, u"m"_s, u"--log"_s, u"/l"_s})), LaunchOptions());
}

TEST(CommandLine, RemoteNameMayItselfBeAnOption)
{
    EXPECT_EQ(launchOptions(commandLine({u"-remotename"_s, u"-log"_s, u"/l"_s, u"x"_s})),
              (LaunchOptions{.remoteName = u"-log"_s, .logPath = u"/l"_s}));
    EXPECT_EQ(launchOptions(commandLine({u"-remotename"_s, u"-style"_s, u"-log"_s, u"/l"_s})),
              (LaunchOptions{.remoteName = u"-style"_s, .logPath = u"/l"_s}));
}

TEST(CommandLine, EmptyValuesAreValues)
{
    EXPECT_EQ(launchOptions(commandLine({u"-remotename"_s, QString(), u"-log"_s, QString()})),
              (LaunchOptions{.remoteName = QString(), .logPath = QString()}));
}

TEST(CommandLine, WordsOutsideOfPairsAreOpenedFiles)
{
    EXPECT_EQ(openedFiles(commandLine({u"/first"_s, u"-key"_s, u"value"_s, u"second"_s, u"-last"_s})),
              (QStringList{u"/first"_s, u"second"_s}));
    EXPECT_EQ(openedFiles(commandLine({u"-remotename"_s, u"m"_s, u"-log"_s, u"/l"_s})), QStringList());
    EXPECT_EQ(openedFiles({}), QStringList());
}

TEST(CommandLine, WordsOfTheLaunchDecisionAreNoOpenedFiles)
{
    EXPECT_EQ(openedFiles(commandLine({u"-verbose"_s, u"-log"_s, u"/l"_s, u"-remotename"_s, u"m"_s})), QStringList());
    EXPECT_EQ(openedFiles(commandLine({u"-verbose"_s, u"-log"_s, u"/l"_s, u"-remotename"_s, u"m"_s, u"/value"_s})),
              QStringList())
        << "of what is left, -verbose takes the next word";
    EXPECT_EQ(openedFiles(commandLine({u"/before"_s, u"-log"_s, u"/l"_s, u"/between"_s, u"-remotename"_s, u"m"_s})),
              (QStringList{u"/before"_s, u"/between"_s}));
    EXPECT_EQ(openedFiles(commandLine({u"-remotename"_s, u"-log"_s, u"/l"_s, u"/file"_s})), (QStringList{u"/file"_s}))
        << "the option that is also the remote name counts once";
}

TEST(CommandLine, WordsOfAnIgnoredLaunchDecisionAreKeysLikeOthers)
{
    EXPECT_EQ(openedFiles(commandLine({u"-log"_s, u"/l"_s, u"/file"_s})), (QStringList{u"/file"_s}));
    EXPECT_EQ(openedFiles(commandLine({u"-remotename"_s, u"-log"_s, u"/l"_s})), QStringList());
}

TEST(CommandLine, RepeatedOptionIsAKeyLikeOthers)
{
    EXPECT_EQ(
        openedFiles(commandLine({u"-remotename"_s, u"m"_s, u"-log"_s, u"/l"_s, u"-log"_s, u"/other"_s, u"/file"_s})),
        (QStringList{u"/file"_s}));
}

TEST(CommandLine, KeyDoesNotTakeAnotherKeyAsItsValue)
{
    EXPECT_EQ(openedFiles(commandLine({u"-a"_s, u"-b"_s, u"value"_s, u"/file"_s})), (QStringList{u"/file"_s}));
    EXPECT_EQ(openedFiles(commandLine({u"-a"_s, u""_s, u"/file"_s})), (QStringList{u"/file"_s}));
}

TEST(CommandLine, EverythingAfterALoneDoubleDashIsAFile)
{
    EXPECT_EQ(openedFiles(commandLine({u"-a"_s, u"--"_s, u"-b"_s, u"--"_s, u"/file"_s})),
              (QStringList{u"-b"_s, u"--"_s, u"/file"_s}));
    EXPECT_EQ(openedFiles(commandLine({u"--"_s, u"-log"_s, u"/l"_s, u"-remotename"_s, u"m"_s, u"-x"_s})),
              (QStringList{u"-x"_s}))
        << "the launch decision looks for its words everywhere";
}

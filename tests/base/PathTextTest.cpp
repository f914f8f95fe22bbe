// Rules for paths as texts.
#include "base/PathText.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(PathText, LastComponentIgnoresTrailingSeparators)
{
    EXPECT_EQ(lastPathComponent(u"/a/b"_s), u"b"_s);
    EXPECT_EQ(lastPathComponent(u"/a/b/"_s), u"b"_s);
    EXPECT_EQ(lastPathComponent(u"/a/b///"_s), u"b"_s);
    EXPECT_EQ(lastPathComponent(u"b"_s), u"b"_s);
}

TEST(PathText, LastComponentOfTheRootIsASeparator)
{
    EXPECT_EQ(lastPathComponent(u"/"_s), u"/"_s);
    EXPECT_EQ(lastPathComponent(u"//"_s), u"/"_s);
}

TEST(PathText, LastComponentOfAnEmptyPathIsEmpty)
{
    EXPECT_EQ(lastPathComponent(QString()), QString());
}

TEST(PathText, ComponentsOfAnAbsolutePathBeginWithItsRoot)
{
    EXPECT_EQ(pathComponents(u"/a//b/"_s), (QStringList{u"/"_s, u"a"_s, u"b"_s}));
    EXPECT_EQ(pathComponents(u"a/b"_s), (QStringList{u"a"_s, u"b"_s}));
    EXPECT_EQ(pathComponents(QString()), QStringList());
}

TEST(PathText, JoiningPutsExactlyOneSeparatorAtTheSeam)
{
    EXPECT_EQ(byAppendingPathComponent(u"/a"_s, u"b"_s), u"/a/b"_s);
    EXPECT_EQ(byAppendingPathComponent(u"/a/"_s, u"b"_s), u"/a/b"_s);
    EXPECT_EQ(byAppendingPathComponent(u"/a"_s, u"/b"_s), u"/a/b"_s);
    EXPECT_EQ(byAppendingPathComponent(u"/a//"_s, u"//b"_s), u"/a/b"_s);
    EXPECT_EQ(byAppendingPathComponent(u"/"_s, u"b"_s), u"/b"_s);
}

TEST(PathText, JoiningAnEmptyComponentGivesThePathUnchanged)
{
    EXPECT_EQ(byAppendingPathComponent(u"/a/"_s, QString()), u"/a/"_s);
}

TEST(PathText, JoiningAComponentOfSeparatorsAloneGivesThePathUnchanged)
{
    EXPECT_EQ(byAppendingPathComponent(u"/a"_s, u"//"_s), u"/a"_s);
}

TEST(PathText, JoiningToAnEmptyPathGivesTheComponent)
{
    EXPECT_EQ(byAppendingPathComponent(QString(), u"b/c"_s), u"b/c"_s);
    EXPECT_EQ(byAppendingPathComponent(QString(), u"/b"_s), u"/b"_s);
}

TEST(PathText, JoiningLeavesSeparatorsAwayFromTheSeamAlone)
{
    EXPECT_EQ(byAppendingPathComponent(u"//a//b"_s, u"c//d/"_s), u"//a//b/c//d/"_s);
}

TEST(PathText, ComponentsOfTheRootAreItsSeparator)
{
    EXPECT_EQ(pathComponents(u"/"_s), QStringList(u"/"_s));
    EXPECT_EQ(pathComponents(u"//"_s), QStringList(u"/"_s));
}

TEST(PathText, JoiningToNothingGivesNothing)
{
    EXPECT_EQ(byAppendingPathComponent(std::nullopt, u"b"_s), std::nullopt);
    EXPECT_EQ(byAppendingPathComponent(std::nullopt, QString()), std::nullopt);
}

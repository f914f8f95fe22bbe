// What becomes of a settings file that is changed between its reading and its writing, and what is said of one that
// cannot be used.
#include "desktop/application/SettingsFile.h"

#include "support/LogLines.h"
#include "support/PrintQt.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString kRules = u"korvale.settings.info=true"_s;

class SettingsFileTest : public testing::Test
{
protected:
    QString path() const { return folder.filePath(u"settings.conf"_s); }

    void write(const QString &name, const QByteArray &content) const
    {
        QFile file(folder.filePath(name));
        ASSERT_TRUE(file.open(QFile::WriteOnly));
        ASSERT_EQ(file.write(content), content.size());
    }

    QByteArray stored() const
    {
        QFile file(path());
        return file.open(QFile::ReadOnly) ? file.readAll() : "no file"_ba;
    }

    /// A file that has been read under its lock, and of which nothing else is left to be done but the writing.
    SettingsFile readFile() const
    {
        std::optional<SettingsFile> file = SettingsFile::at(path());
        EXPECT_TRUE(file && file->lock() && file->read());
        return std::move(*file);
    }

    void expectNothingElseIsThere() const
    {
        EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList(u"settings.conf"_s));
    }

    QString said(const QString &what) const { return u"korvale.settings: \"%1\"%2"_s.arg(path(), what); }

    const QTemporaryDir folder;
};

} // namespace

TEST_F(SettingsFileTest, WhatIsPutIntoTheEmptyPlaceMeanwhileStays)
{
    const SettingsFile file = readFile();
    write(u"settings.conf"_s, "another's");

    EXPECT_FALSE(file.replace("ours"));

    EXPECT_EQ(stored(), "another's");
    expectNothingElseIsThere();
}

TEST_F(SettingsFileTest, AFileThatIsPutInPlaceOfTheOneThatWasReadStays)
{
    write(u"settings.conf"_s, "before");
    const SettingsFile file = readFile();
    write(u"another"_s, "behind");
    ASSERT_EQ(rename(qPrintable(folder.filePath(u"another"_s)), qPrintable(path())), 0);

    EXPECT_FALSE(file.replace("ours"));

    EXPECT_EQ(stored(), "behind");
    expectNothingElseIsThere();
}

TEST_F(SettingsFileTest, WhatIsWrittenIntoTheFileMeanwhileStays)
{
    write(u"settings.conf"_s, "before");
    const SettingsFile file = readFile();
    write(u"settings.conf"_s, "before and after");

    EXPECT_FALSE(file.replace("ours"));

    EXPECT_EQ(stored(), "before and after");
    expectNothingElseIsThere();
}

TEST_F(SettingsFileTest, AFileThatIsTakenAwayMeanwhileIsNotPutThereAgain)
{
    write(u"settings.conf"_s, "before");
    const SettingsFile file = readFile();
    ASSERT_TRUE(QFile::remove(path()));

    EXPECT_FALSE(file.replace("ours"));

    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList());
}

TEST_F(SettingsFileTest, WhatIsAsItWasReadIsReplaced)
{
    write(u"settings.conf"_s, "before");

    EXPECT_TRUE(readFile().replace("ours"));

    EXPECT_EQ(stored(), "ours");
    expectNothingElseIsThere();
}

TEST_F(SettingsFileTest, WhyAFileThatHasChangedStaysIsSaid)
{
    const SettingsFile file = readFile();
    write(u"settings.conf"_s, "another's");
    const LogLines log(kRules);

    EXPECT_FALSE(file.replace("ours"));

    EXPECT_EQ(LogLines::text(), said(u" is not replaced: it has changed since it was read"_s));
}

TEST_F(SettingsFileTest, WhyTheNewFileIsNotMadeIsSaid)
{
    const SettingsFile file = readFile();
    ASSERT_TRUE(QDir(folder.path()).mkdir(u"settings.conf.korvale-new"_s));
    const LogLines log(kRules);

    EXPECT_FALSE(file.replace("ours"));

    EXPECT_EQ(LogLines::text(), said(u" is not replaced: File exists"_s));
}

TEST_F(SettingsFileTest, WhyTooMuchIsNotWrittenIsSaid)
{
    const SettingsFile file = readFile();
    const LogLines log(kRules);

    EXPECT_FALSE(file.replace(QByteArray(65537, ' ')));

    EXPECT_EQ(LogLines::text(), said(u" is not replaced: File too large"_s));
}

TEST_F(SettingsFileTest, ThatAFileIsTooLargeIsSaidOfIt)
{
    write(u"settings.conf"_s, QByteArray(65537, ' '));
    std::optional<SettingsFile> file = SettingsFile::at(path());
    ASSERT_TRUE(file);
    const LogLines log(kRules);

    EXPECT_FALSE(file->read());

    EXPECT_EQ(LogLines::text(), said(u" is not taken: it cannot be read as a whole, or has more than 64 KiB"_s));
}

TEST_F(SettingsFileTest, WhyAFileIsNotReadIsSaid)
{
    std::optional<SettingsFile> file = SettingsFile::at(path());
    ASSERT_TRUE(file);
    ASSERT_TRUE(QFile::link(u"settings.conf"_s, path()));
    const LogLines log(kRules);

    EXPECT_FALSE(file->read());

    EXPECT_EQ(LogLines::text(), said(u" is not taken: Too many levels of symbolic links"_s));
}

TEST_F(SettingsFileTest, ThatItsFolderIsLockedIsSaid)
{
    std::optional<SettingsFile> other = SettingsFile::at(path());
    std::optional<SettingsFile> file = SettingsFile::at(path());
    ASSERT_TRUE(other && file && other->lock());
    const LogLines log(kRules);

    EXPECT_FALSE(file->lock());

    EXPECT_EQ(LogLines::text(), said(u" has a folder that is not locked: Resource temporarily unavailable"_s));
}

TEST_F(SettingsFileTest, OfAFolderThatIsNotThereYetNothingIsSaid)
{
    const LogLines log(kRules);

    EXPECT_FALSE(SettingsFile::at(folder.filePath(u"none/settings.conf"_s)));

    EXPECT_EQ(LogLines::text(), QString());
}

TEST_F(SettingsFileTest, ThatANameIsLongerThanAnyIsSaid)
{
    const QString tooLong = folder.filePath(QString(256, u'x'));
    const LogLines log(kRules);

    EXPECT_FALSE(SettingsFile::at(tooLong));

    EXPECT_EQ(LogLines::text(), u"korvale.settings: \"%1\" is not taken: File name too long"_s.arg(tooLong));
}

TEST_F(SettingsFileTest, WhereALinkLeadsIsSaidWithItsFolder)
{
    ASSERT_TRUE(QFile::link(u"sub/other.conf"_s, path()));
    const LogLines log(kRules);

    EXPECT_FALSE(SettingsFile::at(path()));

    EXPECT_EQ(LogLines::text(),
              u"korvale.settings: \"%1/sub/other.conf\" is not taken: No such file or directory"_s.arg(folder.path()));
}

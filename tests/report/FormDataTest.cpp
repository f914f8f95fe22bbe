// The multipart body, byte for byte.
#include "support/LimitedMemory.h"
#include "support/RecordingPlatform.h"
#include "support/SampleHome.h"
#include "support/ValuesWithoutText.h"

#include <QUrl>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

/// A type derived from the URL type.
struct BookmarkUrl : QUrl {
    using QUrl::QUrl;
};

class FormData : public testing::Test
{
protected:
    QByteArray bodyOf(const QVariantMap &form, const QString &boundary = u"XYZ"_s)
    {
        const std::optional<QByteArray> body = recording.controller.generateFormDataForBoundary(form, boundary);
        EXPECT_TRUE(body.has_value());
        return body.value_or(QByteArray());
    }

    RecordingPlatform recording;
};

QByteArray textPart(const QByteArray &name, const QByteArray &content)
{
    return "--XYZ\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + content + "\r\n";
}

QByteArray filePart(const QByteArray &name, const QByteArray &filename, const QByteArray &content)
{
    return "--XYZ\r\nContent-Disposition: form-data; name=\"" + name + "\"; filename=\"" + filename
        + "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + content + "\r\n";
}

} // namespace

Q_DECLARE_METATYPE(BookmarkUrl)

TEST_F(FormData, EmptyFormHasABodyOfNoBytes)
{
    EXPECT_EQ(bodyOf({}), QByteArray());
}

TEST_F(FormData, OneTextFieldIs63Bytes)
{
    const QByteArray body = bodyOf({{u"crashlog"_s, u"abc"_s}});

    EXPECT_EQ(body, "--XYZ\r\nContent-Disposition: form-data; name=\"crashlog\"\r\n\r\nabc\r\n");
    EXPECT_EQ(body.size(), 63);
}

TEST_F(FormData, TwoTextFieldsAre121BytesInTheFormsOrderWithoutCloseDelimiter)
{
    const QByteArray body = bodyOf({{u"crashlog"_s, u"abc"_s}, {u"email"_s, u"x"_s}});

    EXPECT_EQ(body, textPart("crashlog", "abc") + textPart("email", "x"));
    EXPECT_EQ(body.size(), 121);
}

TEST_F(FormData, EmptyTextIsTheHeaderBlockFollowedByTheTerminator)
{
    EXPECT_EQ(bodyOf({{u"info"_s, QString()}}), "--XYZ\r\nContent-Disposition: form-data; name=\"info\"\r\n\r\n\r\n");
}

TEST_F(FormData, LineBreaksQuotesAndTheBoundaryInATextAreCopied)
{
    EXPECT_EQ(bodyOf({{u"info"_s, u"a\r\nb\"c\r\n--XYZ\r\n--XYZ--\nd\re"_s}}),
              textPart("info", "a\r\nb\"c\r\n--XYZ\r\n--XYZ--\nd\re"));
}

TEST_F(FormData, QuoteInAFieldNameIsCopied)
{
    EXPECT_EQ(bodyOf({{u"in\"fo"_s, u"x"_s}}), "--XYZ\r\nContent-Disposition: form-data; name=\"in\"fo\"\r\n\r\nx\r\n");
}

TEST_F(FormData, FileUrlIsAFilePartWithItsLastComponentAndBytes)
{
    SampleHome home;
    const QString file = home.write(u"a/crash.log"_s, QByteArray("\0\xFF\r\nbytes", 9));

    EXPECT_EQ(bodyOf({{u"log"_s, QUrl::fromLocalFile(file)}}),
              filePart("log", "crash.log", QByteArray("\0\xFF\r\nbytes", 9)));
}

TEST_F(FormData, FileNameIsCopiedWithoutEscaping)
{
    SampleHome home;
    const QString file = home.write(u"a/cra\"sh %41\n\u00E9.log"_s, "x");

    EXPECT_EQ(bodyOf({{u"log"_s, QUrl::fromLocalFile(file)}}), filePart("log", "cra\"sh %41\n\xC3\xA9.log", "x"));
}

TEST_F(FormData, FileThatCannotBeReadContributesNoBytes)
{
    SampleHome home;
    ASSERT_EQ(::mkfifo(home.path(u"pipe"_s).toUtf8().constData(), 0600), 0);

    EXPECT_EQ(bodyOf({{u"log"_s, QUrl::fromLocalFile(home.path(u"gone.log"_s))}}), filePart("log", "gone.log", ""));
    EXPECT_EQ(bodyOf({{u"log"_s, QUrl::fromLocalFile(home.path(u"pipe"_s))}}), filePart("log", "pipe", ""));
    EXPECT_EQ(recording.calls.taken(), Calls::List());
}

TEST_F(FormData, UrlThatIsNotAFileIsTheBoundaryLineAndTheTerminator)
{
    EXPECT_EQ(bodyOf({{u"link"_s, QUrl(u"https://example.org/a"_s)}}), "--XYZ\r\n\r\n");
}

TEST_F(FormData, ValueOfATypeDerivedFromTheUrlTypeIsATextPart)
{
    QMetaType::registerConverter<BookmarkUrl, QString>([](const BookmarkUrl &url) { return url.toString(); });

    EXPECT_EQ(bodyOf({{u"link"_s, QVariant::fromValue(BookmarkUrl(u"file:///tmp/a/crash.log"_s))}}),
              textPart("link", "file:///tmp/a/crash.log"));
}

TEST_F(FormData, NumberIsItsTextualForm)
{
    EXPECT_EQ(bodyOf({{u"count"_s, 42}}), textPart("count", "42"));
}

TEST_F(FormData, TextBeyondAsciiIsItsUtf8BytesWithoutAMark)
{
    EXPECT_EQ(bodyOf({{u"caf\u00E9"_s, u"\u65E5\u672C \U0001F600\uFEFF"_s}}, u"XYZ"_s),
              textPart("caf\xC3\xA9", "\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80\xEF\xBB\xBF"));
}

TEST_F(FormData, NulCharactersAreCopied)
{
    EXPECT_EQ(bodyOf({{u"crashlog"_s, u"a\0b"_s}}), textPart("crashlog", QByteArray("a\0b", 3)));
}

TEST_F(FormData, HalfASurrogatePairIsTheReplacementCharacterAndLosesNothingElse)
{
    const QString unpaired = u"x"_s + QChar(0xD83D);

    EXPECT_EQ(bodyOf({{u"crashlog"_s, unpaired + u'y'}}), textPart("crashlog", "x\xEF\xBF\xBDy"));
    EXPECT_EQ(bodyOf({{unpaired, u"abc"_s}}), textPart("x\xEF\xBF\xBD", "abc"));
    EXPECT_EQ(bodyOf({{u"a"_s, u"b"_s}}, unpaired),
              "--x\xEF\xBF\xBD\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\nb\r\n");
}

TEST_F(FormData, MemoryThatRunsOutIsLoggedAndThereIsNoBody)
{
    const QString text(qsizetype(16) * 1024 * 1024, QChar(0x2500));
    const LimitedMemory fourMebibytesMore(4 * 1024 * 1024);

    EXPECT_EQ(recording.controller.generateFormDataForBoundary({{u"crashlog"_s, text}}, u"XYZ"_s), std::nullopt);
    EXPECT_EQ(
        recording.calls.taken(),
        (Calls::List{"log Exception in generateFormData:forBoundary. MallocException - there is no memory for the "
                     "body of the request"}));
}

TEST_F(FormData, ExceptionIsLoggedAndThereIsNoBody)
{
    EXPECT_EQ(
        recording.controller.generateFormDataForBoundary({{u"a"_s, u"b"_s}, {u"b"_s, valueWithoutText()}}, u"XYZ"_s),
        std::nullopt);
    EXPECT_EQ(recording.calls.taken(),
              (Calls::List{"log Exception in generateFormData:forBoundary. TestFailure - no textual form"}));
}

TEST_F(FormData, ExceptionOfAnotherKindPassesOn)
{
    EXPECT_THROW(recording.controller.generateFormDataForBoundary({{u"a"_s, valueRaisingAnotherKind()}}, u"XYZ"_s),
                 std::runtime_error);
    EXPECT_EQ(recording.calls.taken(), Calls::List());
}

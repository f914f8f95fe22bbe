// What is an acceptance, row by row.
#include "desktop/transfer/UploadVerdict.h"

#include <gtest/gtest.h>

#include <ostream>

namespace {

/// An empty answer to a report of ten bytes that was sent whole.
constexpr TransferEnd kAccepted = {.completed = true,
                                   .headEnded = true,
                                   .isRedirect = false,
                                   .headIsClear = true,
                                   .isUncut = true,
                                   .bytesToSend = 10,
                                   .bytesSent = 10,
                                   .bytesReceived = 0};

constexpr TransferEnd changed(void (*change)(TransferEnd &))
{
    TransferEnd end = kAccepted;
    change(end);
    return end;
}

struct Row {
    const char *name;
    TransferEnd end;
    Verdict verdict;
    friend void PrintTo(const Row &row, std::ostream *out) { *out << row.name; }
};

class UploadVerdict : public testing::TestWithParam<Row>
{
};

} // namespace

TEST_P(UploadVerdict, IsThatOfItsRow)
{
    EXPECT_EQ(verdictOn(GetParam().end), GetParam().verdict);
}

INSTANTIATE_TEST_SUITE_P(
    , UploadVerdict,
    testing::Values(
        Row{"AnEmptyAnswerToAWholeReport", kAccepted, Verdict::Accepted},
        Row{"AnEmptyAnswerToAnEmptyReport", changed([](TransferEnd &end) { end.bytesToSend = end.bytesSent = 0; }),
            Verdict::Accepted},
        Row{"ARedirect", changed([](TransferEnd &end) { end.isRedirect = true; }), Verdict::Failed},
        Row{"ARedirectWithBytes", changed([](TransferEnd &end) { end.isRedirect = true, end.bytesReceived = 1; }),
            Verdict::Failed},
        Row{"AHeadThatIsUnclear", changed([](TransferEnd &end) { end.headIsClear = false; }), Verdict::Failed},
        Row{"AHeadThatIsUnclearWithBytes",
            changed([](TransferEnd &end) { end.headIsClear = false, end.bytesReceived = 1; }), Verdict::Failed},
        Row{"AByte", changed([](TransferEnd &end) { end.bytesReceived = 1; }), Verdict::Refused},
        Row{"AByteOfATransferThatBrokeOff",
            changed([](TransferEnd &end) { end.completed = false, end.bytesReceived = 1; }), Verdict::Refused},
        Row{"AByteBeforeTheWholeReport", changed([](TransferEnd &end) { end.bytesSent = 9, end.bytesReceived = 1; }),
            Verdict::Refused},
        Row{"ATransferThatBrokeOff", changed([](TransferEnd &end) { end.completed = false; }), Verdict::Failed},
        Row{"NoHead", changed([](TransferEnd &end) { end.headEnded = false; }), Verdict::Failed},
        Row{"AnAnswerThatMayHaveBeenCut", changed([](TransferEnd &end) { end.isUncut = false; }), Verdict::Failed},
        Row{"AnEmptyAnswerBeforeTheLastByte", changed([](TransferEnd &end) { end.bytesSent = 9; }), Verdict::Failed},
        Row{"NothingThatHappened", TransferEnd(), Verdict::Failed}),
    [](const auto &one) { return one.param.name; });

// What is an acceptance: the one decision that ends the program, as a function of what happened.
#include "desktop/transfer/UploadVerdict.h"

Verdict verdictOn(const TransferEnd &end)
{
    if (end.isRedirect || !end.headIsClear) {
        return Verdict::Failed;
    }
    if (end.bytesReceived > 0) {
        return Verdict::Refused;
    }
    if (!end.completed || !end.headEnded || !end.isUncut || end.bytesSent < end.bytesToSend) {
        return Verdict::Failed;
    }
    return Verdict::Accepted;
}

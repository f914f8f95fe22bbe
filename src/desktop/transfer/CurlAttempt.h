// One try of one request on a connection of its own.
#pragma once

#include "desktop/transfer/AddressBook.h"
#include "desktop/transfer/AnswerHead.h"
#include "desktop/transfer/CurlLibrary.h"
#include "desktop/transfer/TransferSettings.h"
#include "desktop/transfer/UploadVerdict.h"
#include "platform/UrlConnection.h"

#include <QByteArray>
#include <QByteArrayView>

#include <array>
#include <functional>
#include <memory>
#include <vector>

/// An easy handle with all its options and everything that libcurl calls back for. What it refers to must outlive it.
class CurlAttempt
{
public:
    /// Takes bytes of the answer's body; gives whether it took them. What is not taken comes again after goOn.
    using Inbox = std::function<bool(QByteArrayView)>;

    /// The proxy is one that the desktop names, or empty.
    CurlAttempt(const CurlLibrary &library, const TransferSettings &settings, const platform::UrlRequest &request,
                const QByteArray &proxy, AddressBook &addressBook, Inbox answerInbox);

    /// What a CurlMulti runs.
    CURL *handle() const { return easy.get(); }
    /// Whether every option could be set; what is not ready must not be run.
    bool isReady() const { return setUp == CURLE_OK; }

    /// The socket of the TCP connection to the host or to its proxy; -1 as long as there is none.
    int connection() const;
    /// Whether a byte of the request may have been sent: from then on there is no other try.
    bool hasBegunRequest() const { return requestBegun; }
    /// Whether a proxy answered, which then is not to be asked again.
    bool hasProxyAnswer() const;
    /// Whether the head of the final answer has come.
    bool isAnswered() const { return head.hasEnded(); }
    /// The bytes of the request's body that have left this process.
    qint64 bytesSent() const;
    /// The bytes of the request that the other side has acknowledged, its head and TLS's own among them.
    qint64 bytesAcknowledged() const;
    /// What happened, when libcurl or a limit has ended the attempt with that result.
    TransferEnd end(CURLcode result) const;
    /// What libcurl and the system say of the result.
    QByteArray reason(CURLcode result) const;

    /// Asks for the bytes that were not taken.
    void goOn();
    /// Lets the connection end, when it is closed, without sending what the system still holds of the request.
    void discard() { discarded = true; }

private:
    struct FreeHandle {
        decltype(&curl_easy_cleanup) free;
        void operator()(CURL *handle) const { free(handle); }
    };
    struct FreeList {
        decltype(&curl_slist_free_all) free;
        void operator()(curl_slist *list) const { free(list); }
    };
    using HeaderList = std::unique_ptr<curl_slist, FreeList>;

    static size_t onRead(char *buffer, size_t size, size_t count, void *self);
    static size_t onHeader(char *line, size_t size, size_t count, void *self);
    static size_t onWrite(char *bytes, size_t size, size_t count, void *self);
    static int onDebug(CURL *easy, curl_infotype type, char *bytes, size_t size, void *self);
    static int onRequest(void *self, char *toIp, char *fromIp, int toPort, int fromPort);
    static curl_socket_t onOpen(void *self, curlsocktype purpose, curl_sockaddr *address);
    static int onClose(void *self, curl_socket_t socket);

    template<typename Value>
    void set(CURLoption option, Value value);
    template<typename Value>
    Value info(CURLINFO what) const;
    bool endsWithConnection() const;
    bool hasSecuredProxy() const;
    void setRequest();
    void setHeaders();
    HeaderList listOf(const std::vector<QByteArray> &lines);
    void setTrust(const QByteArray &authorities);
    void setConnection(const QByteArray &proxy);
    void setCallbacks();

    const CurlLibrary &curl;
    const platform::UrlRequest &request;
    AddressBook &addresses;
    Inbox inbox;
    HeaderList headers;
    HeaderList proxyHeaders;
    std::unique_ptr<CURL, FreeHandle> easy;
    CURLcode setUp = CURLE_OK;                     ///< The first failure to set an option.
    std::array<char, CURL_ERROR_SIZE> detail = {}; ///< Why the attempt failed, as libcurl puts it; may be empty.
    AnswerHead head;
    qint64 taken = 0;              ///< Bytes of the request's body that libcurl has read.
    qint64 received = 0;           ///< Bytes of the answer's body that the inbox has taken.
    qint64 sentBeforeLastByte = 0; ///< What bytesSent was when bytes of the answer came.
    bool requestBegun = false;
    int requestSocket = -1;           ///< That of the connection on which the request has begun.
    qint64 acknowledgedBefore = 0;    ///< Bytes, on that connection, as it has begun.
    bool closeNotified = false;       ///< TLS's own end of the connection has come: the host's, or that of its proxy.
    bool securedBeforeTunnel = false; ///< TLS has spoken before a proxy has answered.
    bool discarded = false;
};

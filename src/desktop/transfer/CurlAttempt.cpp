// One try of one request on a connection of its own.
#include "desktop/transfer/CurlAttempt.h"

#include "desktop/transfer/ConnectionBytes.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <type_traits>
#include <utility>

namespace {

/// What libcurl reads, encrypts and writes in one turn of the event loop: enough to keep a fast network busy, and done
/// within a millisecond.
constexpr long kUploadBufferSize = 512L * 1024;

/// No limit, in seconds: libcurl's counts the TLS handshake in, which may be slow as long as it moves.
constexpr long kNoConnectTimeout = INT_MAX / 1000;

/// An alert of level "warning" that closes the connection in order (RFC 8446 section 6).
constexpr QByteArrayView kCloseNotify("\x01\x00", 2);

/// Whether the socket is connected, which libcurl tells only when the TLS handshake is done.
bool hasPeer(int socket)
{
    sockaddr_storage peer = {};
    socklen_t size = sizeof peer;
    return ::getpeername(socket, reinterpret_cast<sockaddr *>(&peer), &size) == 0;
}

} // namespace

CurlAttempt::CurlAttempt(const CurlLibrary &library, const TransferSettings &settings,
                         const platform::UrlRequest &requestToSend, const QByteArray &proxy, AddressBook &addressBook,
                         Inbox answerInbox)
    : curl(library)
    , request(requestToSend)
    , addresses(addressBook)
    , inbox(std::move(answerInbox))
    , headers(nullptr, {library.slistFreeAll})
    , proxyHeaders(nullptr, {library.slistFreeAll})
    , easy(library.easyInit(), {library.easyCleanup})
{
    if (!easy) {
        setUp = CURLE_FAILED_INIT;
        return;
    }
    setRequest();
    setHeaders();
    setTrust(settings.authorities.toUtf8());
    setConnection(proxy);
    setCallbacks();
}

int CurlAttempt::connection() const
{
    if (requestBegun) {
        return requestSocket;
    }
    const std::vector<int> sockets = addresses.sockets();
    const auto connected = std::ranges::find_if(sockets, hasPeer);
    return connected == sockets.end() ? -1 : *connected;
}

bool CurlAttempt::hasProxyAnswer() const
{
    return info<long>(CURLINFO_HTTP_CONNECTCODE) != 0;
}

qint64 CurlAttempt::bytesSent() const
{
    return info<curl_off_t>(CURLINFO_SIZE_UPLOAD_T);
}

qint64 CurlAttempt::bytesAcknowledged() const
{
    return requestBegun ? acknowledgedBytes(requestSocket) - acknowledgedBefore : 0;
}

TransferEnd CurlAttempt::end(CURLcode result) const
{
    return {.completed = result == CURLE_OK && !head.lacksLineFeed(),
            .headEnded = head.hasEnded(),
            .isRedirect = head.isRedirect(),
            .headIsClear = head.isClear(),
            .isUncut = !endsWithConnection() || (closeNotified && !hasSecuredProxy()),
            .bytesToSend = request.body ? request.body->size() : 0,
            .bytesSent = sentBeforeLastByte,
            .bytesReceived = received};
}

bool CurlAttempt::endsWithConnection() const
{
    return !head.isChunked() && info<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T) < 0;
}

// Its own close_notify looks like the host's.
bool CurlAttempt::hasSecuredProxy() const
{
    return hasProxyAnswer() && securedBeforeTunnel;
}

QByteArray CurlAttempt::reason(CURLcode result) const
{
    QByteArray text = result != CURLE_OK && detail.front() != '\0' ? detail.data() : curl.easyStrerror(result);
    if (const long error = info<long>(CURLINFO_OS_ERRNO); result == CURLE_COULDNT_CONNECT && error != 0) {
        text += QByteArray(" (") + std::strerror(static_cast<int>(error)) + ')';
    }
    return text;
}

void CurlAttempt::goOn()
{
    curl.easyPause(easy.get(), CURLPAUSE_CONT);
}

template<typename Value>
void CurlAttempt::set(CURLoption option, Value value)
{
    // The function takes what it is given for what the option needs.
    static_assert(std::is_pointer_v<Value> || std::is_same_v<Value, long> || std::is_same_v<Value, curl_off_t>);
    const CURLcode result = curl.easySetopt(easy.get(), option, value);
    if (setUp == CURLE_OK) {
        setUp = result;
    }
}

template<typename Value>
Value CurlAttempt::info(CURLINFO what) const
{
    static_assert(std::is_same_v<Value, long> || std::is_same_v<Value, curl_off_t>);
    Value value = 0;
    curl.easyGetinfo(easy.get(), what, &value);
    return value;
}

void CurlAttempt::setRequest()
{
    set(CURLOPT_URL, request.url.toEncoded(QUrl::RemoveUserInfo | QUrl::RemoveFragment).constData());
    set(CURLOPT_PROTOCOLS_STR, "https");
    // HTTP/2 lets a server turn requests away to be sent once more (RFC 9113 section 8.7), and its other gains are for
    // many requests on one connection.
    set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    set(CURLOPT_USERAGENT, KORVALE_AGENT);
    // The body comes from a function and there is none to rewind it, so it is sent once or not at all.
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t{request.body ? request.body->size() : 0});
    set(CURLOPT_UPLOAD_BUFFERSIZE, kUploadBufferSize);
    // Otherwise whether a report is received whole would depend on the status of an early answer.
    set(CURLOPT_KEEP_SENDING_ON_ERROR, 1L);
    // A redirect would drop the report, or send it to a host that nobody has named.
    set(CURLOPT_FOLLOWLOCATION, 0L);
}

void CurlAttempt::setHeaders()
{
    // None: a server that does not know it would keep the report waiting.
    std::vector<QByteArray> lines = {"Expect:"};
    for (const auto &[field, value] : request.headers) {
        lines.push_back(field + ": " + value);
    }
    headers = listOf(lines);
    set(CURLOPT_HTTPHEADER, headers.get());
    // A CONNECT is in the clear: it says where to, and not from which program.
    proxyHeaders = listOf({"User-Agent:", "Proxy-Connection:"});
    set(CURLOPT_PROXYHEADER, proxyHeaders.get());
}

// Not of the toolkit's list (6.4): one that is made of its elements goes on where there is no memory for it.
CurlAttempt::HeaderList CurlAttempt::listOf(const std::vector<QByteArray> &lines)
{
    HeaderList list(nullptr, {curl.slistFreeAll});
    for (const QByteArray &line : lines) {
        curl_slist *const first = curl.slistAppend(list.get(), line.constData());
        if (!first) {
            setUp = CURLE_OUT_OF_MEMORY;
        } else if (!list) {
            list.reset(first);
        }
    }
    return list;
}

void CurlAttempt::setTrust(const QByteArray &authorities)
{
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
    set(CURLOPT_CAPATH, authorities.constData());
    set(CURLOPT_CAINFO, static_cast<const char *>(nullptr));
    set(CURLOPT_PROXY_SSL_VERIFYPEER, 1L);
    set(CURLOPT_PROXY_SSL_VERIFYHOST, 2L);
    set(CURLOPT_PROXY_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
    set(CURLOPT_PROXY_CAPATH, authorities.constData());
    set(CURLOPT_PROXY_CAINFO, static_cast<const char *>(nullptr));
}

void CurlAttempt::setConnection(const QByteArray &proxy)
{
    if (!proxy.isEmpty()) {
        set(CURLOPT_PROXY, proxy.constData());
    }
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    // Closing a connection calls the attempt, so it ends with the attempt and is not kept for another.
    set(CURLOPT_FORBID_REUSE, 1L);
    set(CURLOPT_CONNECTTIMEOUT, kNoConnectTimeout);
    // A further attempt asks for no name again.
    set(CURLOPT_DNS_CACHE_TIMEOUT, -1L);
    // Cancelled in a lookup, libcurl would wait for its end.
    set(CURLOPT_QUICK_EXIT, 1L);
}

void CurlAttempt::setCallbacks()
{
    set(CURLOPT_READFUNCTION, &CurlAttempt::onRead);
    set(CURLOPT_READDATA, this);
    set(CURLOPT_HEADERFUNCTION, &CurlAttempt::onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &CurlAttempt::onWrite);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_PREREQFUNCTION, &CurlAttempt::onRequest);
    set(CURLOPT_PREREQDATA, this);
    set(CURLOPT_OPENSOCKETFUNCTION, &CurlAttempt::onOpen);
    set(CURLOPT_OPENSOCKETDATA, this);
    set(CURLOPT_CLOSESOCKETFUNCTION, &CurlAttempt::onClose);
    set(CURLOPT_CLOSESOCKETDATA, this);
    // The only call that tells of every byte of an answer, its framing and TLS's own end included, where libcurl takes
    // any end of the connection for that of the answer. It is made in verbose mode alone.
    set(CURLOPT_DEBUGFUNCTION, &CurlAttempt::onDebug);
    set(CURLOPT_DEBUGDATA, this);
    set(CURLOPT_VERBOSE, 1L);
    set(CURLOPT_ERRORBUFFER, detail.data());
}

size_t CurlAttempt::onRead(char *buffer, size_t size, size_t count, void *self)
{
    CurlAttempt &attempt = *static_cast<CurlAttempt *>(self);
    if (!attempt.request.body) {
        return 0;
    }
    const QByteArray &body = *attempt.request.body;
    const qint64 length = std::min<qint64>(static_cast<qint64>(size * count), body.size() - attempt.taken);
    std::copy_n(body.cbegin() + attempt.taken, length, buffer);
    attempt.taken += length;
    return static_cast<size_t>(length);
}

size_t CurlAttempt::onHeader(char *line, size_t size, size_t count, void *self)
{
    CurlAttempt &attempt = *static_cast<CurlAttempt *>(self);
    attempt.head.take(QByteArrayView(line, static_cast<qsizetype>(size * count)),
                      attempt.info<long>(CURLINFO_RESPONSE_CODE));
    // Nobody is to see the body of an answer that can only be a failure.
    const bool endsHere = attempt.head.hasEnded() && (attempt.head.isRedirect() || !attempt.head.isClear());
    return endsHere ? 0 : size * count;
}

size_t CurlAttempt::onWrite(char *bytes, size_t size, size_t count, void *self)
{
    CurlAttempt &attempt = *static_cast<CurlAttempt *>(self);
    if (!attempt.head.isClear()) {
        return 0;
    }
    if (!attempt.inbox(QByteArrayView(bytes, static_cast<qsizetype>(size * count)))) {
        return CURL_WRITEFUNC_PAUSE;
    }
    attempt.received += static_cast<qint64>(size * count);
    return size * count;
}

int CurlAttempt::onDebug(CURL * /*easy*/, curl_infotype type, char *bytes, size_t size, void *self)
{
    CurlAttempt &attempt = *static_cast<CurlAttempt *>(self);
    if (type == CURLINFO_HEADER_IN || type == CURLINFO_DATA_IN) {
        // What waits in the system's queue has not been sent, and may never be.
        attempt.sentBeforeLastByte = attempt.bytesSent() - unsentBytes(attempt.requestSocket);
    }
    if (type == CURLINFO_DATA_IN) {
        attempt.head.takeBody(QByteArrayView(bytes, static_cast<qsizetype>(size)));
    }
    if (type == CURLINFO_SSL_DATA_IN) {
        attempt.securedBeforeTunnel = attempt.securedBeforeTunnel || !attempt.hasProxyAnswer();
        attempt.closeNotified =
            attempt.closeNotified || QByteArrayView(bytes, static_cast<qsizetype>(size)) == kCloseNotify;
    }
    return 0;
}

int CurlAttempt::onRequest(void *self, char * /*toIp*/, char * /*fromIp*/, int /*toPort*/, int /*fromPort*/)
{
    CurlAttempt &attempt = *static_cast<CurlAttempt *>(self);
    // By now libcurl has closed the others.
    attempt.requestSocket = attempt.connection();
    attempt.addresses.connected(attempt.requestSocket);
    attempt.acknowledgedBefore = acknowledgedBytes(attempt.requestSocket);
    attempt.requestBegun = true;
    return CURL_PREREQFUNC_OK;
}

curl_socket_t CurlAttempt::onOpen(void *self, curlsocktype /*purpose*/, curl_sockaddr *address)
{
    CurlAttempt &attempt = *static_cast<CurlAttempt *>(self);
    const AddressBook::Address bytes(reinterpret_cast<const char *>(&address->addr),
                                     static_cast<qsizetype>(address->addrlen));
    if (attempt.addresses.isGivenUp(bytes)) {
        return CURL_SOCKET_BAD;
    }
    const int socket = ::socket(address->family, address->socktype, address->protocol);
    if (socket >= 0) {
        ::fcntl(socket, F_SETFD, FD_CLOEXEC);
        attempt.addresses.opened(socket, bytes);
    }
    return socket;
}

int CurlAttempt::onClose(void *self, curl_socket_t socket)
{
    CurlAttempt &attempt = *static_cast<CurlAttempt *>(self);
    attempt.addresses.closed(socket);
    if (attempt.discarded) {
        // socket(7), SO_LINGER: with a time of zero the connection is reset and what was not sent is dropped.
        const linger none = {.l_onoff = 1, .l_linger = 0};
        ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    }
    return ::close(socket);
}

// The whole way of an answer: a server on loopback answers a report with the input, libcurl reads it, and what is made
// of it is held against a second reading by RFC 9112. It goes over plain TCP, because a TLS handshake for each input
// would take fifty times as long: an answer that ends with its connection then never counts as complete.
#include "desktop/transfer/CurlUrlConnection.h"
#include "fuzz/Require.h"
#include "support/RecordingDelegate.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <cstdarg>
#include <string>
#include <vector>

namespace {

/// What an answer means. Unclear is what no reader should take for an acceptance, and else may take as it likes.
enum class Meaning { Accepted, Refused, Failed, Unclear };

struct Field {
    std::string name; ///< In small letters.
    std::string value;
};

/// Reads an answer once more, more strictly than the program has to be.
class Reader
{
public:
    explicit Reader(std::string_view answer)
        : rest(answer)
    {
    }

    Meaning meaning()
    {
        while (true) {
            const std::optional<std::string> statusLine = line();
            if (!statusLine) {
                return Meaning::Failed;
            }
            const int status = statusOf(*statusLine);
            if (status == 0) {
                return Meaning::Unclear;
            }
            // What an informational head says of a length is of no body: it has none (RFC 9110 section 15.2).
            fields.clear();
            lengthIsUnclear = false;
            isOld = statusLine->starts_with("HTTP/1.0");
            if (const std::optional<Meaning> failure = readFields()) {
                return *failure;
            }
            if (status >= 200) {
                return meaningOf(status);
            }
            if (status == 101) {
                return Meaning::Unclear;
            }
        }
    }

    /// Whether something stood in a head that a reader may or may not put up with.
    bool isOdd() const { return odd; }

private:
    /// The next line without its end, which is CR LF or a bare LF (RFC 9112 section 2.2).
    std::optional<std::string> line()
    {
        const std::size_t feed = rest.find('\n');
        if (feed == std::string_view::npos) {
            return std::nullopt;
        }
        std::string text(rest.substr(0, feed));
        rest.remove_prefix(feed + 1);
        const std::size_t end = text.find_last_not_of('\r') + 1;
        odd = odd || text.size() > end + 1
            || std::ranges::any_of(text.substr(0, end), [](char one) { return (one & 0xE0) == 0 && one != '\t'; });
        text.resize(end);
        return text;
    }

    /// 0 for a line that is none (RFC 9112 section 4).
    static int statusOf(const std::string &text)
    {
        const bool isOurs = text.starts_with("HTTP/1.0 ") || text.starts_with("HTTP/1.1 ");
        const std::string digits = text.substr(std::min<std::size_t>(9, text.size()), 3);
        const bool isStatus = digits.size() == 3 && std::ranges::all_of(digits, [](char one) { return isDigit(one); })
            && digits.front() >= '1';
        const bool isDone = text.size() == 12 || (text.size() > 12 && text[12] == ' ');
        return isOurs && isStatus && isDone ? std::stoi(digits) : 0;
    }

    std::optional<Meaning> readFields()
    {
        while (true) {
            const std::optional<std::string> text = line();
            if (!text) {
                return Meaning::Failed;
            }
            if (text->empty() || text->front() == '\r') {
                // Where a head ends like that, nobody can say what belongs to it.
                endsOddly = !text->empty();
                return std::nullopt;
            }
            const std::size_t colon = text->find(':');
            const std::string name = text->substr(0, colon);
            if (colon == std::string::npos || !isToken(name)) {
                // Nobody has to understand it, but what may say where the body ends must not be passed over.
                const std::string words = lowered(trimmed(*text));
                const bool isFolded = text->front() == ' ' || text->front() == '\t';
                if (words.starts_with("content-length") || words.starts_with("transfer-encoding")
                    || (isFolded && !fields.empty() && isFraming(fields.back().name))) {
                    lengthIsUnclear = true;
                }
                odd = true;
                continue;
            }
            fields.push_back({lowered(name), trimmed(text->substr(colon + 1))});
        }
    }

    Meaning meaningOf(int status)
    {
        if (endsOddly || lengthIsUnclear) {
            return Meaning::Unclear;
        }
        const std::vector<std::string> codings = values("transfer-encoding");
        const std::vector<std::string> lengths = values("content-length");
        const bool leads = status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
        if (leads && !values("location").empty()) {
            return Meaning::Failed;
        }
        if (codings.size() > 1 || (!codings.empty() && (lowered(codings[0]) != "chunked" || isOld))) {
            return Meaning::Unclear;
        }
        // The chunks count (RFC 9112 section 6.3), but a reader may also take this for an error.
        odd = odd || (!codings.empty() && !lengths.empty());
        if (lengths.size() > 1 || !std::ranges::all_of(lengths, isLength)) {
            return Meaning::Unclear;
        }
        if (status == 204 || status == 304) {
            // It ends with its head, whatever that says (RFC 9112 section 6.3); a reader may take it for an error.
            odd = odd || !codings.empty() || !lengths.empty();
            return Meaning::Accepted;
        }
        if (!codings.empty()) {
            return meaningOfChunks();
        }
        if (!lengths.empty()) {
            return std::stol(lengths[0]) == 0 ? Meaning::Accepted : rest.empty() ? Meaning::Failed : Meaning::Refused;
        }
        return rest.empty() ? Meaning::Failed : Meaning::Refused;
    }

    /// RFC 9112 section 7.1. Only an extension may follow the digits of a size.
    Meaning meaningOfChunks()
    {
        const std::optional<std::string> sizeLine = line();
        if (!sizeLine) {
            return Meaning::Failed;
        }
        const std::string digits = sizeLine->substr(0, sizeLine->find_first_not_of("0123456789abcdefABCDEF"));
        if (digits.empty() || digits.size() > 15) {
            return Meaning::Unclear;
        }
        const std::string extension = trimmed(sizeLine->substr(digits.size()));
        if (!extension.empty() && extension.front() != ';') {
            return Meaning::Unclear;
        }
        odd = odd || digits.size() < sizeLine->size();
        if (std::stoull(digits, nullptr, 16) != 0) {
            return rest.empty() ? Meaning::Failed : Meaning::Refused;
        }
        while (const std::optional<std::string> trailer = line()) {
            if (trailer->empty()) {
                // What follows a reader may discard, or take for a part of the answer (RFC 9112 section 6.3): the
                // program misses the line feed of a carriage return at the very end.
                odd = odd || rest.ends_with('\r');
                return Meaning::Accepted;
            }
            odd = true;
        }
        return Meaning::Failed;
    }

    static bool isFraming(const std::string &name) { return name == "content-length" || name == "transfer-encoding"; }
    static bool isDigit(char one) { return one >= '0' && one <= '9'; }
    static bool isLength(const std::string &text)
    {
        return !text.empty() && text.size() <= 9 && std::ranges::all_of(text, isDigit);
    }
    static bool isToken(const std::string &text)
    {
        constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
        return !text.empty() && std::ranges::all_of(text, [&](char one) {
            return isDigit(one) || (one >= 'a' && one <= 'z') || (one >= 'A' && one <= 'Z')
                || kMarks.find(one) != std::string_view::npos;
        });
    }
    static std::string lowered(std::string text)
    {
        for (char &one : text) {
            one = one >= 'A' && one <= 'Z' ? static_cast<char>(one - 'A' + 'a') : one;
        }
        return text;
    }
    static std::string trimmed(const std::string &text)
    {
        const std::size_t begin = text.find_first_not_of(" \t");
        return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
    }

    std::vector<std::string> values(const std::string &name) const
    {
        std::vector<std::string> found;
        for (const Field &field : fields) {
            if (field.name == name) {
                found.push_back(field.value);
            }
        }
        return found;
    }

    std::string_view rest;
    bool odd = false;
    bool endsOddly = false; ///< With a line that only begins like a blank one.
    bool lengthIsUnclear = false;
    bool isOld = false; ///< HTTP/1.0, which knows no chunks.
    std::vector<Field> fields;
};

const QByteArray kReport = "the report";

/// Answers every report with the same bytes and closes the connection.
class Server
{
public:
    Server()
    {
        require(server.listen(QHostAddress::LocalHost), "there is a port on loopback");
        QObject::connect(&server, &QTcpServer::newConnection, [this] { converse(server.nextPendingConnection()); });
    }

    QUrl url() const
    {
        QUrl url(QStringLiteral("http://127.0.0.1/"));
        url.setPort(server.serverPort());
        return url;
    }

    QByteArray answer;

private:
    void converse(QTcpSocket *socket)
    {
        QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, request = QByteArray()]() mutable {
            request += socket->readAll();
            if (request.endsWith("\r\n\r\n" + kReport)) {
                socket->write(answer);
                socket->disconnectFromHost();
            }
        });
    }

    QTcpServer server;
};

decltype(&curl_easy_setopt) setOption = nullptr;

// libcurl's own function has this type, and takes its values so.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wvarargs"
/// Sets an option, but allows plain HTTP where HTTPS alone is asked for.
CURLcode setOptionForPlainHttp(CURL *easy, CURLoption option, ...)
{
    va_list values;
    va_start(values, option);
    CURLcode result = CURLE_OK;
    if (option == CURLOPT_PROTOCOLS_STR) {
        result = setOption(easy, option, "http");
    } else if (option >= CURLOPTTYPE_OFF_T) {
        result = setOption(easy, option, va_arg(values, curl_off_t));
    } else if (option >= CURLOPTTYPE_OBJECTPOINT) {
        result = setOption(easy, option, va_arg(values, void *));
    } else {
        result = setOption(easy, option, va_arg(values, long));
    }
    va_end(values);
    return result;
}
#pragma clang diagnostic pop

std::shared_ptr<const CurlLibrary> libraryForPlainHttp()
{
    const std::shared_ptr<const CurlLibrary> loaded = CurlLibrary::load(QStringLiteral("curl"), 4);
    require(loaded != nullptr, "libcurl can be loaded");
    auto library = std::make_shared<CurlLibrary>(*loaded);
    setOption = std::exchange(library->easySetopt, &setOptionForPlainHttp);
    return library;
}

/// What the delegate hears of a report that is answered so.
QStringList heardAfter(const QByteArray &answer)
{
    static Server server;
    static OperationQueue operations;
    static const std::shared_ptr<const CurlLibrary> library = libraryForPlainHttp();
    server.answer = answer;
    RecordingDelegate delegate;
    QEventLoop loop;
    delegate.onEnd = [&loop](platform::UrlConnection &) { loop.quit(); };
    const platform::UrlRequest request = {server.url(), "POST", {{"Content-Type", "text/plain"}}, kReport};
    const auto transfer = std::make_shared<CurlUrlConnection>(library, TransferSettings(), request, delegate,
                                                              operations, [](const CurlUrlConnection &) {});
    transfer->start();
    // libFuzzer keeps an input that takes longer than it allows.
    loop.exec();
    return delegate.heard;
}

void check(const QStringList &heard, Reader reader)
{
    const Meaning meaning = reader.meaning();
    const bool hasFinished = heard.value(heard.size() - 1) == QStringLiteral("finished");
    const bool hasFailed = heard.value(heard.size() - 1) == QStringLiteral("failed");
    require(hasFinished || hasFailed, "a transfer ends once, with its last callback");
    require(heard.count(QStringLiteral("finished")) + heard.count(QStringLiteral("failed")) == 1, "it ends once alone");
    const bool isAccepted = hasFinished && heard.size() == 1;
    const bool isRefused = heard.size() > 1;
    require(!isAccepted || meaning == Meaning::Accepted, "only a complete, empty answer is an acceptance");
    if (reader.isOdd() || meaning == Meaning::Unclear) {
        return;
    }
    switch (meaning) {
    case Meaning::Accepted:
        require(isAccepted, "a complete, empty answer is an acceptance");
        break;
    case Meaning::Refused:
        require(isRefused, "a byte of a body is a refusal");
        break;
    case Meaning::Failed:
        require(hasFailed && !isRefused, "an answer that is none has failed");
        break;
    case Meaning::Unclear:
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    for (const char *variable : {"http_proxy", "all_proxy", "ALL_PROXY"}) {
        qunsetenv(variable);
    }
    // One for HTTPS, which is not spoken here, and so the desktop is not asked for any.
    qputenv("https_proxy", "http://unused.invalid/");
    static QCoreApplication application(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view answer(reinterpret_cast<const char *>(data), size);
    check(heardAfter(QByteArray(answer.data(), static_cast<qsizetype>(size))), Reader(answer));
    return 0;
}

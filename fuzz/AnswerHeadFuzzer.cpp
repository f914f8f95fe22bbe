// The head of an answer, line by line, against a second reading of all lines at once. The input is a list of lines,
// most of them from a table.
#include "desktop/transfer/AnswerHead.h"
#include "fuzz/Require.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cctype>
#include <string>
#include <vector>

namespace {

struct Line {
    std::string text;
    long status = 0;
};

constexpr std::array<long, 12> kStatuses = {100, 103, 199, 200, 204, 301, 302, 303, 304, 307, 308, 500};
constexpr std::array kLines = {"HTTP/1.1 200 OK",
                               "HTTP/1.0 200",
                               "HTTP/2 200",
                               "Location: /a",
                               "location:",
                               "Content-Length: 0",
                               "content-length: 5",
                               "Content-Length: 5, 5",
                               "Content-Length: +5",
                               "Server: x",
                               " folded",
                               "\t5",
                               "",
                               "no colon",
                               "Transfer-Encoding: Chunked"};
constexpr std::array kNames = {"Location:", "Content-Length:", "Transfer-Encoding:", "HTTP/1.1 "};

std::string lineFrom(FuzzedDataProvider &input)
{
    const auto choice = input.ConsumeIntegralInRange<std::size_t>(0, kLines.size() + 2);
    std::string line = choice < kLines.size() ? kLines.at(choice)
        : choice == kLines.size()             ? input.PickValueInArray(kNames) + input.ConsumeRandomLengthString(12)
                                              : input.ConsumeRandomLengthString(16);
    // A line has one end.
    std::erase(line, '\n');
    return line + (input.ConsumeBool() ? "\r\n" : "\n");
}

bool isSpace(char one)
{
    return one == ' ' || (one >= '\t' && one <= '\r');
}

std::string trimmed(const std::string &text)
{
    std::size_t begin = 0;
    std::size_t end = text.size();
    for (; begin < end && isSpace(text[begin]); ++begin) {}
    for (; end > begin && isSpace(text[end - 1]); --end) {}
    return text.substr(begin, end - begin);
}

bool isBlank(const std::string &line)
{
    return line == "\r\n" || line == "\n";
}

bool endsHead(const std::string &line)
{
    return line.front() == '\r' || line.front() == '\n';
}

std::vector<Line> linesFrom(FuzzedDataProvider &input)
{
    std::vector<Line> lines;
    long status = 0;
    bool isFirst = true;
    for (auto left = input.ConsumeIntegralInRange<int>(0, 12); left > 0; --left) {
        if (isFirst) {
            status = input.PickValueInArray(kStatuses);
        }
        lines.push_back({lineFrom(input), status});
        // A blank line ends a head, but where the status line belongs it is taken for one.
        isFirst = !isFirst && endsHead(lines.back().text);
    }
    return lines;
}

std::string lowered(std::string text)
{
    for (char &one : text) {
        one = one >= 'A' && one <= 'Z' ? static_cast<char>(one - 'A' + 'a') : one;
    }
    return text;
}

/// The digits without zeros before them; nothing for what is no number or more than 63 bits hold.
std::optional<std::string> numberFrom(std::string text)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    text.erase(0, std::min(text.find_first_not_of('0'), text.size() - 1));
    const std::string largest = "9223372036854775807";
    const bool isTooLarge = text.size() > largest.size() || (text.size() == largest.size() && text > largest);
    return isTooLarge ? std::nullopt : std::optional(text);
}

bool isStatusLine(const std::string &line)
{
    const std::string rest = line.substr(std::min<std::size_t>(9, line.size()));
    return (line.starts_with("HTTP/1.0 ") || line.starts_with("HTTP/1.1 ")) && rest.size() > 3
        && rest.find_first_not_of("0123456789") == 3 && std::string(" \r\n").find(rest[3]) != std::string::npos;
}

struct Head {
    bool ended = false;
    bool redirect = false;
    bool isHttp = true;
    bool clear = true;
    bool chunked = false;
};

/// The lengths that a list names; an entry without a value for what is no number.
std::vector<std::optional<std::string>> lengthsFrom(const std::string &value)
{
    std::vector<std::optional<std::string>> lengths;
    std::size_t begin = 0;
    for (std::size_t end = 0; end != std::string::npos; begin = end + 1) {
        end = value.find(',', begin);
        lengths.push_back(numberFrom(trimmed(value.substr(begin, end == std::string::npos ? end : end - begin))));
    }
    return lengths;
}

/// The head of the lines from a status line up to the blank line, or to where there is no further line.
Head headFrom(const std::vector<Line> &lines, std::size_t first, std::size_t blank)
{
    Head head;
    const std::string &start = lines[first].text;
    head.isHttp = isStatusLine(start) && (blank == lines.size() || isBlank(lines[blank].text));
    std::vector<std::optional<std::string>> lengths;
    bool hasLocation = false;
    bool hasCoding = false;
    bool afterFraming = false;
    for (std::size_t i = first + 1; i < blank; ++i) {
        const std::string &line = lines[i].text;
        if (line.front() == ' ' || line.front() == '\t') {
            head.clear = head.clear && !afterFraming;
            continue;
        }
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) {
            continue;
        }
        const std::string writtenName = line.substr(0, colon);
        const std::string name = lowered(trimmed(writtenName));
        const std::string value = trimmed(line.substr(colon + 1));
        afterFraming = name == "content-length" || name == "transfer-encoding";
        head.clear = head.clear && (!afterFraming || writtenName == trimmed(writtenName));
        hasLocation = hasLocation || name == "location";
        if (name == "transfer-encoding") {
            head.chunked = lowered(value) == "chunked";
            head.clear = head.clear && !hasCoding && !start.starts_with("HTTP/1.0")
                && (head.chunked || lowered(value) == "identity");
            hasCoding = true;
        } else if (name == "content-length") {
            for (const auto &length : lengthsFrom(value)) {
                lengths.push_back(length);
            }
        }
    }
    for (const auto &length : lengths) {
        head.clear = head.clear && length && length == lengths.front();
    }
    const long status = lines[first].status;
    head.ended = blank < lines.size() && status / 100 != 1;
    head.redirect = head.ended && hasLocation
        && (status == 301 || status == 302 || status == 303 || status == 307 || status == 308);
    return head;
}

/// Whether the first line, as far as it is there, says the size of a chunk (RFC 9112 section 7.1).
bool isClearBody(const std::string &body)
{
    constexpr std::size_t kMaxLine = 4096;
    const std::size_t feed = body.find('\n');
    if (feed == std::string::npos) {
        return body.size() <= kMaxLine;
    }
    std::string line = body.substr(0, feed);
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    const std::size_t digits = std::min(line.find_first_not_of("0123456789abcdefABCDEF"), line.size());
    const std::size_t next = std::min(line.find_first_not_of(" \t", digits), line.size());
    return feed < kMaxLine && digits > 0 && (next == line.size() || line[next] == ';');
}

/// Up to the first answer that is final, or the last one that has begun.
Head headFrom(const std::vector<Line> &lines)
{
    Head head;
    bool isHttp = true;
    std::size_t first = 0;
    while (first < lines.size() && !head.ended) {
        std::size_t blank = first + 1;
        while (blank < lines.size() && !endsHead(lines[blank].text)) {
            ++blank;
        }
        head = headFrom(lines, first, blank);
        isHttp = isHttp && head.isHttp;
        first = blank + 1;
    }
    head.clear = head.clear && isHttp;
    return head;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    std::vector<Line> lines = linesFrom(input);

    AnswerHead head;
    for (const Line &line : lines) {
        head.take(QByteArrayView(line.text.data(), static_cast<qsizetype>(line.text.size())), line.status);
    }

    const Head expected = headFrom(lines);
    require(head.hasEnded() == expected.ended, "the head ends with the blank line of a final answer");
    require(head.isRedirect() == expected.redirect, "five statuses with a Location lead elsewhere");
    require(head.isClear() == expected.clear, "nobody can mistake where a clear answer ends");
    require(head.isChunked() == expected.chunked, "the last Transfer-Encoding says whether the body is in chunks");

    if (head.isClear() && head.isChunked()) {
        const std::string body = input.ConsumeRemainingBytesAsString();
        const std::size_t half = body.size() / 2;
        head.takeBody(QByteArrayView(body.data(), static_cast<qsizetype>(half)));
        head.takeBody(QByteArrayView(body.data() + half, static_cast<qsizetype>(body.size() - half)));
        require(head.isClear() == isClearBody(body), "a body in chunks begins with a number");
    }
    return 0;
}

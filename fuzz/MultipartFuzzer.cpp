// The body of the request, in two ways: byte by byte against a second writing, and, where the names allow it, read back
// by a strict reader that knows nothing of the encoder and only allows that there is no close delimiter.
#include "fuzz/ReferenceText.h"
#include "fuzz/Require.h"
#include "support/RecordingPlatform.h"
#include "support/SampleHome.h"

#include <QUrl>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

enum class Kind { Text, File, MissingFile, OtherUrl };

struct Field {
    Kind kind = Kind::Text;
    std::string content;  ///< As it has to arrive.
    std::string filename; ///< Of a file.
    QVariant value;

    bool isFile() const { return kind == Kind::File || kind == Kind::MissingFile; }
};

/// By their names; as in the form itself, the order is that of the names' code units.
using Fields = std::map<std::u16string, Field>;

constexpr int kMaxFields = 4;

/// One of the bytes that a boundary may hold (RFC 2046 section 5.1.1).
std::string boundaryFrom(FuzzedDataProvider &input)
{
    constexpr std::string_view kAllowed = "0123456789abcdefABCDEF'()+_,-./:=?";
    std::string boundary;
    for (auto left = input.ConsumeIntegralInRange<int>(1, 12); left > 0; --left) {
        boundary += kAllowed[input.ConsumeIntegralInRange<std::size_t>(0, kAllowed.size() - 1)];
    }
    return boundary;
}

std::u16string textFrom(FuzzedDataProvider &input, const std::string &boundary)
{
    // Around the size of the slices that texts are encoded in.
    const std::size_t fill =
        input.ConsumeIntegralInRange(0, 7) == 0 ? input.ConsumeIntegralInRange<std::size_t>(4094, 4096) : 0;
    std::u16string text(fill, u'x');
    for (auto left = input.ConsumeIntegralInRange<int>(0, 4); left > 0; --left) {
        switch (input.ConsumeIntegralInRange(0, 5)) {
        case 0:
            text += u"\r\n--";
            break;
        case 1:
            text += *reference::decoded(boundary);
            break;
        case 2:
            text += u"\xD83D";
            break;
        case 3:
            text += u"\xD83D\xDE00";
            break;
        default:
            text += reference::unitsFrom(input.ConsumeRandomLengthString(12));
        }
    }
    return text;
}

Field fieldFrom(FuzzedDataProvider &input, const std::string &boundary, SampleHome &home, const QString &folder)
{
    Field field;
    field.kind = input.PickValueInArray({Kind::Text, Kind::Text, Kind::File, Kind::MissingFile, Kind::OtherUrl});
    if (field.kind == Kind::Text) {
        const std::u16string text = textFrom(input, boundary);
        field.content = reference::encoded(text);
        field.value = reference::text(text);
    } else if (field.kind == Kind::OtherUrl) {
        field.value = QUrl(QStringLiteral("https://example.org/a.log"));
    } else {
        field.filename = input.PickValueInArray({"a", "a b.log", "caf\xC3\xA9", "100%", "x#y?z"});
        if (field.kind == Kind::File) {
            field.content = input.ConsumeRandomLengthString(24);
            field.value = QUrl::fromLocalFile(
                home.write(folder + QString::fromStdString(field.filename), QByteArray::fromStdString(field.content)));
        } else {
            field.value =
                QUrl::fromLocalFile(home.path(QStringLiteral("missing/") + QString::fromStdString(field.filename)));
        }
    }
    return field;
}

/// The names are any text at all. Each field has a folder for its file.
Fields fieldsFrom(FuzzedDataProvider &input, const std::string &boundary, SampleHome &home)
{
    Fields fields;
    for (auto left = input.ConsumeIntegralInRange<int>(0, kMaxFields); left > 0; --left) {
        std::u16string name = input.ConsumeBool() ? *reference::decoded(input.PickValueInArray({"crashlog", "info"}))
                                                  : reference::unitsFrom(input.ConsumeRandomLengthString(8));
        fields.insert_or_assign(std::move(name), fieldFrom(input, boundary, home, QString::number(left) + u'/'));
    }
    return fields;
}

std::string written(const Fields &fields, const std::string &boundary)
{
    std::string body;
    for (const auto &[name, field] : fields) {
        body += "--" + boundary + "\r\n";
        const std::string disposition = "Content-Disposition: form-data; name=\"" + reference::encoded(name) + "\"";
        if (field.kind == Kind::Text) {
            body += disposition + "\r\n\r\n" + field.content;
        } else if (field.isFile()) {
            body += disposition + "; filename=\"" + field.filename
                + "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + field.content;
        }
        body += "\r\n";
    }
    return body;
}

struct ReadPart {
    std::string name;
    std::string filename;
    std::string type;
    std::string content;

    bool operator==(const ReadPart &) const = default;
};

/// The value of a parameter in quotes, such as name="..."; nothing when it is not there once.
std::string parameterOf(const std::string &header, const std::string &parameter)
{
    const std::string start = "; " + parameter + "=\"";
    const std::size_t at = header.find(start);
    const std::size_t end = at == std::string::npos ? at : header.find('"', at + start.size());
    require(end != std::string::npos, "a parameter stands in quotes");
    return header.substr(at + start.size(), end - at - start.size());
}

/// One body part (RFC 2046 section 5.1.1, RFC 7578 section 4.2); nothing where it has neither headers nor content.
std::optional<ReadPart> partFrom(std::string_view text)
{
    if (text.empty()) {
        return std::nullopt;
    }
    const std::size_t blank = text.find("\r\n\r\n");
    require(blank != std::string_view::npos, "a blank line ends the headers");
    ReadPart part;
    part.content = text.substr(blank + 4);
    std::string headers = std::string(text.substr(0, blank)) + "\r\n";
    while (!headers.empty()) {
        const std::size_t end = headers.find("\r\n");
        const std::string header = headers.substr(0, end);
        headers.erase(0, end + 2);
        if (header.starts_with("Content-Disposition: form-data;")) {
            part.name = parameterOf(header, "name");
            part.filename = header.find("; filename=") == std::string::npos ? "" : parameterOf(header, "filename");
        } else {
            require(header.starts_with("Content-Type: "), "no other header is written");
            part.type = header.substr(14);
        }
    }
    return part;
}

std::vector<std::optional<ReadPart>> partsFrom(const std::string &body, const std::string &boundary)
{
    std::vector<std::optional<ReadPart>> parts;
    // As if a line had ended before the body, so that each delimiter looks alike.
    std::string_view rest = body;
    const std::string first = "--" + boundary + "\r\n";
    const std::string delimiter = "\r\n" + first;
    if (rest.empty()) {
        return parts;
    }
    require(rest.starts_with(first), "the body begins with the boundary");
    rest.remove_prefix(first.size());
    for (std::size_t at = rest.find(delimiter); at != std::string_view::npos; at = rest.find(delimiter)) {
        parts.push_back(partFrom(rest.substr(0, at)));
        rest.remove_prefix(at + delimiter.size());
    }
    require(rest.ends_with("\r\n"), "the body ends with the end of a line");
    rest.remove_suffix(2);
    parts.push_back(partFrom(rest));
    return parts;
}

/// Whether a reader can tell what is what: names without quotes and line ends, contents without a delimiter.
bool isReadable(const Fields &fields, const std::string &boundary)
{
    for (const auto &[name, field] : fields) {
        if (name.find_first_of(u"\"\r\n") != std::u16string::npos
            || ("\r\n" + field.content + "\r\n").find("\r\n--" + boundary + "\r\n") != std::string::npos) {
            return false;
        }
    }
    return true;
}

std::vector<std::optional<ReadPart>> expectedParts(const Fields &fields)
{
    std::vector<std::optional<ReadPart>> parts;
    for (const auto &[name, field] : fields) {
        if (field.kind == Kind::OtherUrl) {
            parts.emplace_back(std::nullopt);
        } else {
            parts.emplace_back(ReadPart{reference::encoded(name), field.filename,
                                        field.isFile() ? "application/octet-stream" : "", field.content});
        }
    }
    return parts;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static SampleHome home;
    FuzzedDataProvider input(data, size);
    const std::string boundary = boundaryFrom(input);
    const Fields fields = fieldsFrom(input, boundary, home);
    QVariantMap form;
    for (const auto &[name, field] : fields) {
        form.insert(reference::text(name), field.value);
    }
    RecordingPlatform world;

    const std::optional<QByteArray> body =
        world.controller.generateFormDataForBoundary(form, QString::fromStdString(boundary));

    require(body.has_value(), "every form has a body");
    require(body->toStdString() == written(fields, boundary), "the body is what it should be, byte for byte");
    if (isReadable(fields, boundary)) {
        require(partsFrom(body->toStdString(), boundary) == expectedParts(fields), "a reader finds exactly the fields");
    }
    return 0;
}

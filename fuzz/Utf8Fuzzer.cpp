// Strict reading and lossless writing of UTF-8, against the reading and writing of ReferenceText.h. The input is taken
// once as bytes and once as code units.
#include "base/Utf8.h"
#include "fuzz/ReferenceText.h"
#include "fuzz/Require.h"

#include <algorithm>

namespace {

void checkReading(std::string_view bytes)
{
    const QByteArrayView view(bytes.data(), static_cast<qsizetype>(bytes.size()));
    require(reference::units(textFromUtf8(view)) == reference::decoded(bytes), "bytes are read as the text they are");

    const bool isAscii = std::ranges::none_of(bytes, [](char byte) { return (byte & 0x80) != 0; });
    const std::optional<QString> ascii = textFromAscii(view);
    require(ascii.has_value() == isAscii, "bytes above 0x7F alone are no ASCII");
    require(!ascii || reference::encoded(reference::units(*ascii)) == bytes, "ASCII is read as the text it is");
}

void checkWriting(std::string_view bytes)
{
    const std::u16string units = reference::unitsFrom(bytes);
    const QString text = reference::text(units);
    const std::string expected = reference::encoded(units);

    QByteArray appended = "before";
    appendUtf8(appended, text);
    require(appended.toStdString() == "before" + expected, "a text is appended as its bytes");
    require(static_cast<std::size_t>(utf8Length(text)) == expected.size(), "the length is that of the bytes");

    const std::optional<QByteArray> name = utf8FromText(text);
    require(name.has_value() == !reference::hasHalfAPair(units), "half a pair alone keeps a text from being a name");
    require(!name || name->toStdString() == expected, "a name is written as its bytes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    checkReading(bytes);
    checkWriting(bytes);
    return 0;
}

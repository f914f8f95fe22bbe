// The body of a multipart/form-data request, part by part.
//
// The layout is that of RFC 7578 on the multipart syntax of RFC 2046, and departs from it on purpose: there is no close
// delimiter, no preamble and no epilogue, names are not escaped, text parts carry no Content-Type, and nobody checks
// that the boundary occurs in no content. The server reads exactly this.
//
//   field value                      part between the boundary line and the closing CR LF
//   -------------------------------  ------------------------------------------------------------------------------
//   a QUrl with the scheme "file"    Content-Disposition with name and filename, Content-Type, the file's bytes
//   any other QUrl                   no part
//   anything else                    Content-Disposition with name, the value's text
#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <initializer_list>

/// Knows no transport: it collects bytes.
class FormDataBody
{
public:
    /// The boundary is written as it is; choosing one of valid characters is the caller's part (RFC 2046
    /// section 5.1.1).
    explicit FormDataBody(QString boundaryText);

    /// Appends the part of one field. A file that cannot be read contributes no bytes; the rest of the part is written
    /// all the same. Half of a surrogate pair is written as U+FFFD. Throws platform::PlatformException when there is no
    /// memory for the part.
    void addField(const QString &name, const QVariant &value);

    /// The bytes collected so far.
    const QByteArray &bytes() const { return body; }

private:
    void append(std::initializer_list<QStringView> pieces);
    void addText(const QString &name, const QString &text);
    void addFile(const QString &name, const QUrl &file);

    QString boundary;
    QByteArray body;
};

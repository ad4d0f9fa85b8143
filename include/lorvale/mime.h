#pragma once
/// The codecs of mail: header words (RFC 2047), quoted-printable and base64 (RFC 2045), uuencode, BinHex 4.0
/// (RFC 1741, reading only), and the table between MIME charset names and string encodings.
///
/// None of them throws on bad input: each does its best with what is there, and only the two that need an
/// opening line (uudecode, BinHex) answer nullopt without it.  All of them may be called from any thread.
/// Bytes are Data, text is UTF-8.
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/mime/dialect.h"
#include "lorvale/values/data.h"
#include "lorvale/values/encoding.h"

namespace lorvale {

// Header values and parameters

/// A header value with its encoded words read: "=?utf-8?Q?caf=C3=A9?=" gives "café".
///
/// Classic: white space behind an encoded word and at the start of the value is dropped.  A charset that is not
/// known is read as the preferred encoding, else as ISO Latin 1, and logged.  `text` has one character a byte.
///
/// Standard: only white space between two words is dropped.  `text` is UTF-8 or else the bytes as they came.
/// Text with an "=?" that opens no word stays as it is.  Lists of addresses are not for this operation: a name
/// with a comma would come without its quotes.
LORVALE_EXPORT std::string decodeMimeHeaderValue(std::string_view text, MailDialect dialect = mailDialect());

/// A header value in ASCII, with encoded words where it needs them; an ASCII value that cannot be taken for an
/// encoded word is answered as it is, but folded in the standard dialect.
///
/// Classic: ISO-2022-JP text is folded with "\n ", all other text stays on one line; words have no end mark.
///
/// Standard: lines end with "\n" in front of white space and stay below 78 columns, where there is white space
/// to end them at, beside a name of up to 8 characters.  Line ends and control characters of `text` become
/// blanks.
LORVALE_EXPORT std::string encodeMimeHeaderValue(std::string_view text, MailDialect dialect = mailDialect());

/// A parameter value as it stands after '=': quoted, with `"` and `\` escaped, when it holds a character of
/// ()<>@,;:\"/[]?= and unchanged otherwise.
LORVALE_EXPORT std::string quotedMimeString(std::string_view text);

/// A parameter of a MIME header, "name=value", with its value in UTF-8.
///
/// Classic: the value as quotedMimeString() has it, whatever it holds.
///
/// Standard: a value in ASCII as a token or a quoted string (RFC 2045, section 5.1), every other one as RFC
/// 2231 has it, with a plain form behind for readers that do not know it, in which "_" stands for what is not
/// ASCII: `filename*=utf-8''%C3%A9.txt; filename="_.txt"`.  Long values are cut ("filename*0*=...;
/// filename*1*=..."), so that the header can be folded.  Control characters become blanks.
LORVALE_EXPORT std::string mimeParameter(std::string_view name, std::string_view value,
                                         MailDialect dialect = mailDialect());

/// MIME keywords are equal without regard to ASCII case and to a leading "x-" on either side.
LORVALE_EXPORT bool isKeyEqual(std::string_view a, std::string_view b);

// Charsets

/// The encoding that the user prefers for mail, StringEncoding::unknown without one.  Comes from the user
/// default "KTPreferedStringEncodingForMailMessage"; once that was found set, the answer stays for the life of
/// the process.
LORVALE_EXPORT StringEncoding preferedMIMEStringEncoding();

/// The simplest encoding that holds all of `text`: ASCII, the preferred one, ISO Latin 1, code page 1252,
/// ISO Latin 2, code page 1250, ISO-2022-JP, UTF-8, Unicode; ISO Latin 1 when none does.
LORVALE_EXPORT StringEncoding bestMIMEStringEncoding(std::string_view text);

/// The charset name to write for an encoding.  One without a name of its own gives "iso-8859-1" and is logged.
LORVALE_EXPORT std::string _charsetForEncoding(StringEncoding encoding);

/// The same, but nullopt for an encoding without a name of its own.
LORVALE_EXPORT std::optional<std::string> _charsetForStringEncoding(StringEncoding encoding);

/// The encoding that a charset name stands for, by isKeyEqual(); StringEncoding::unknown for no name.  A name
/// that is not known gives the preferred encoding, else ISO Latin 1, which is logged.
LORVALE_EXPORT StringEncoding _encodingForCharset(std::optional<std::string_view> charset);

// Transfer encodings

/// Drops spaces before a line end and soft line breaks; a bad digit behind '=' counts as 255.
LORVALE_EXPORT Data decodeQuotedPrintable(const Data& data);

/// Lines of at most 76 characters and a "=", broken between words where that is possible; every "From " is
/// written "=46rom ".  Without a line end at its end the result ends in a soft break.
LORVALE_EXPORT Data encodeQuotedPrintable(const Data& data);

/// Skips all bytes outside the alphabet; symbols at the end that do not fill a group of four are dropped.
LORVALE_EXPORT Data decodeBase64(const Data& data);

/// Lines of 76 characters, each with its line end, the last one too.
LORVALE_EXPORT Data encodeBase64(const Data& data);

/// The file in uuencoded data; text before its "begin" line is passed over.  Nullopt, logged, without a
/// complete "begin" line.  `name` and `mode` (permission bits) are set from that line where they are not null.
LORVALE_EXPORT std::optional<Data> uudecodedDataIntoFile(const Data& data, std::string* name, int* mode);

/// `data` as a uuencoded file with its "begin" and "end" lines.
LORVALE_EXPORT Data uuencodedDataWithFile(const Data& data, std::string_view name, int mode);

/// The data fork of a BinHex 4.0 file; `name`, where it is not null, receives the file name.  Nullopt when the
/// data does not begin with ":" (after line ends).  Checksums are not looked at; the resource fork is dropped.
LORVALE_EXPORT std::optional<Data> decodeBinHex40(const Data& data, std::string* name);

}  // namespace lorvale

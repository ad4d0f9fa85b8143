#pragma once
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/values/data.h"

/// Text in the library is UTF-8; these are the other forms in which mail brings it and takes it.  All
/// operations may be called from several threads.

namespace lorvale {

/// The numbers are fixed: stored files and property lists hold them.
enum class StringEncoding : std::uint32_t {
    unknown = 0,
    ascii = 1,
    tarn = 2,  ///< one byte a character: the code point of the same number, but 0xD0 is the em dash U+2014
    japaneseEUC = 3,
    utf8 = 4,
    isoLatin1 = 5,
    shiftJIS = 8,  ///< with the extensions of Windows, as the mail that uses it has them
    isoLatin2 = 9,
    unicode = 10,  ///< UTF-16: read by its byte order mark, big-endian without one; written big-endian with one
    windowsCP1252 = 12,
    windowsCP1250 = 15,
    iso2022JP = 21,  ///< written by the standard; read with what mail programs add to it
};

enum class Lossy : bool { no, yes };

/// The text that the bytes stand for, in UTF-8; nullopt when they are not valid in the encoding or the
/// encoding is not one of the above.  Single-byte encodings but ASCII know every byte: where Windows left one
/// undefined it is the control character of the same number.
[[nodiscard]] LORVALE_EXPORT std::optional<std::string> decode(std::string_view bytes, StringEncoding encoding);

/// The same, with U+FFFD for each byte that is not valid.  Bytes of an unknown encoding are read as ASCII.
[[nodiscard]] LORVALE_EXPORT std::string decodeLossy(std::string_view bytes, StringEncoding encoding);

/// The bytes for a text in UTF-8; nullopt when a character has none.  With Lossy::yes such a character becomes
/// "?" and only the unknown encoding gives nullopt.  Reading the result gives the text back.
[[nodiscard]] LORVALE_EXPORT std::optional<Data> encode(std::string_view utf8, StringEncoding encoding,
                                                        Lossy lossy = Lossy::no);

/// Whether encode() without loss has a result.
[[nodiscard]] LORVALE_EXPORT bool canConvert(std::string_view utf8, StringEncoding encoding);

struct AvailableEncoding {
    StringEncoding encoding;
    std::string_view name;  ///< in the development language
};

/// All encodings but the unknown one, by number.
LORVALE_EXPORT std::span<const AvailableEncoding> availableStringEncodings();

/// The name for people, in their language; an empty text for the unknown encoding.
LORVALE_EXPORT std::string localizedNameOfStringEncoding(StringEncoding encoding);

/// The encoding in which header bytes, stored strings and protocol commands are held: a setting of the whole
/// process, made before the first message is read.  It starts as the Tarn encoding, in which no byte is lost.
/// The unknown encoding, UTF-16 and ISO-2022-JP cannot be set, since ASCII bytes must stand for themselves.
LORVALE_EXPORT StringEncoding defaultCStringEncoding();
LORVALE_EXPORT void setDefaultCStringEncoding(StringEncoding encoding);

/// Bytes in the default C string encoding to text.  Never fails: a byte that is not valid reads as Latin 1.
[[nodiscard]] LORVALE_EXPORT std::string decodeCString(std::string_view bytes);

/// Text to bytes in the default C string encoding, with "?" for what it lacks.
[[nodiscard]] LORVALE_EXPORT Data encodeCString(std::string_view utf8);

}  // namespace lorvale

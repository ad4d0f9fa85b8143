#include "base/text/TextScanner.h"
#include "lorvale/mime.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/encoding/Charsets.h"
#include "mail/encoding/EncodedWord.h"
#include "mail/encoding/HeaderWords.h"

namespace lorvale {

namespace {

bool needsEncoding(std::string_view text) {
    return !isAscii(text) || text.starts_with(kWordOpener) || text.find(" =?") != std::string_view::npos ||
           text.find("\t=?") != std::string_view::npos;
}

void appendEscaped(std::string& out, std::string_view bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<std::uint8_t>(bytes[i]);
        const bool endsWord = byte == '?' && i + 1 < bytes.size() && bytes[i + 1] == '=';
        // Only UTF-16 has bytes of control characters here, a line end among them.
        if (byte > 0x7F || byte < ' ' || byte == '_' || byte == '=' || endsWord) {
            out += formatText("=%02X", byte);
        } else {
            out += bytes[i];
        }
    }
}

/// UTF-16 without a mark is big-endian to every reader; a mark for each character would be read as text.
std::string_view withoutByteOrderMark(std::string_view bytes, StringEncoding encoding) {
    return encoding == StringEncoding::unicode && bytes.starts_with("\xFE\xFF") ? bytes.substr(2) : bytes;
}

/// An odd form of encoded word: one opener in front of the first character that needs it, no end mark, plain
/// characters unescaped after it, and white space dropped.  It stays, since it is what the programs of this
/// family write and what their readers, decodeMimeHeaderValue() among them, take: mail in the stores has it.
std::string encodeQuoted(std::string_view text, StringEncoding encoding) {
    const auto& white = CharacterSet::whitespaceAndNewlineSet();
    std::string out;
    bool opened = false;
    while (!text.empty()) {
        const auto before = text;
        const auto character = nextCodePoint(text);
        const auto token = before.substr(0, before.size() - text.size());
        if (white.isMember(character)) continue;
        if (character < 0x80 && !before.starts_with(kWordOpener)) {
            out += token;
            continue;
        }
        if (!opened) out += formatText("=?%@?q?", _charsetForEncoding(encoding));
        opened = true;
        // A byte that is not UTF-8 has no form in any encoding; it stands for itself.
        const auto bytes = encode(token, encoding);
        appendEscaped(out, bytes ? withoutByteOrderMark(bytes->view(), encoding) : token);
    }
    return out;
}

}  // namespace

std::string writeClassicWords(std::string_view text, StringEncoding preferred) {
    if (!needsEncoding(text)) return std::string(text);
    const auto encoding = bestStringEncoding(text, preferred);
    return encoding == StringEncoding::iso2022JP ? foldJapaneseText(text) : encodeQuoted(text, encoding);
}

}  // namespace lorvale

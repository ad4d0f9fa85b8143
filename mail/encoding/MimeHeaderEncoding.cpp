#include "mail/encoding/MimeHeaderEncoding.h"

#include <algorithm>

#include "base/text/TextScanner.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"
#include "mail/encoding/Charsets.h"
#include "mail/encoding/TransferDecoders.h"

namespace lorvale {

namespace {

constexpr std::string_view kWordOpener = "=?";

/// Whether bytes below 0x80 always stand for the characters of the same number.
bool readsAsciiAsItIs(StringEncoding encoding) {
    return encoding != StringEncoding::unicode && encoding != StringEncoding::iso2022JP;
}

/// The bytes that a header text was made from; nullopt when it holds characters that no byte gives.
std::optional<Data> headerBytes(std::string_view text) {
    return encode(text, defaultCStringEncoding());
}

/// Text outside encoded words.  Bytes above 0x7F have no charset there; where the user prefers one, they are
/// taken to be in it.  Text that does not fit stays as it is.
void appendPlain(std::string& out, std::string_view text, StringEncoding preferred) {
    if (preferred == StringEncoding::unknown || (readsAsciiAsItIs(preferred) && isAscii(text))) {
        out += text;
        return;
    }
    const auto bytes = headerBytes(text);
    const auto read = bytes ? decode(bytes->view(), preferred) : std::nullopt;
    out += read ? std::string_view(*read) : text;
}

/// Reads the encoded words of one value.
class EncodedWordReader {
public:
    EncodedWordReader(std::string_view text, StringEncoding preferred) : _scanner(text), _preferred(preferred) {
        _scanner.setCaseSensitive(true);
    }

    /// The scanner skips white space before each piece: that is how the blank between two words goes.
    std::string read() {
        while (!_scanner.isAtEnd()) {
            if (std::string_view plain; _scanner.scanUpToString(kWordOpener, &plain))
                appendPlain(_out, plain, _preferred);
            readWord();
        }
        return std::move(_out);
    }

private:
    enum class Transfer { none, quotedPrintable, base64 };

    /// "=?charset?letter?pieces?=".  What was scanned of a broken opener is dropped.
    void readWord() {
        std::string_view charset, letter;
        if (!_scanner.scanString(kWordOpener) || !_scanner.scanUpToString("?", &charset) ||
            !_scanner.scanString("?"))
            return;
        const auto encoding = encodingNamed(charset);
        if (!_scanner.scanUpToString("?", &letter)) {
            // Once a value, which may hold thousands of such words and is logged whole.
            if (!_complained) log("Missing encoding char (Q or B) in MIME header: \"%@\"", _scanner.string());
            _complained = true;
            return;
        }
        _scanner.scanString("?");
        readPieces(transferNamed(letter), encoding);
    }

    StringEncoding encodingNamed(std::string_view charset) const {
        if (const auto known = encodingOfEncodedWord(charset)) return *known;
        if (_preferred != StringEncoding::unknown) return _preferred;
        log("Don't know how to decode charset \"%@\"--treating as %@", charset, kDefaultCharset);
        return StringEncoding::isoLatin1;
    }

    static Transfer transferNamed(std::string_view letter) {
        if (equalIgnoringAsciiCase(letter, "Q")) return Transfer::quotedPrintable;
        if (equalIgnoringAsciiCase(letter, "B")) return Transfer::base64;
        log("Never heard of a \"%@\" type encoding--treating as unencoded", letter);
        return Transfer::none;
    }

    /// Up to "?=", or to the end of the value without one, as encodeMimeHeaderValue() writes it.
    void readPieces(Transfer transfer, StringEncoding encoding) {
        static constexpr CharacterSet kPunctuation("?_");
        while (const auto piece = _scanner.nextTokenWithPunctuation(kPunctuation)) {
            if (*piece == "_") {
                _out += ' ';
            } else if (*piece == "?" && _scanner.scanString("=")) {
                return;
            } else {
                appendPiece(*piece, transfer, encoding);
            }
        }
    }

    /// Each piece is decoded by itself.  Bytes that are not valid in the encoding are read as bytes of a header
    /// outside a word are: mojibake that can be turned back, where U+FFFD would have lost them.
    void appendPiece(std::string_view piece, Transfer transfer, StringEncoding encoding) {
        const bool ascii = isAscii(piece);
        const bool isLiteral = transfer == Transfer::none || (transfer == Transfer::quotedPrintable &&
                                                              piece.find('=') == std::string_view::npos);
        if (ascii && isLiteral && readsAsciiAsItIs(encoding)) {
            _out += piece;
            return;
        }
        const auto bytes = ascii ? Data::ofStatic(piece) : headerBytes(piece);  // borrowed for this call
        if (!bytes) {
            _out += piece;  // never came in as bytes, so nothing is encoded in it
            return;
        }
        _decoded.truncate(0);
        switch (transfer) {
            case Transfer::none:
                _decoded.append(bytes->view());
                break;
            case Transfer::quotedPrintable:
                appendDecodedQuotedPrintable(_decoded, bytes->view());
                break;
            case Transfer::base64:
                appendDecodedBase64(_decoded, bytes->view());
                break;
        }
        const auto read = decode(_decoded.view(), encoding);
        _out += read ? *read : decodeCString(_decoded.view());
    }

    TextScanner _scanner;
    const StringEncoding _preferred;
    bool _complained = false;
    std::string _out;
    ByteBuffer _decoded;  // one piece, kept for its memory
};

bool needsEncoding(std::string_view text) {
    return !isAscii(text) || text.starts_with(kWordOpener) || text.find(" =?") != std::string_view::npos ||
           text.find("\t=?") != std::string_view::npos;
}

void appendEscaped(std::string& out, std::string_view bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<std::uint8_t>(bytes[i]);
        const bool endsWord = byte == '?' && i + 1 < bytes.size() && bytes[i + 1] == '=';
        if (byte > 0x7F || byte == '_' || byte == '=' || endsWord) {
            out += formatText("=%02X", byte);
        } else {
            out += bytes[i];
        }
    }
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
        appendEscaped(out, bytes ? bytes->view() : token);
    }
    return out;
}

/// Folds Japanese text into plain runs and encoded words on lines of about 78 columns.  How the columns are
/// counted is odd in places and stays so, since the same value must always fold the same way: messages are told
/// apart by their headers.
class JapaneseFolder {
public:
    std::string fold(std::string_view text) {
        static const auto ascii = CharacterSet::nonASCIISet().inverted();
        TextScanner scanner(text);  // white space before a run is skipped and lost
        while (!scanner.isAtEnd()) {
            std::string_view run;
            if (!scanner.scanUpToCharactersFromSet(CharacterSet::nonASCIISet(), &run)) run = {};
            appendPlainRun(run);
            if (!scanner.scanUpToCharactersFromSet(ascii, &run)) run = {};
            appendJapaneseRun(run);
        }
        return std::move(_out);
    }

private:
    static constexpr std::size_t kWidth = 78;
    static constexpr std::size_t kMarks = 18;  // "=?ISO-2022-JP?B?" and "?="
    static constexpr std::string_view kFold = "\n ";

    void appendPlainRun(std::string_view run) {
        startRun(0);
        while (_column + run.size() > kWidth) {
            const auto piece = run.substr(0, kWidth - _column);
            appendPiece(piece);
            run.remove_prefix(piece.size());
            continueOnNextLine();
        }
        if (run.empty()) return;
        appendPiece(run);
        _column = run.size() + 1;  // counted from the start of the run, not of the line
    }

    void appendJapaneseRun(std::string_view run) {
        startRun(kMarks);
        auto word = base64(run);
        while (word.size() + _column + kMarks > kWidth) {
            const auto piece = pieceThatFits(run);
            if (!piece.empty()) appendWord(base64(piece));
            run.remove_prefix(piece.size());
            word = base64(run);
            continueOnNextLine();
        }
        if (word.empty()) return;
        appendWord(word);
        _column = word.size() + kMarks + 1;
        if (_column > kWidth) _column = 1;
    }

    /// A run whose first `needed` columns do not fit begins on a new line.  Its first piece then brings the
    /// fold text once more: a line with a blank alone, which unfolds to nothing.
    void startRun(std::size_t needed) {
        _isFirstPiece = true;
        if (_column + needed <= kWidth) return;
        _out += kFold;
        continueOnNextLine();
    }

    void continueOnNextLine() {
        _isFirstPiece = false;
        _column = 1;
    }

    void appendPiece(std::string_view piece) {
        if (!_isFirstPiece) _out += kFold;
        _out += piece;
    }

    /// `word` ends in the line end of encodeBase64(), which is left out here, though it counts as a column.
    void appendWord(std::string_view word) {
        appendPiece("=?ISO-2022-JP?B?");
        _out += word.substr(0, word.size() - 1);
        _out += "?=";
    }

    /// As much of a run as is worth looking at: this many characters are too long for a line in any case, and
    /// work must not grow with the square of the run.
    static std::string_view beginning(std::string_view run) { return run.substr(0, byteOffset(run, kWidth)); }

    static std::string base64(std::string_view run) {
        const auto bytes = encode(beginning(run), StringEncoding::iso2022JP, Lossy::yes);
        return encodeBase64(bytes.value_or(Data())).toString();
    }

    /// As many characters as the line may take, leaving at least one over.  Empty where no room is left on it.
    std::string_view pieceThatFits(std::string_view run) const {
        // A character takes two bytes; the four are the escapes before and after, measured in characters.
        const auto room = (60 - static_cast<int>(_column)) / 2 - 4;
        const auto all = static_cast<int>(characterCount(beginning(run)));
        for (auto count = std::min(all - 1, room); count > 0; --count) {
            const auto piece = run.substr(0, byteOffset(run, static_cast<std::size_t>(count)));
            if (base64(piece).size() + kMarks <= kWidth) return piece;
        }
        return {};
    }

    std::string _out;
    std::size_t _column = 10;  // leaves room for the name of the header
    bool _isFirstPiece = true;
};

}  // namespace

std::string decodeHeaderValue(std::string_view text, StringEncoding preferred) {
    return EncodedWordReader(text, preferred).read();
}

std::string encodeHeaderValue(std::string_view text, StringEncoding preferred) {
    if (!needsEncoding(text)) return std::string(text);
    const auto encoding = bestStringEncoding(text, preferred);
    return encoding == StringEncoding::iso2022JP ? JapaneseFolder().fold(text) : encodeQuoted(text, encoding);
}

std::string decodeMimeHeaderValue(std::string_view text) {
    return decodeHeaderValue(text, preferedMIMEStringEncoding());
}

std::string encodeMimeHeaderValue(std::string_view text) {
    return encodeHeaderValue(text, preferedMIMEStringEncoding());
}

std::string quotedMimeString(std::string_view text) {
    constexpr std::string_view kSpecial = "()<>@,;:\\\"/[]?=";
    if (text.find_first_of(kSpecial) == std::string_view::npos) return std::string(text);
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

}  // namespace lorvale

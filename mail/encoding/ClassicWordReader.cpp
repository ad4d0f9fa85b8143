#include "base/text/Ascii.h"
#include "base/text/TextScanner.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"
#include "mail/encoding/Charsets.h"
#include "mail/encoding/EncodedWord.h"
#include "mail/encoding/HeaderWords.h"
#include "mail/encoding/TransferDecoders.h"

namespace lorvale {

namespace {

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
        while (const auto piece = nextPiece()) {
            if (*piece == "_") {
                _out += ' ';
            } else if (*piece == "?" && _scanner.scanString("=")) {
                return;
            } else {
                appendPiece(*piece, transfer, encoding);
            }
        }
    }

    /// Up to a mark or white space.  Nearly every piece is plain ASCII, for which no set of characters is
    /// asked.
    std::optional<std::string_view> nextPiece() {
        static constexpr CharacterSet kPunctuation("?_");
        static constexpr auto kInside =
            byteTable([](std::uint8_t c) { return c > ' ' && c < 0x7F && c != '?' && c != '_'; });
        const auto start = _scanner.scanLocation();
        const auto rest = _scanner.string().substr(start);
        std::size_t length = 0;
        while (length < rest.size() && kInside[static_cast<std::uint8_t>(rest[length])]) ++length;
        const char behind = length < rest.size() ? rest[length] : ' ';
        if (length == 0 || (behind != '?' && behind != '_' && behind != ' '))
            return _scanner.nextTokenWithPunctuation(kPunctuation);
        _scanner.setScanLocation(start + length);
        return rest.substr(0, length);
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
        if (const auto read = decode(_decoded.view(), encoding)) {
            _out += *read;
        } else if (encoding == StringEncoding::iso2022JP) {
            _out +=
                decodeLossy(_decoded.view(), encoding);  // often cut inside a character: keep what is before
        } else {
            _out += decodeCString(_decoded.view());
        }
    }

    TextScanner _scanner;
    const StringEncoding _preferred;
    bool _complained = false;
    std::string _out;
    ByteBuffer _decoded;  // one piece, kept for its memory
};

}  // namespace

std::string readClassicWords(std::string_view text, StringEncoding preferred) {
    return EncodedWordReader(text, preferred).read();
}

}  // namespace lorvale

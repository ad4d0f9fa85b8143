#include "base/text/NamedCharset.h"
#include "lorvale/values/text.h"
#include "mail/encoding/AddressLexer.h"
#include "mail/encoding/EncodedWord.h"
#include "mail/encoding/HeaderWords.h"

namespace lorvale {

namespace {

/// RFC 2047, section 5: words stand in the place of a word of a phrase, and in comments.  Those in quotes stand
/// there by mistake, and often.
class AddressWordReader {
public:
    AddressWordReader(std::string_view text, StringEncoding preferred)
        : _lexer(text), _preferred(preferred), _isUtf8(isValidUtf8(text)) {}

    std::string read() {
        // A word that holds one of these is none, but two halves of different mailboxes.
        constexpr std::string_view kBarred = "<>\"";
        bool bracketed = false;
        for (;;) {
            if (!bracketed) {
                if (const auto words = takeWords(_lexer.cursor(), _preferred, kBarred)) {
                    appendPhrase(*words);
                    continue;
                }
            }
            const auto token = _lexer.next();
            if (!token) return std::move(_out);
            if (token->is('<')) bracketed = true;
            if (token->is('>')) bracketed = false;
            append(*token);
        }
    }

private:
    /// What was encoded together stays together: a comma in a name must not end the mailbox now.
    void appendPhrase(std::string_view words) {
        if (!words.empty()) _out += phraseText(words);
    }

    void append(const AddressToken& token) {
        using enum AddressToken::Kind;
        const bool hasWords = token.text.find(kWordOpener) != std::string_view::npos;
        if (hasWords && token.kind == quoted) {
            appendDelimited(token, '"', '"', "\\\"");
        } else if (hasWords && token.kind == comment) {
            appendDelimited(token, '(', ')', "\\()");
        } else if (hasWords && token.kind == atom) {
            appendAtom(token.text);
        } else {
            appendPlain(token.text);
        }
    }

    void appendDelimited(const AddressToken& token, char open, char close, std::string_view escaped) {
        const auto inside = token.text.substr(1, token.text.size() - 2);
        Cursor cursor(inside);
        _out += open;
        while (!cursor.atEnd()) {
            appendPlain(cursor.takeUntil(kWordOpener));
            if (const auto words = takeWords(cursor, _preferred)) {
                appendEscaped(_out, *words, escaped);
            } else {
                appendPlain(cursor.take(kWordOpener.size()));
            }
        }
        _out += close;
    }

    /// Text with a word behind it and nothing between.
    void appendAtom(std::string_view text) {
        Cursor cursor(text);
        while (!cursor.atEnd()) {
            appendPlain(cursor.takeUntil(kWordOpener));
            if (const auto words = takeWords(cursor, _preferred)) {
                appendPhrase(*words);
            } else {
                appendPlain(cursor.take(kWordOpener.size()));
            }
        }
    }

    void appendPlain(std::string_view text) {
        _isUtf8 ? _out += text : _out += decodeUnlabelled(text, _preferred);
    }

    AddressLexer _lexer;
    const StringEncoding _preferred;
    const bool _isUtf8;
    std::string _out;
};

}  // namespace

std::string readStandardAddresses(std::string_view text, StringEncoding preferred) {
    if (text.find(kWordOpener) == std::string_view::npos) return decodeUnlabelled(text, preferred);
    return AddressWordReader(text, preferred).read();
}

}  // namespace lorvale

#include <algorithm>
#include <vector>

#include "mail/encoding/AddressLexer.h"
#include "mail/encoding/HeaderWords.h"
#include "mail/encoding/LineFolder.h"
#include "mail/encoding/WordWriter.h"

namespace lorvale {

namespace {

using Kind = AddressToken::Kind;

/// Writes a list as it stands, but for display names and comments that need encoded words: nothing else of a
/// list may hold them (RFC 2047, section 5).  Addresses outside ASCII stay in UTF-8 (RFC 6532).
class AddressWriter {
public:
    AddressWriter(std::size_t column, StringEncoding preferred) : _lines(column), _words(_lines, preferred) {}

    std::string write(std::string_view text) {
        AddressLexer lexer(text);
        bool inGroup = false;
        while (const auto token = lexer.next()) {
            _mailbox.push_back(*token);
            _hasAt = _hasAt || token->is('@');
            const bool opensGroup = token->is(':') && !_hasAt && !inGroup;
            if (opensGroup) inGroup = true;
            if (token->is(';')) inGroup = false;
            if (opensGroup || token->is(',') || token->is(';')) writeMailbox();
        }
        writeMailbox();
        flush();
        return _lines.take();
    }

private:
    /// A mailbox, or the name of a group, with what ends it.
    void writeMailbox() {
        const auto bracket =
            std::find_if(_mailbox.cbegin(), _mailbox.cend(), [](const auto& token) { return token.is('<'); });
        const bool isAddress = bracket == _mailbox.cend() && _hasAt;
        auto at = _mailbox.cbegin();
        while (at != bracket && !isAddress) {
            const auto end = endOfPhrase(at, bracket);
            if (end == at) {
                writeToken(*at++);
            } else {
                writePhrase(at, end);
                at = end;
            }
        }
        for (; at != _mailbox.cend(); ++at) writeToken(*at);
        _mailbox.clear();
        _hasAt = false;
        if (!_glued.empty() || _isBehindWords) writeWhite(" ");  // a line may end behind a comma
    }

    using Place = std::vector<AddressToken>::const_iterator;

    /// Behind the last word of the phrase that begins here; this place itself when none does.
    static Place endOfPhrase(Place from, Place limit) {
        auto end = from;
        for (auto at = from; at != limit; ++at) {
            if (at->kind == Kind::atom || at->kind == Kind::quoted) {
                end = std::next(at);
            } else if (at->kind != Kind::white || at == from) {
                break;
            }
        }
        return end;
    }

    void writePhrase(Place from, Place to) {
        const auto name = nameOf(from, to);
        if (needsWords(name)) return writeWords(name);
        for (; from != to; ++from) writeToken(*from);
    }

    /// Without quotes, a blank for any white space.
    static std::string nameOf(Place from, Place to) {
        std::string name;
        for (; from != to; ++from) {
            if (from->kind != Kind::white) {
                name += from->content();
            } else if (!name.empty()) {
                name += ' ';
            }
        }
        return name;
    }

    void writeToken(const AddressToken& token) {
        if (token.kind == Kind::white) return writeWhite(token.text);
        if (token.kind == Kind::comment && needsWords(token.text)) {
            // The words stand close to the parenthesis, so that no line can end between them.
            constexpr std::size_t kRoomForSome = 40;
            glue("(");
            if (!_white.empty() && _lines.room() < kRoomForSome) _lines.startLine();
            flush();
            _words.write("", token.content());
            _isBehindWords = false;
            _glued = ")";
            return;
        }
        glue(token.text);
    }

    void writeWhite(std::string_view white) {
        flush();
        _white = white;
        _isBehindWords = false;
    }

    /// Words need white space on either side.
    void writeWords(std::string_view name) {
        flush();
        _words.write(_lines.empty() ? "" : _white.empty() ? " " : _white, name);
        _white = {};
        _isBehindWords = true;
    }

    void glue(std::string_view text) {
        if (_isBehindWords && text != "," && text != ";" && text != ":") _white = " ";
        _isBehindWords = false;
        _glued += text;
    }

    void flush() {
        if (_glued.empty()) return;
        _lines.add(_lines.empty() ? std::string_view() : _white, _glued);
        _glued.clear();
        _white = {};
    }

    LineFolder _lines;
    WordWriter _words;
    std::vector<AddressToken> _mailbox;  // read, not yet written
    bool _hasAt = false;                 // among them
    std::string_view _white;             // stands before _glued
    std::string _glued;                  // text that no line may end in
    bool _isBehindWords = false;
};

}  // namespace

std::string writeStandardAddresses(std::string_view text, std::size_t column, StringEncoding preferred) {
    return AddressWriter(column, preferred).write(harmlessText(text));
}

}  // namespace lorvale

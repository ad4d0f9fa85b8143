#include "lorvale/message/mailboxes.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "lorvale/values/text.h"
#include "mail/encoding/AddressLexer.h"

namespace lorvale {

namespace {

using Kind = AddressToken::Kind;

/// Words with one blank where white space or a comment stood between them.
class Words {
public:
    void add(std::string_view word) {
        if (_gap && _hasWords) _text += ' ';
        _gap = false;
        _hasWords = true;  // "" is one
        _text += word;
    }
    void addGap() { _gap = true; }
    std::string take() {
        _gap = _hasWords = false;
        return std::exchange(_text, {});
    }

private:
    std::string _text;
    bool _gap = false, _hasWords = false;
};

/// "local@domain" with what may stand around its dots and its at sign left out.
class AddressSpec {
public:
    void add(const AddressToken& token) {
        const bool joins = token.text.front() == '@' || token.text.front() == '.' || _text.ends_with('@') ||
                           _text.ends_with('.');
        if (_gap && !_text.empty() && !joins) {
            _lastWord = _text.size() + 1;
            _text += ' ';
        }
        _gap = false;
        _hasAt = _hasAt || token.is('@');
        _text += token.text;
    }
    void addGap() { _gap = true; }
    bool hasAt() const { return _hasAt; }
    bool empty() const { return _text.empty(); }
    /// "Jane Doe jd@x": how many bytes stand before the address.
    std::size_t lengthBeforeAddress() const {
        const bool isLast = _lastWord > 0 && _text.find('@', _lastWord) != std::string::npos;
        return isLast ? _lastWord : 0;
    }
    std::string take() {
        _gap = _hasAt = false;
        _lastWord = 0;
        return std::exchange(_text, {});
    }

private:
    std::string _text;
    std::size_t _lastWord = 0;
    bool _gap = false, _hasAt = false;
};

class MailboxListReader {
public:
    explicit MailboxListReader(std::string_view text) : _lexer(text), _lastClose(text.rfind('>')) {}

    std::vector<Mailbox> read() {
        while (const auto token = _lexer.next()) take(*token);
        finishMailbox();
        return std::move(_mailboxes);
    }

private:
    void take(const AddressToken& token) {
        if (token.is(',')) {
            finishMailbox();
        } else if (token.is(';')) {
            finishMailbox();
            _group.clear();
        } else if (token.is(':') && !_addrSpec.hasAt() && !_bracketed && _group.empty()) {
            _group = _name.take();
            _addrSpec.take();
            _comment.take();
        } else if (token.is('<')) {
            if (_bracketed) finishMailbox();
            takeBracketed();
        } else if (token.kind == Kind::comment) {
            takeComment(token);
        } else if (token.kind == Kind::white) {
            _name.addGap();
            _addrSpec.addGap();
        } else if (!token.is('>')) {
            if (_bracketed) finishMailbox();  // a comma is missing
            _name.add(token.content());
            _addrSpec.add(token);
        }
    }

    void takeComment(const AddressToken& token) {
        _comment.addGap();
        _comment.add(trimmed(token.content()));
        _name.addGap();
        _addrSpec.addGap();
    }

    /// Up to the ">", or without one as far as the mailbox goes.  A route, "@a,@b:" before the address, is a
    /// thing of the past (RFC 5322, section 4.4) and goes.
    void takeBracketed() {
        _bracketed.emplace();
        const bool isClosed = _lastClose != std::string_view::npos && _lexer.cursor().position() <= _lastClose;
        AddressSpec address;
        bool hasRoute = false, isOver = false;
        for (auto before = _lexer.cursor(); const auto token = _lexer.next(); before = _lexer.cursor()) {
            if (token->is('>')) break;
            if (token->is('@') && address.empty()) hasRoute = true;
            if (!isClosed && (token->is(';') || (token->is(',') && !hasRoute))) {
                _lexer.cursor() = before;
                break;
            }
            if (token->is('<') || (token->is(':') && hasRoute)) {
                address.take();
                hasRoute = false;
            } else if (token->kind == Kind::comment) {
                takeComment(*token);
            } else if (token->is(':') || token->is(';')) {
                isOver = true;  // "<undisclosed-recipients:;>"
            } else if (token->kind != Kind::white && !isOver) {
                address.add(*token);
            }
        }
        *_bracketed = address.take();
    }

    void finishMailbox() {
        Mailbox mailbox{{}, {}, _comment.take(), _group};
        const auto before = _addrSpec.lengthBeforeAddress();
        auto addrSpec = _addrSpec.take();
        auto name = _name.take();
        if (_bracketed) {
            mailbox.name = std::move(name);
            mailbox.address = *std::move(_bracketed);
        } else if (before > 0) {
            mailbox.address = addrSpec.substr(before);
            mailbox.name = name.substr(0, name.size() - std::min(name.size(), mailbox.address.size()));
            mailbox.name = std::string(trimmed(mailbox.name));
        } else {
            mailbox.address = std::move(addrSpec);
        }
        _bracketed.reset();
        if (!mailbox.name.empty() || !mailbox.address.empty()) _mailboxes.push_back(std::move(mailbox));
    }

    AddressLexer _lexer;
    const std::size_t _lastClose;  // the last ">" of all
    std::vector<Mailbox> _mailboxes;
    std::string _group;
    Words _name, _comment;                  // of the mailbox at hand
    AddressSpec _addrSpec;                  // the same, were it an address
    std::optional<std::string> _bracketed;  // what stood between < and >
};

}  // namespace

std::vector<Mailbox> mailboxesInList(std::string_view text) {
    return MailboxListReader(text).read();
}

std::string mailboxText(const Mailbox& mailbox) {
    std::string text =
        mailbox.name.empty() ? mailbox.address : phraseText(mailbox.name) + " <" + mailbox.address + ">";
    if (mailbox.comment.empty()) return text;
    text += " (";
    appendEscaped(text, mailbox.comment, "\\()");
    return text + ')';
}

std::string mailboxListText(std::span<const Mailbox> mailboxes) {
    std::string text, group;
    for (const auto& mailbox : mailboxes) {
        const bool isNext = &mailbox != mailboxes.data();
        if (mailbox.group != group) {
            if (!group.empty()) text += ';';
            if (isNext) text += ", ";
            group = mailbox.group;
            if (!group.empty()) text += phraseText(group) + ": ";
        } else if (isNext) {
            text += ", ";
        }
        text += mailboxText(mailbox);
    }
    return group.empty() ? text : text + ';';
}

}  // namespace lorvale

#include "mail/delivery/TransparentText.h"

#include <algorithm>

namespace lorvale {

bool TransparentText::appendTo(std::string& out, std::size_t size) {
    if (_position == _text.size()) return false;
    const std::size_t end = out.size() + size;
    while (_position < _text.size() && out.size() < end) {
        const bool startsLine = _position == 0 || _text[_position - 1] == '\n';
        if (startsLine && _text[_position] == '.') out += '.';
        const auto rest = _text.substr(_position, size);
        const std::size_t newline = rest.find('\n');
        if (newline == std::string_view::npos) {
            out += rest;
            _position += rest.size();
            continue;
        }
        _position += newline + 1;
        const bool isBare = _position < 2 || _text[_position - 2] != '\r';
        out.append(rest.substr(0, isBare ? newline : newline + 1));
        if (isBare) out += "\r\n";
    }
    if (_position == _text.size()) appendEnd(out);
    return true;
}

void TransparentText::appendEnd(std::string& out) const {
    // Classic writes a line at each bare newline.  A CRLF does not count as one, so that text with such lines
    // ends with an empty one; peers of old have always got it.
    const bool isOpen = _dialect == MailDialect::classic ? !_text.ends_with('\n') || _text.ends_with("\r\n")
                                                         : !_text.ends_with('\n');
    if (isOpen) out += "\r\n";
}

}  // namespace lorvale

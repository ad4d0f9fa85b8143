#pragma once
#include <cstddef>
#include <string>
#include <string_view>

namespace lorvale {

/// Puts the pieces of a header value on lines (RFC 5322, section 2.2.3): a line end is written in front of
/// white space, which stays, where the next piece would reach the column 77.  RFC 2047 asks for lines below
/// that.
class LineFolder {
public:
    static constexpr std::size_t kWidth = 76;

    /// `column` is how much of the first line is taken.
    explicit LineFolder(std::size_t column) : _column(column) {}

    /// A piece that is never cut, behind white space, or nothing.
    void add(std::string_view white, std::string_view piece) {
        const bool fits = _column + white.size() + piece.size() <= kWidth;
        if (!fits && !white.empty() && !_out.empty()) startLine();
        _out += white;
        _out += piece;
        _column += white.size() + piece.size();
    }
    /// The next piece stands on a new line; it must have white space in front.
    void startLine() {
        _out += '\n';
        _column = 0;
    }

    bool empty() const { return _out.empty(); }
    std::size_t room() const { return _column < kWidth ? kWidth - _column : 0; }
    std::string take() { return std::move(_out); }

private:
    std::string _out;
    std::size_t _column;
};

}  // namespace lorvale

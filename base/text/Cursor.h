#pragma once
#include <algorithm>
#include <concepts>
#include <cstddef>
#include <string_view>

#include "base/text/DataUtils.h"
#include "lorvale/values/text.h"

namespace lorvale {

/// A position in text that somebody else keeps alive.  What is taken comes out as a view into that text, and
/// nothing is skipped unasked.  Every operation works on what is left and stops at the end; none fails.  As
/// cheap to copy as a view: a reader that may have to go back works on a copy, or notes the position.
class Cursor {
public:
    static constexpr std::size_t npos = std::string_view::npos;

    constexpr explicit Cursor(std::string_view text) : _text(text) {}

    constexpr bool atEnd() const { return _position == _text.size(); }
    constexpr std::string_view rest() const { return _text.substr(_position); }
    /// The byte that many places ahead; a zero byte behind the end.
    constexpr char peek(std::size_t ahead = 0) const {
        return ahead < _text.size() - _position ? _text[_position + ahead] : '\0';
    }

    /// Bytes from the start of the text.  Moving past the end stops there.
    constexpr std::size_t position() const { return _position; }
    constexpr void moveTo(std::size_t position) { _position = std::min(position, _text.size()); }
    /// The text between an earlier position and this one.
    constexpr std::string_view takenSince(std::size_t position) const {
        return _text.substr(position, _position - position);
    }

    constexpr void advance(std::size_t count = 1) { take(count); }
    /// Takes the character, or the word, if it stands here.
    constexpr bool skip(char c) {
        return skipIf([c](char here) { return here == c; });
    }
    constexpr bool skip(std::string_view word) {
        const bool isHere = rest().starts_with(word);
        if (isHere) advance(word.size());
        return isHere;
    }
    /// With A to Z as a to z.
    bool skipIgnoringCase(std::string_view word) {
        const bool isHere = equalIgnoringAsciiCase(rest().substr(0, word.size()), word);
        if (isHere) advance(word.size());
        return isHere;
    }
    /// Takes one character that `in` holds of.
    template <std::predicate<char> In>
    constexpr bool skipIf(In in) {
        const bool isHere = !atEnd() && in(_text[_position]);
        if (isHere) ++_position;
        return isHere;
    }

    constexpr std::string_view take(std::size_t count) {
        const auto taken = rest().substr(0, count);
        _position += taken.size();
        return taken;
    }
    /// The characters here that `in` holds of, `most` at most.
    template <std::predicate<char> In>
    constexpr std::string_view takeWhile(In in, std::size_t most = npos) {
        const auto here = rest().substr(0, most);
        const auto end = std::ranges::find_if_not(here, in);
        return take(static_cast<std::size_t>(end - here.begin()));
    }
    /// Everything up to a character that `in` holds of; all that is left without one.
    template <std::predicate<char> In>
    constexpr std::string_view takeUntil(In in) {
        return takeWhile([&](char c) { return !in(c); });
    }
    constexpr std::string_view takeUntil(char c) { return take(rest().find(c)); }
    /// Everything up to the pattern; all that is left without it, and in linear time.
    std::string_view takeUntil(std::string_view pattern) { return take(findBytes(rest(), pattern)); }
    constexpr std::string_view takeRest() { return take(npos); }
    /// Up to the next newline, which is taken too and is no part of the result.
    constexpr std::string_view takeLine() {
        const auto line = takeUntil('\n');
        skip('\n');
        return line;
    }

private:
    std::string_view _text;
    std::size_t _position = 0;  // never past the end
};

}  // namespace lorvale

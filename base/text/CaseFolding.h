#pragma once
#include <array>
#include <cstddef>
#include <string_view>

namespace lorvale {

/// The code points that one character folds to: itself, another one, or up to three ("ß" to "ss").
class FoldedCharacter {
public:
    static constexpr std::size_t kMost = 4;

    void append(char32_t c) { _characters[_count++] = c; }
    void reverse();
    const char32_t* begin() const { return _characters.data(); }
    const char32_t* end() const { return _characters.data() + _count; }

private:
    std::array<char32_t, kMost> _characters{};
    std::size_t _count = 0;
};

/// `c` may be a bad byte of text.h, which folds to itself.
FoldedCharacter foldedCharacter(char32_t c);
char32_t lowerCharacter(char32_t c);

/// The folded code points of a text, one at a time, from its start or from its end.  Borrows the text.
class FoldedText {
public:
    static constexpr char32_t kEnd = 0;  // below every character, and U+0000 comes out as kNull
    static constexpr char32_t kNull = 0x110000;
    enum class Direction { forwards, backwards };

    explicit FoldedText(std::string_view text, Direction direction = Direction::forwards)
        : _rest(text), _direction(direction) {}

    /// kEnd when nothing is left.
    char32_t next();
    /// Whether the code point answered last is the final one of its character.
    bool atCharacterBoundary() const { return _next == _pending.end(); }
    /// How much of the text has not been looked at, in bytes.
    std::size_t bytesLeft() const { return _rest.size(); }

    FoldedText(const FoldedText&) = delete;  // _next points into it
    FoldedText& operator=(const FoldedText&) = delete;

private:
    std::string_view _rest;
    Direction _direction;
    FoldedCharacter _pending;
    const char32_t* _next = _pending.end();
};

}  // namespace lorvale

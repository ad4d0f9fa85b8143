#pragma once
#include <cstddef>
#include <string>
#include <string_view>

/// The program that an expression becomes: nodes one behind the other, after one byte that marks it.
///
/// A node is its kind (one byte), the distance to the next node of its chain (two bytes, most significant
/// first, 0 at the end of a chain, backwards for `back`), and an operand: the characters of `exactly`, `anyOf`
/// and `anyBut`, ended by a zero byte; the node to repeat behind `star` and `plus`; the first node of the
/// alternative behind `branch`, whose next one is the alternative that follows it, or what follows all of them.

namespace lorvale::expression {

enum Node : unsigned char {
    end,  ///< the whole expression has matched
    lineStart,
    lineEnd,
    any,
    anyOf,
    anyBut,
    branch,
    back,  ///< matches nothing; leads backwards, to repeat
    exactly,
    nothing,
    star,       ///< its operand, which takes one character, any number of times
    plus,       ///< the same, at least once
    open = 20,  ///< open + n: group n begins
    close = 30,
};

inline constexpr std::size_t kNodeHead = 3;
/// A program of so many bytes is refused: distances are 15 bits.
inline constexpr std::size_t kProgramLimit = 0x7FFF;
/// No node; position 0 of a program is its mark.
inline constexpr std::size_t kNoNode = 0;

/// Reads a program.  Positions come from the program itself, so none is checked.
class ProgramView {
public:
    explicit ProgramView(std::string_view program) : _program(program) {}

    unsigned char kindOf(std::size_t node) const { return static_cast<unsigned char>(_program[node]); }
    std::size_t operandOf(std::size_t node) const { return node + kNodeHead; }
    /// Up to the zero byte behind it.
    std::string_view charactersOf(std::size_t node) const { return _program.data() + operandOf(node); }
    std::size_t nextOf(std::size_t node) const {
        const auto distance = (std::size_t{kindOf(node + 1)} << 8) + kindOf(node + 2);
        if (distance == 0) return kNoNode;
        return kindOf(node) == back ? node - distance : node + distance;
    }

private:
    std::string_view _program;
};

}  // namespace lorvale::expression

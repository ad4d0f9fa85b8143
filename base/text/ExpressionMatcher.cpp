/// Runs the program of an expression over a text.
#include <algorithm>
#include <atomic>
#include <vector>

#include "base/text/ExpressionProgram.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/regular_expression.h"

namespace lorvale {

namespace {

using namespace expression;

std::atomic<std::size_t> stepLimit = 10'000'000;

/// One search.  Where a program leaves a choice, what is not tried yet is kept on a stack of our own: with a
/// call for each repeat, a long text would end the process's.
class Matcher {
public:
    Matcher(CompiledExpression& expression, std::string_view text)
        : _expression(expression),
          _program(expression.program),
          _text(text),
          _limit(stepLimit + 4 * text.size()) {}

    bool search();
    bool gaveUp() const { return _steps > _limit; }

private:
    /// Something not tried yet: go on at a node and a place.  Of a repeat, which may still give up some of the
    /// `spare` characters that it took.
    struct Choice {
        std::size_t node, place, spare, changes;
    };
    /// What the border of a group was before.
    struct Change {
        const char** border;
        const char* before;
    };

    bool matchAt(std::size_t place);
    bool run();
    bool advance();
    bool takeLiteral();
    void takeAlternative();
    bool takeRepeat();
    bool shrinkRepeat(Choice choice);
    bool setBorder(const char*& border);
    bool tryNextChoice();

    std::size_t longestRun(std::size_t operand, std::size_t most);
    bool follows(std::size_t node) { return _node = _program.nextOf(node), true; }

    CompiledExpression& _expression;
    const ProgramView _program;
    const std::string_view _text;
    const std::size_t _limit;
    std::size_t _steps = 0;
    std::size_t _node = kNoNode, _place = 0;
    std::vector<Choice> _choices;
    std::vector<Change> _changes;
};

bool Matcher::search() {
    if (_text.find(_expression.required) == std::string_view::npos) return false;
    if (_expression.isAnchored) return matchAt(0);
    const char first = _expression.firstCharacter;
    for (std::size_t place = 0; place <= _text.size(); ++place) {
        if (first != '\0') place = _text.find(first, place);
        if (place == std::string_view::npos) return false;
        if (matchAt(place)) return true;
        if (gaveUp()) return false;
    }
    return false;
}

bool Matcher::matchAt(std::size_t place) {
    _expression.starts.fill(nullptr);
    _expression.ends.fill(nullptr);
    _choices.clear();
    _changes.clear();
    _node = 1;
    _place = place;
    if (!run()) return false;
    _expression.starts[0] = _text.data() + place;
    _expression.ends[0] = _text.data() + _place;
    return true;
}

bool Matcher::run() {
    while (_program.kindOf(_node) != end) {
        if (++_steps > _limit) return false;
        if (!advance() && !tryNextChoice()) return false;
    }
    return true;
}

/// Takes one node; false when it does not fit.
bool Matcher::advance() {
    const auto kind = _program.kindOf(_node);
    switch (kind) {
        case lineStart:
            return _place == 0 && follows(_node);
        case lineEnd:
            return _place == _text.size() && follows(_node);
        case any:
        case anyOf:
        case anyBut:
            return longestRun(_node, 1) == 1 && (++_place, follows(_node));
        case exactly:
            return takeLiteral();
        case branch:
            return takeAlternative(), true;
        case star:
        case plus:
            return takeRepeat();
        case nothing:
        case back:
            return follows(_node);
        default:
            return kind >= close ? setBorder(_expression.ends[kind - close])
                                 : setBorder(_expression.starts[kind - open]);
    }
}

bool Matcher::takeLiteral() {
    const auto literal = _program.charactersOf(_node);
    if (!_text.substr(_place).starts_with(literal)) return false;
    _place += literal.size();
    return follows(_node);
}

void Matcher::takeAlternative() {
    const auto other = _program.nextOf(_node);
    if (_program.kindOf(other) == branch) _choices.push_back({other, _place, 0, _changes.size()});
    _node = _program.operandOf(_node);
}

bool Matcher::takeRepeat() {
    const std::size_t least = _program.kindOf(_node) == plus ? 1 : 0;
    const auto length = longestRun(_program.operandOf(_node), _text.size());
    if (length < least) return false;
    return shrinkRepeat({_node, _place + least, length - least, _changes.size()});
}

/// Goes on behind the longest run of a repeat, of those not tried yet, that what follows can go on from.
bool Matcher::shrinkRepeat(Choice choice) {
    const auto next = _program.nextOf(choice.node);
    if (_program.kindOf(next) == exactly) {
        const auto last =
            _text.substr(0, choice.place + choice.spare + 1).rfind(_program.charactersOf(next)[0]);
        if (last == std::string_view::npos || last < choice.place) return false;
        choice.spare = last - choice.place;
    }
    _place = choice.place + choice.spare;
    if (choice.spare-- > 0) _choices.push_back(choice);
    _node = next;
    return true;
}

/// How many characters from here on, at most so many, a node of one character takes.
std::size_t Matcher::longestRun(std::size_t operand, std::size_t most) {
    const auto rest = _text.substr(_place, most);
    auto length = rest.size();
    if (const auto kind = _program.kindOf(operand); kind != any) {
        const auto characters = _program.charactersOf(operand);
        length = std::min(length,
                          kind == anyBut ? rest.find_first_of(characters) : rest.find_first_not_of(characters));
    }
    _steps += length / 4;
    return length;
}

bool Matcher::setBorder(const char*& border) {
    _changes.push_back({&border, border});
    border = _text.data() + _place;
    return follows(_node);
}

bool Matcher::tryNextChoice() {
    while (!_choices.empty()) {
        const auto choice = _choices.back();
        _choices.pop_back();
        for (; _changes.size() > choice.changes; _changes.pop_back())
            *_changes.back().border = _changes.back().before;
        ++_steps;
        if (_program.kindOf(choice.node) != branch) {
            if (shrinkRepeat(choice)) return true;
            continue;
        }
        _node = choice.node;
        _place = choice.place;
        return true;
    }
    return false;
}

void appendGroup(const CompiledExpression& expression, std::size_t group, std::string& text) {
    const auto *const begin = expression.starts[group], *const end = expression.ends[group];
    if (begin != nullptr && end != nullptr) text.append(begin, end);
}

}  // namespace

void setRegularExpressionStepLimit(std::size_t steps) {
    stepLimit = steps;
}

bool _MOregexec(CompiledExpression& expression, const char* text) {
    if (text == nullptr || !expression.program.starts_with(CompiledExpression::kMagic)) return false;
    Matcher matcher(expression, text);
    if (matcher.search()) return true;
    if (matcher.gaveUp())
        log("A regular expression takes too many steps on a text of %@ bytes", std::string_view(text).size());
    return false;
}

std::optional<std::string> _MOregsub(const CompiledExpression& expression, const char* source) {
    if (source == nullptr || !expression.program.starts_with(CompiledExpression::kMagic)) return std::nullopt;
    std::string result;
    for (std::string_view rest = source; !rest.empty(); rest.remove_prefix(1)) {
        const char c = rest.front(), next = rest.size() > 1 ? rest[1] : '\0';
        if (c == '\\' && next >= '0' && next <= '9') {
            rest.remove_prefix(1);
            appendGroup(expression, static_cast<std::size_t>(next - '0'), result);
        } else if (c == '&') {
            appendGroup(expression, 0, result);
        } else {
            if (c == '\\' && (next == '\\' || next == '&')) rest.remove_prefix(1);
            result += rest.front();
        }
    }
    return result;
}

}  // namespace lorvale

/// From the text of an expression to its program.
#include <algorithm>

#include "base/text/ExpressionProgram.h"
#include "lorvale/values/regular_expression.h"

namespace lorvale {

namespace {

using namespace expression;

constexpr std::string_view kSpecial = "^$.[()|?+*\\";
constexpr std::string_view kRepeats = "*+?";

// What is known of a piece of an expression.
enum Trait : unsigned {
    none = 0,
    hasWidth = 1,      // never matches the empty text
    isSimple = 2,      // takes one character: fit for `star` and `plus`
    beginsStarry = 4,  // begins with a repeat, so the match must look ahead for something else
};

/// One pass over an expression: the first one only measures, the second one writes.  A place in the program is
/// right in both, what stands there only in the second.
class Compiler {
public:
    /// Without a program it measures.
    Compiler(std::string_view text, std::string* program) : _rest(text), _program(program) {}

    bool run() {
        emit(CompiledExpression::kMagic);
        return alternatives(false) != kNoNode;
    }
    std::size_t size() const { return _size; }
    const char* complaint() const { return _complaint; }
    unsigned traits() const { return _traits; }

private:
    // Each reads a part of the expression, answers its first node, kNoNode after a mistake, and leaves what is
    // known of the part in _traits.
    std::size_t alternatives(bool inGroup);
    std::size_t alternative();
    std::size_t piece();
    std::size_t atom();
    std::size_t set();
    std::size_t literal();

    std::size_t group();
    bool emitRange(char first, char last);
    void leadAllTo(std::size_t first, std::size_t last);
    void repeat(char how, std::size_t atom, bool simple);

    std::size_t refuse(const char* why) { return _complaint = why, kNoNode; }
    char peek() const { return _rest.empty() ? '\0' : _rest.front(); }
    char take() {
        const char c = peek();
        if (!_rest.empty()) _rest.remove_prefix(1);
        return _taken = c;
    }
    bool atRepeat() const { return !_rest.empty() && kRepeats.find(peek()) != std::string_view::npos; }

    void emit(char byte) {
        if (_program != nullptr) _program->push_back(byte);
        ++_size;
    }
    std::size_t node(unsigned kind) {
        const auto at = _size;
        emit(static_cast<char>(kind));
        emit('\0');
        emit('\0');
        return at;
    }
    /// Puts a node in front of one that was written last.
    void insert(Node kind, std::size_t before) {
        if (_program != nullptr) _program->insert(before, kNodeHead, '\0').at(before) = static_cast<char>(kind);
        _size += kNodeHead;
    }
    /// Lets the chain that begins at a node go on with another one.
    void link(std::size_t chain, std::size_t to);
    /// The same for the chain inside an alternative; other nodes have none inside.
    void linkInside(std::size_t node, std::size_t to) {
        if (_program != nullptr && ProgramView(*_program).kindOf(node) == branch) link(node + kNodeHead, to);
    }

    std::string_view _rest;
    char _taken = '\0';  // the last one
    std::string* const _program;
    std::size_t _size = 0;
    unsigned _groups = 1;
    unsigned _traits = none;
    const char* _complaint = nullptr;
};

void Compiler::link(std::size_t chain, std::size_t to) {
    if (_program == nullptr) return;
    const ProgramView view(*_program);
    auto last = chain;
    while (const auto next = view.nextOf(last)) last = next;
    const auto distance = view.kindOf(last) == back ? last - to : to - last;
    (*_program)[last + 1] = static_cast<char>(distance >> 8);
    (*_program)[last + 2] = static_cast<char>(distance & 0xFF);
}

std::size_t Compiler::alternatives(bool inGroup) {
    if (inGroup && _groups >= CompiledExpression::kGroups) return refuse("too many ()");
    const auto group = inGroup ? _groups++ : 0;
    auto first = inGroup ? node(open + group) : kNoNode;
    unsigned known = hasWidth;
    for (bool more = true; more;) {
        const auto next = alternative();
        if (next == kNoNode) return kNoNode;
        if (first == kNoNode) {
            first = next;
        } else {
            link(first, next);
        }
        if ((_traits & hasWidth) == 0) known &= ~static_cast<unsigned>(hasWidth);
        known |= _traits & beginsStarry;
        more = peek() == '|';
        if (more) take();
    }
    leadAllTo(first, inGroup ? node(close + group) : node(end));
    if (inGroup && take() != ')') return refuse("unmatched ()");
    if (!inGroup && !_rest.empty()) return refuse(peek() == ')' ? "unmatched ()" : "junk on end");
    _traits = known;
    return first;
}

void Compiler::leadAllTo(std::size_t first, std::size_t last) {
    link(first, last);
    if (_program == nullptr) return;
    for (auto at = first; at != kNoNode; at = ProgramView(*_program).nextOf(at)) linkInside(at, last);
}

std::size_t Compiler::alternative() {
    const auto first = node(branch);
    auto chain = kNoNode;
    unsigned known = none;
    while (!_rest.empty() && peek() != '|' && peek() != ')') {
        const auto next = piece();
        if (next == kNoNode) return kNoNode;
        known |= _traits & hasWidth;
        if (chain == kNoNode) {
            known |= _traits & beginsStarry;
        } else {
            link(chain, next);
        }
        chain = next;
    }
    if (chain == kNoNode) node(nothing);
    _traits = known;
    return first;
}

std::size_t Compiler::piece() {
    const auto first = atom();
    if (first == kNoNode || !atRepeat()) return first;
    const char how = take();
    if ((_traits & hasWidth) == 0 && how != '?') return refuse("*+ operand could be empty");
    repeat(how, first, (_traits & isSimple) != 0);
    _traits = how == '+' ? hasWidth | beginsStarry : beginsStarry;
    return atRepeat() ? refuse("nested *?+") : first;
}

void Compiler::repeat(char how, std::size_t atom, bool simple) {
    if (simple && how != '?') return insert(how == '*' ? star : plus, atom);
    if (how == '+') {
        // x+ is x and then a choice: back to x, or nothing.
        const auto choice = node(branch);
        link(atom, choice);
        link(node(back), atom);
        link(choice, node(branch));
        return link(atom, node(nothing));
    }
    // x* and x? are a choice: x, which in the case of x* leads back here, or nothing.
    insert(branch, atom);
    if (how == '*') {
        linkInside(atom, node(back));
        linkInside(atom, atom);
    }
    link(atom, node(branch));
    const auto neither = node(nothing);
    link(atom, neither);
    if (how == '?') linkInside(atom, neither);
}

std::size_t Compiler::atom() {
    _traits = none;
    switch (peek()) {
        case '^':
            return take(), node(lineStart);
        case '$':
            return take(), node(lineEnd);
        case '.':
            _traits = hasWidth | isSimple;
            return take(), node(any);
        case '[':
            return take(), set();
        case '(':
            return take(), group();
        case '|':
        case ')':
            return refuse("internal urp");
        case '\\': {
            take();
            if (_rest.empty()) return refuse("trailing \\");
            const auto first = node(exactly);
            emit(take());
            emit('\0');
            _traits = hasWidth | isSimple;
            return first;
        }
        default:
            return literal();
    }
}

std::size_t Compiler::group() {
    const auto first = alternatives(true);
    _traits &= hasWidth | beginsStarry;
    return first;
}

std::size_t Compiler::set() {
    const bool others = peek() == '^';
    if (others) take();
    const auto first = node(others ? anyBut : anyOf);
    if (peek() == ']' || peek() == '-') emit(take());
    while (!_rest.empty() && peek() != ']') {
        const char before = _taken, c = take();
        if (c != '-' || _rest.empty() || peek() == ']') {
            emit(c);
        } else if (!emitRange(before, take())) {
            return refuse("invalid [] range");
        }
    }
    emit('\0');
    if (take() != ']') return refuse("unmatched []");
    _traits = hasWidth | isSimple;
    return first;
}

/// The characters behind the first one, which stands in the set already, up to the last one; false when they
/// are the wrong way round.
bool Compiler::emitRange(char first, char last) {
    const auto from = static_cast<unsigned char>(first), to = static_cast<unsigned char>(last);
    for (unsigned c = from + 1U; c <= to; ++c) emit(static_cast<char>(c));
    return from <= to;
}

std::size_t Compiler::literal() {
    auto length = std::min(_rest.find_first_of(kSpecial), _rest.size());
    if (length == 0) return refuse("internal disaster");  // a repeat of nothing
    // A repeat is for the last character only.
    if (length > 1 && length < _rest.size() && kRepeats.find(_rest[length]) != std::string_view::npos) --length;
    _traits = length == 1 ? hasWidth | isSimple : hasWidth;
    const auto first = node(exactly);
    while (length-- > 0) emit(take());
    emit('\0');
    return first;
}

/// What lets the matcher pass over most places: read off an expression of one alternative.
void noteShortcuts(CompiledExpression& compiled, bool beginsWithRepeat) {
    const ProgramView program(compiled.program);
    const std::size_t first = 1;
    if (program.kindOf(program.nextOf(first)) != end) return;
    auto at = program.operandOf(first);
    if (program.kindOf(at) == exactly) compiled.firstCharacter = program.charactersOf(at).front();
    compiled.isAnchored = program.kindOf(at) == lineStart;
    // Only behind a leading repeat is a search for it sure to pay: elsewhere the first character does the same.
    if (!beginsWithRepeat) return;
    std::string_view longest;
    for (; at != kNoNode; at = program.nextOf(at)) {
        if (program.kindOf(at) != exactly) continue;
        const auto literal = program.charactersOf(at);
        if (literal.size() >= longest.size()) longest = literal;
    }
    compiled.required = longest;
}

std::unique_ptr<CompiledExpression> refused(std::string* complaint, const char* why) {
    if (complaint != nullptr) *complaint = why;
    return nullptr;
}

}  // namespace

std::unique_ptr<CompiledExpression> _MOregcomp(const char* expression, std::string* complaint) {
    if (expression == nullptr) return refused(complaint, "NULL argument");
    Compiler measure(expression, nullptr);
    if (!measure.run()) return refused(complaint, measure.complaint());
    if (measure.size() >= kProgramLimit) return refused(complaint, "regexp too big");
    auto compiled = std::make_unique<CompiledExpression>();
    Compiler write(expression, &compiled->program);
    write.run();
    noteShortcuts(*compiled, (write.traits() & beginsStarry) != 0);
    return compiled;
}

}  // namespace lorvale

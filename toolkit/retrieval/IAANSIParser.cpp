#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "lorvale/toolkit/retrieval/boolean_query.h"
#include "lorvale/toolkit/retrieval/query_parser.h"
#include "lorvale/toolkit/storage/exception.h"
#include "toolkit/analysis/ByteClasses.h"

namespace brindle {

namespace {

/// Of two operators, the higher one binds tighter.
enum class TokenType : std::uint8_t { word, end, fence, orOperator, notOperator, andOperator };

struct Token {
    TokenType type = TokenType::end;
    std::string_view text;
};

IAOperator operatorOf(TokenType type) {
    switch (type) {
        case TokenType::andOperator:
            return IAOperator::And;
        case TokenType::orOperator:
            return IAOperator::Or;
        case TokenType::notOperator:
            return IAOperator::Not;
        default:
            return IAOperator::Unset;
    }
}

/// Cuts the text into tokens.
class Lexer {
public:
    Lexer(std::string_view text, const IAParser& operators) : rest(text), parser(operators) {}

    Token Next() {
        while (!rest.empty() && IsSpace(rest[0])) {
            last = CharType::space;
            rest.remove_prefix(1);
        }
        if (rest.empty()) return {};
        if (const auto type = OperatorType(rest[0])) {
            TypeOf(rest[0]);
            return {*type, Take(1)};
        }
        std::size_t length = 0;
        while (length < std::min(rest.size(), IAParser::MaxWordLength) && !OperatorType(rest[length]) &&
               TypeOf(rest[length]) != CharType::space)
            ++length;
        return {TokenType::word, Take(WholeCharacters(length))};
    }

private:
    enum class CharType : std::uint8_t { punctuation, alphanumeric, space };

    /// A byte of none of these classes counts as one of the class before it.  So behind a blank it ends a word
    /// before that has begun, and with it the whole query.  Programs know queries that do so as empty ones.
    CharType TypeOf(char c) {
        if (IsAlphanumeric(c) || (IsHigh(c) && parser.HasUnicodeWords())) return last = CharType::alphanumeric;
        if (IsSpace(c)) return last = CharType::space;
        if (IsGraphic(c)) return last = CharType::punctuation;
        return last;
    }

    std::optional<TokenType> OperatorType(char c) const {
        const auto code = static_cast<unsigned char>(c);
        if (code == parser.GetOrOperator()) return TokenType::orOperator;
        if (code == parser.GetAndOperator()) return TokenType::andOperator;
        if (code == parser.GetNotOperator()) return TokenType::notOperator;
        if (code == parser.GetLeftFence() || code == parser.GetRightFence()) return TokenType::fence;
        return std::nullopt;
    }

    /// A word of the greatest length loses the first bytes of a character that goes on behind it.
    std::size_t WholeCharacters(std::size_t length) const {
        if (!parser.HasUnicodeWords() || length < IAParser::MaxWordLength) return length;
        std::size_t end = length;
        while (end < rest.size() && length - end < 3 && IsContinuation(rest[end])) --end;
        return end < rest.size() && IsContinuation(rest[end]) ? length : end;
    }

    static bool IsHigh(char c) { return (c & 0x80) != 0; }
    static bool IsContinuation(char c) { return (c & 0xC0) == 0x80; }

    std::string_view Take(std::size_t count) {
        const std::string_view taken = rest.substr(0, count);
        rest.remove_prefix(count);
        return taken;
    }

    std::string_view rest;
    const IAParser& parser;
    CharType last = CharType::punctuation;  // of the byte looked at before
};

/// A stack with the one limit that bounds what a query can ask for, recursion included.
class TokenStack {
public:
    void Push(const Token& token) {
        IAAssertion(tokens.size() < IAParser::MaxStack, "attempt to push a new item into full stack",
                    IAAssertionFailure);
        tokens.push_back(token);
    }
    bool IsEmpty() const { return tokens.empty(); }
    const Token& Top() const { return tokens.back(); }
    Token Pop() {
        const Token token = tokens.back();
        tokens.pop_back();
        return token;
    }

private:
    std::vector<Token> tokens;
};

/// Puts the tokens into postfix order.
class Sorter {
public:
    Sorter(std::string_view text, const IAParser& operators) : tokens(text, operators), parser(operators) {
        waiting.Push({TokenType::word, {}});  // lower than any operator, so that nothing is popped beyond it
    }

    /// False if a word without length has ended the query.
    bool Sort() {
        for (;;) {
            const Token token = tokens.Next();
            if (token.type == TokenType::word && token.text.empty()) return false;
            if (token.type == TokenType::end) {
                PopOperators(TokenType::end);
                return true;
            }
            Enter(token);
        }
    }
    TokenStack& Output() { return output; }

private:
    void Enter(const Token& token) {
        if (token.type == TokenType::word) return output.Push(token);
        if (token.type != TokenType::fence) PopOperators(token.type);
        if (token.type == TokenType::fence && !IsLeftFence(token)) return CloseFence();
        waiting.Push(token);
    }

    bool IsLeftFence(const Token& token) const {
        return static_cast<unsigned char>(token.text[0]) == parser.GetLeftFence();
    }

    void CloseFence() {
        while (waiting.Top().type != TokenType::fence) {
            IAAssertion(waiting.Top().type != TokenType::word, "Error unballanced parentheses",
                        IAAccessorInvalidQuery);
            output.Push(waiting.Pop());
        }
        waiting.Pop();
    }

    /// Moves on the operators that bind at least as tight.  Only the end can meet a fence that is still open.
    void PopOperators(TokenType atLeast) {
        while (waiting.Top().type >= atLeast) {
            IAAssertion(waiting.Top().type != TokenType::fence, "Error unballanced parentheses",
                        IAAccessorInvalidQuery);
            output.Push(waiting.Pop());
        }
    }

    Lexer tokens;
    const IAParser& parser;
    TokenStack waiting, output;
};

/// The tree of the last operator or word.  An operand that is missing is a node without an operator.
std::unique_ptr<IAQueryTree> takeTree(TokenStack& output) {
    if (output.IsEmpty()) return std::make_unique<IAQueryTree>();
    const Token token = output.Pop();
    if (token.type == TokenType::word) return std::make_unique<IAQueryTree>(token.text);
    auto right = takeTree(output);
    auto left = takeTree(output);
    return std::make_unique<IAQueryTree>(operatorOf(token.type), std::move(left), std::move(right));
}

}  // namespace

IAParser::IAParser() = default;
IAParser::~IAParser() = default;

std::unique_ptr<IAQueryTree> IAParser::Parse(IABooleanQueryTermNodeList& termNodes) const {
    if (text.empty()) return nullptr;
    Sorter sorter(text, *this);
    if (!sorter.Sort()) return nullptr;
    TokenStack& output = sorter.Output();
    auto tree = takeTree(output);
    // What no operator joined is words side by side.
    while (!output.IsEmpty())
        tree = std::make_unique<IAQueryTree>(IAOperator::Or, takeTree(output), std::move(tree));
    tree->SetTerms(termNodes);
    return tree;
}

}  // namespace brindle

#include "lorvale/message/addresses.h"

#include <algorithm>
#include <set>

#include "base/platform/FullUserName.h"
#include "base/text/Ascii.h"
#include "lorvale/defaults.h"
#include "lorvale/message/address_manager.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

/// Text in which a run of white space becomes one blank, with none at either end.
class CollapsedText {
public:
    /// A character that stands for itself, even when it is white.
    void addProtected(char c) {
        flushBlank();
        _text += c;
    }
    void add(char c) {
        if (isFoldingWhite(c)) {
            _blank = !_text.empty();
        } else {
            addProtected(c);
        }
    }
    void clear() {
        _text.clear();
        _blank = false;
    }
    std::string take() { return std::move(_text); }

private:
    void flushBlank() {
        if (_blank) _text += ' ';
        _blank = false;
    }
    std::string _text;
    bool _blank = false;  // white space was seen behind the text
};

bool hasAngleBracket(std::string_view text) {
    bool quoted = false;
    std::size_t depth = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\\') {
            ++i;
        } else if (quoted) {
            quoted = c != '"';
        } else if (c == '(') {
            ++depth;
        } else if (c == ')') {
            if (depth > 0) --depth;
        } else if (depth == 0 && c == '"') {
            quoted = true;
        } else if (depth == 0 && c == '<') {
            return true;
        }
    }
    return false;
}

/// The text outside the angle brackets, comments with it, quotes taken off.
std::string nameBesideBrackets(std::string_view text) {
    CollapsedText name;
    bool quoted = false, bracketed = false;
    std::size_t depth = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\\' && i + 1 < text.size()) {
            ++i;
            if (!bracketed) name.addProtected(text[i]);
        } else if (bracketed) {
            bracketed = c != '>';
        } else if (c == '"' && depth == 0) {
            quoted = !quoted;
        } else if (c == '<' && !quoted && depth == 0) {
            bracketed = true;
        } else {
            if (!quoted && c == '(') ++depth;
            if (!quoted && c == ')' && depth > 0) --depth;
            name.add(c);
        }
    }
    return name.take();
}

/// The text inside the parentheses, with a blank between two comments.
std::string nameInComments(std::string_view text) {
    CollapsedText name;
    bool quoted = false;
    std::size_t depth = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\\' && i + 1 < text.size()) {
            ++i;
            if (depth > 0) name.addProtected(text[i]);
        } else if (depth == 0) {
            if (c == '"') quoted = !quoted;
            if (c == '(' && !quoted) {
                depth = 1;
                name.add(' ');
            }
        } else {
            if (c == '(') ++depth;
            if (c == ')' && --depth == 0) continue;
            name.add(c);
        }
    }
    return name.take();
}

/// A listing of sent mail shows the one it went to: "jd (To: Jane <x>)", or "To: " and an address.
std::optional<std::string> nameInSentListing(std::string_view text) {
    constexpr std::string_view kInParentheses = "(To: ", kMark = "To: ";
    auto start = text.find(kMark);
    if (start == std::string_view::npos) return std::nullopt;
    start += kMark.size();
    const auto inParentheses = text.find(kInParentheses);
    if (inParentheses != std::string_view::npos) start = inParentheses + kInParentheses.size();
    auto address = text.substr(start);
    // The last character is the closing parenthesis; it goes also where there is none, for the listings of old
    // mailboxes are compared as they have always been shown.
    if (!address.empty()) lastCodePoint(address);
    return "To: " + uncommentedAddress(address);
}

constexpr char32_t asciiLowerCodePoint(char32_t c) {
    return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c;
}

/// Whether the aliases of the address manager lead from the address to the user.
bool aliasesLeadToUser(MailAddressManager& manager, std::string address, const std::string& login) {
    std::set<std::string> seen;
    for (;;) {
        if (equalIgnoringCase(address, login)) return true;
        if (!seen.insert(address).second) return false;
        const auto next = manager.expandUserAlias(address);
        if (!next) return false;
        address = uncommentedAddress(*next);
    }
}

}  // namespace

std::optional<std::vector<std::string>> addressList(std::string_view text) {
    if (text.empty()) return std::nullopt;
    std::vector<std::string> addresses;
    const auto addPiece = [&addresses](std::string_view piece) {
        const auto start = piece.find_first_not_of(" \t\n");
        if (start != std::string_view::npos) addresses.emplace_back(piece.substr(start));
    };
    bool quoted = false;
    std::size_t start = 0;
    for (auto i = text.find_first_of(",\""); i != std::string_view::npos;
         i = text.find_first_of(",\"", i + 1)) {
        if (text[i] == '"') {
            quoted = !quoted;
        } else if (!quoted) {
            addPiece(text.substr(start, i - start));
            start = i + 1;
        }
    }
    addPiece(text.substr(start));
    return addresses;
}

std::string uncommentedAddress(std::string_view text) {
    CollapsedText address;
    bool quoted = false, bracketed = false;
    std::size_t depth = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\\') {
            // The next character means nothing, also in a comment, of which neither is copied.
            const bool paired = i + 1 < text.size();
            if (depth == 0) address.addProtected(c);
            if (depth == 0 && paired) address.addProtected(text[i + 1]);
            if (paired) ++i;
        } else if (quoted) {
            quoted = c != '"';
            address.addProtected(c);
        } else if (c == '(') {
            ++depth;
        } else if (c == ')') {
            if (depth > 0) --depth;
        } else if (depth > 0) {
            continue;
        } else if (c == '<') {
            bracketed = true;
            address.clear();
        } else if (c == '>' && bracketed) {
            break;
        } else {
            quoted = c == '"';
            address.add(c);
        }
    }
    return address.take();
}

std::string addressComment(std::string_view text) {
    if (auto sent = nameInSentListing(text)) return *std::move(sent);
    auto name = hasAngleBracket(text) ? nameBesideBrackets(text) : nameInComments(text);
    if (name.size() >= 2 && name.front() == '"' && name.back() == '"') name = name.substr(1, name.size() - 2);
    return name.empty() ? std::string(text) : name;
}

std::optional<std::vector<std::string>> uncommentedAddressList(std::span<const std::string> addresses) {
    if (addresses.empty()) return std::nullopt;
    std::vector<std::string> pure;
    pure.reserve(addresses.size());
    for (const auto& each : addresses) pure.push_back(uncommentedAddress(each));
    return pure;
}

std::vector<std::string> addressArrayExcludingSelf(std::span<const std::string> addresses) {
    std::vector<std::string> others;
    std::ranges::copy_if(addresses, std::back_inserter(others),
                         [](const std::string& each) { return !isMyAddress(each); });
    return others;
}

bool looselyMatches(std::string_view a, std::string_view b) {
    while (!a.empty() && !b.empty()) {
        const auto first = nextCodePoint(a), second = nextCodePoint(b);
        if (!isAsciiAlphanumeric(first) && !isAsciiAlphanumeric(second)) continue;
        if (asciiLowerCodePoint(first) != asciiLowerCodePoint(second)) return false;
    }
    return a.empty() && b.empty();
}

bool isMyAddress(std::optional<std::string_view> address) {
    if (!address) return false;
    const auto pure = uncommentedAddress(*address);
    const auto login = loginName();
    if (const auto manager = MailAddressManager::addressManager()) {
        if (aliasesLeadToUser(*manager, pure, login)) return true;
    }
    if (pure == login || looselyMatches(pure, fullUserName())) return true;
    const auto alternates = Defaults::sharedInstance().alternateAddressesForSelf();
    return std::ranges::any_of(split(alternates, ','), [&pure](std::string_view each) {
        const auto alternate = trimmed(each);
        return !alternate.empty() && equalIgnoringCase(alternate, pure);
    });
}

}  // namespace lorvale

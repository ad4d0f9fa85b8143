#include "RunProgram.h"

#include <sys/wait.h>

#include <cstdlib>

#include "lorvale/values/text.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {

namespace {

/// The grammar of RFC 8259, one function a rule; each takes what it accepts off the front of the text.
class JsonReader {
public:
    explicit JsonReader(std::string_view text) : _rest(text) {}

    bool value() {
        switch (_rest.empty() ? '\0' : _rest.front()) {
            case '{':
                return list('{', '}', [this] { return string() && take(":") && value(); });
            case '[':
                return list('[', ']', [this] { return value(); });
            case '"':
                return string();
            case 't':
                return take("true");
            case 'f':
                return take("false");
            case 'n':
                return take("null");
            default:
                return number();
        }
    }
    bool atEnd() const { return _rest.empty(); }

private:
    bool take(std::string_view word) {
        if (!_rest.starts_with(word)) return false;
        _rest.remove_prefix(word.size());
        return true;
    }
    template <class Member>
    bool list(char open, char close, Member member) {
        take({&open, 1});
        if (take({&close, 1})) return true;
        do {
            if (!member()) return false;
        } while (take(","));
        return take({&close, 1});
    }
    bool string() {
        if (!take("\"")) return false;
        while (!_rest.empty() && !_rest.starts_with('"')) {
            if (static_cast<unsigned char>(_rest.front()) < 0x20) return false;
            if (take("\\u")) {
                if (_rest.size() < 4 || _rest.substr(0, 4).find_first_not_of("0123456789abcdefABCDEF") != kNone)
                    return false;
                _rest.remove_prefix(4);
            } else if (take("\\")) {
                if (_rest.empty() || std::string_view("\"\\/bfnrt").find(_rest.front()) == kNone) return false;
                _rest.remove_prefix(1);
            } else {
                _rest.remove_prefix(1);
            }
        }
        return take("\"");
    }
    bool number() {
        take("-");
        const auto end = std::min(_rest.find_first_not_of("0123456789"), _rest.size());
        _rest.remove_prefix(end);
        return end > 0;
    }

    static constexpr auto kNone = std::string_view::npos;
    std::string_view _rest;
};

}  // namespace

Outcome runShell(const std::string& commandLine) {
    const TemporaryFolder folder;
    const auto output = folder / "output", errors = folder / "errors";
    const std::string surroundings =
        "cd " + shellWord(sourceFolder().string()) +
        " && export TZ=UTC LC_ALL=C.UTF-8 HOME=" + shellWord(folder.path().string()) +
        " PATH=" + shellWord(LORVALE_MAILHOST_DIR) +
        ":\"$PATH\" && unset XDG_CONFIG_HOME NO_COLOR COLUMNS TERM MAIL LORVALE_RESOURCES && ";
    const int result = std::system(("{ " + surroundings + commandLine + "\n} </dev/null >" +
                                    shellWord(output.string()) + " 2>" + shellWord(errors.string()))
                                       .c_str());
    Outcome outcome;
    outcome.status = WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
    outcome.output = readFile(output);
    outcome.errors = readFile(errors);
    return outcome;
}

std::string shellWord(std::string_view text) {
    std::string word = "'";
    for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word += "'";
}

bool isJson(std::string_view text) {
    JsonReader reader(text);
    return isValidUtf8(text) && reader.value() && reader.atEnd();
}

}  // namespace lorvale::testing

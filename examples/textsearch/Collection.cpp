#include "Collection.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string trimmed(std::string_view text) {
    const auto isBlank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return std::string(text);
}

std::string upper(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return result;
}

/// Gathers an item from marks and the text between them.
class MarkedItems {
public:
    explicit MarkedItems(const UseItem& forEach) : use(forEach) {}

    void mark(std::string_view name) {
        const std::string folded = upper(name.substr(0, name.find_first_of(" \t\r\n")));
        if (folded == "DOC" || folded == "TOP") item = {};
        if (folded == "/DOC" || folded == "/TOP") finish();
        isID = folded == "DOCNO" || folded == "NUM";
        item.text += ' ';
    }
    void text(std::string_view bytes) { (isID ? item.id : item.text) += bytes; }

private:
    void finish() {
        item.id = trimmed(item.id);
        if (upper(item.id).starts_with("NUMBER:")) item.id = trimmed(std::string_view(item.id).substr(7));
        if (!item.id.empty()) use(std::move(item));
        item = {};
    }

    const UseItem& use;
    Item item;
    bool isID = false;
};

void readMarked(std::istream& in, const UseItem& use) {
    MarkedItems items(use);
    for (std::string text; std::getline(in, text, '<');) {
        const auto end = text.find('>');
        const bool isMark = end != std::string::npos && end > 0 && text[0] != ' ' && end < 80;
        if (isMark) items.mark(std::string_view(text).substr(0, end));
        items.text(isMark ? std::string_view(text).substr(end + 1) : std::string_view(text));
    }
}

/// Reads the strings of one JSON object; other values, nested ones too, are passed over.
class JsonObject {
public:
    explicit JsonObject(std::string_view line) : rest(line) {}

    template <class Use>
    void forEachString(Use member) {
        if (!skip('{')) return;
        while (const auto key = string()) {
            if (!skip(':')) return;
            if (const auto value = string())
                member(*key, *value);
            else
                passOver();
            if (!skip(',')) return;
        }
    }

private:
    void blanks() { rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r\n"), rest.size())); }
    bool skip(char c) {
        blanks();
        if (!rest.starts_with(c)) return false;
        rest.remove_prefix(1);
        return true;
    }
    /// A value that is no string: a number, a word, or brackets with anything in them.
    void passOver() {
        int depth = 0;
        while (!rest.empty() && !(depth == 0 && (rest[0] == ',' || rest[0] == '}'))) {
            if (rest[0] == '"') {
                if (!string()) return;
                continue;
            }
            if (rest[0] == '[' || rest[0] == '{') ++depth;
            if (rest[0] == ']' || rest[0] == '}') --depth;
            rest.remove_prefix(1);
        }
    }
    std::optional<std::string> string() {
        if (!skip('"')) return std::nullopt;
        std::string text;
        while (!rest.empty()) {
            const char c = rest[0];
            rest.remove_prefix(1);
            if (c == '"') return text;
            if (c != '\\') {
                text += c;
            } else if (!escape(text)) {
                return std::nullopt;
            }
        }
        return std::nullopt;
    }
    bool escape(std::string& text) {
        if (rest.empty()) return false;
        const char c = rest[0];
        rest.remove_prefix(1);
        constexpr std::string_view kNames = "nrtbf", kValues = "\n\r\t\b\f";
        if (c == 'u') return codePoint(text);
        const auto at = kNames.find(c);
        text += at != std::string_view::npos ? kValues[at] : c;
        return true;
    }
    bool codePoint(std::string& text) {
        std::optional<std::uint32_t> code = hex();
        if (code && *code >= 0xD800 && *code < 0xDC00 && rest.starts_with("\\u")) {
            rest.remove_prefix(2);
            if (const auto low = hex()) code = 0x10000 + ((*code - 0xD800) << 10) + ((*low - 0xDC00) & 0x3FF);
        }
        if (!code) return false;
        if (*code < 0x80) return text += static_cast<char>(*code), true;
        int shift = *code < 0x800 ? 6 : *code < 0x10000 ? 12 : 18;
        text += static_cast<char>((shift == 6 ? 0xC0 : shift == 12 ? 0xE0 : 0xF0) | *code >> shift);
        while ((shift -= 6) >= 0) text += static_cast<char>(0x80 | (*code >> shift & 0x3F));
        return true;
    }
    std::optional<std::uint32_t> hex() {
        if (rest.size() < 4) return std::nullopt;
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            const auto digit =
                std::string_view("0123456789abcdef").find(static_cast<char>(std::tolower(rest[0])));
            if (digit == std::string_view::npos) return std::nullopt;
            value = value << 4 | static_cast<std::uint32_t>(digit);
            rest.remove_prefix(1);
        }
        return value;
    }

    std::string_view rest;
};

void readJsonLines(std::istream& in, const UseItem& use) {
    for (std::string line; std::getline(in, line);) {
        Item item;
        JsonObject(line).forEachString([&](const std::string& key, const std::string& value) {
            if (key == "id" || key == "_id" || key == "docno" || key == "num")
                item.id = value;
            else
                item.text += value + "\n";
        });
        if (!item.id.empty()) use(std::move(item));
    }
}

}  // namespace

void readItems(std::istream& in, const UseItem& use) {
    in >> std::ws;
    const int first = in.peek();
    if (first == '<') return readMarked(in, use);
    if (first == '{') return readJsonLines(in, use);
    throw std::runtime_error("neither <DOC> marks nor JSON lines");
}

void readSource(const fs::path& path, const UseItem& use) {
    if (!fs::is_directory(path)) {
        std::ifstream in(path, std::ios::binary);
        if (!in) throw std::runtime_error("cannot be read");
        return readItems(in, use);
    }
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(path))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::ranges::sort(files);
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        std::string text{std::istreambuf_iterator<char>(in), {}};
        use({fs::relative(file, path).string(), std::move(text)});
    }
}

#include "Json.h"

#include <algorithm>

#include "Terminal.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

void appendEscaped(std::string& json, char32_t character) {
    switch (character) {
        case '"':
            json += "\\\"";
            return;
        case '\\':
            json += "\\\\";
            return;
        case '\n':
            json += "\\n";
            return;
        case '\r':
            json += "\\r";
            return;
        case '\t':
            json += "\\t";
            return;
        default:
            break;
    }
    if (lorvale::isBadByte(character)) {
        lorvale::appendUtf8(json, 0xFFFD);
    } else if (isUnsafe(character)) {  // all of them below U+10000: one \u each
        json += lorvale::formatText("\\u%04X", static_cast<std::uint32_t>(character));
    } else {
        lorvale::appendUtf8(json, character);
    }
}

constexpr bool standsForItself(char c) {
    return c >= ' ' && c <= '~' && c != '"' && c != '\\';
}

}  // namespace

std::string jsonText(std::string_view text) {
    std::string json = "\"";
    json.reserve(text.size() + 2);
    while (!text.empty()) {
        const auto stop = std::ranges::find_if_not(text, standsForItself);
        const auto run = static_cast<std::size_t>(stop - text.begin());
        json += text.substr(0, run);
        text.remove_prefix(run);
        if (!text.empty()) appendEscaped(json, lorvale::nextCodePoint(text));
    }
    return json += '"';
}

std::string jsonArray(const std::vector<std::string>& jsonValues) {
    std::string json = "[";
    for (const auto& value : jsonValues) {
        if (json.size() > 1) json += ',';
        json += value;
    }
    return json += ']';
}

JsonObject& JsonObject::addJson(std::string_view key, std::string_view json) {
    if (!_members.empty()) _members += ',';
    _members += jsonText(key);
    _members += ':';
    _members += json;
    return *this;
}

}  // namespace mailhost

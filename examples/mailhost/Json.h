#pragma once
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace mailhost {

/// A text as JSON has it, quotes included.  The result is valid UTF-8 whatever came in (a bad byte becomes
/// U+FFFD), and holds no control character that a terminal would obey.
std::string jsonText(std::string_view text);
std::string jsonArray(const std::vector<std::string>& jsonValues);

/// One JSON object on one line, its members in the order in which they are added.
class JsonObject {
public:
    JsonObject& add(std::string_view key, std::string_view text) { return addJson(key, jsonText(text)); }
    JsonObject& add(std::string_view key, const char* text) { return add(key, std::string_view(text)); }
    JsonObject& add(std::string_view key, std::integral auto number) {
        return addJson(key, std::to_string(number));
    }
    JsonObject& add(std::string_view key, bool value) { return addJson(key, value ? "true" : "false"); }
    JsonObject& addNull(std::string_view key) { return addJson(key, "null"); }
    JsonObject& addJson(std::string_view key, std::string_view json);

    std::string text() const { return "{" + _members + "}"; }

private:
    std::string _members;
};

}  // namespace mailhost

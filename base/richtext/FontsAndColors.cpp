#include <algorithm>
#include <array>

#include "lorvale/platform/mutex.h"
#include "lorvale/values/attributed_text.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

struct UserFonts {
    Mutex mutex;
    Font text LORVALE_GUARDED_BY(mutex) = {.family = "Sans"};
    Font fixedPitch LORVALE_GUARDED_BY(mutex) = {.family = "Monospace", .fixedPitch = true};
};

UserFonts& userFonts() {
    static UserFonts fonts;
    return fonts;
}

struct NamedColor {
    std::string_view name;
    Color color;
};

constexpr auto kColors = std::to_array<NamedColor>({
    {"black", {0, 0, 0}},
    {"blue", {0, 0, 1}},
    {"brown", {0.6, 0.4, 0.2}},
    {"clear", {0, 0, 0, 0}},
    {"cyan", {0, 1, 1}},
    {"darkGray", {1.0 / 3, 1.0 / 3, 1.0 / 3}},
    {"gray", {0.5, 0.5, 0.5}},
    {"green", {0, 1, 0}},
    {"lightGray", {2.0 / 3, 2.0 / 3, 2.0 / 3}},
    {"magenta", {1, 0, 1}},
    {"orange", {1, 0.5, 0}},
    {"purple", {0.5, 0, 0.5}},
    {"red", {1, 0, 0}},
    {"white", {1, 1, 1}},
    {"yellow", {1, 1, 0}},
});

}  // namespace

Font Font::user() {
    auto& fonts = userFonts();
    const MutexLock lock(fonts.mutex);
    return fonts.text;
}

Font Font::userFixedPitch() {
    auto& fonts = userFonts();
    const MutexLock lock(fonts.mutex);
    return fonts.fixedPitch;
}

void Font::setUser(Font font) {
    auto& fonts = userFonts();
    const MutexLock lock(fonts.mutex);
    fonts.text = std::move(font);
}

void Font::setUserFixedPitch(Font font) {
    auto& fonts = userFonts();
    const MutexLock lock(fonts.mutex);
    fonts.fixedPitch = std::move(font);
}

bool Font::isFixedPitchFamily(std::string_view family) {
    constexpr auto kWords =
        std::to_array<std::string_view>({"mono", "courier", "typewriter", "fixed", "consol"});
    const auto name = asciiLowered(family);
    return std::ranges::any_of(kWords, [&](auto word) { return name.find(word) != std::string::npos; });
}

std::optional<Color> Color::named(std::string_view name) {
    const auto found = std::ranges::find_if(
        kColors, [&](const auto& entry) { return equalIgnoringAsciiCase(entry.name, name); });
    return found == kColors.end() ? std::nullopt : std::optional(found->color);
}

}  // namespace lorvale

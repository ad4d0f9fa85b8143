#include "mail/encoding/PreferredEncoding.h"

#include "lorvale/mime.h"
#include "lorvale/platform/user_defaults.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

StringEncoding encodingWithLocalizedName(std::string_view name) {
    for (const auto& available : availableStringEncodings())
        if (equalIgnoringCase(localizedNameOfStringEncoding(available.encoding), name))
            return available.encoding;
    // A Japanese desktop names what it uses itself; mail in Japanese is ISO-2022-JP.
    const auto own = defaultCStringEncoding();
    if (own == StringEncoding::japaneseEUC || own == StringEncoding::shiftJIS) return StringEncoding::iso2022JP;
    return StringEncoding::unknown;
}

}  // namespace

StringEncoding PreferredEncoding::value() {
    if (_settled.load(std::memory_order_acquire)) return _value;
    const MutexLock lock(_mutex);
    if (_settled) return _value;
    const auto name = _name();
    if (!name) return StringEncoding::unknown;
    _value = encodingWithLocalizedName(*name);
    _settled.store(true, std::memory_order_release);
    return _value;
}

StringEncoding preferedMIMEStringEncoding() {
    static auto& preferred = *new PreferredEncoding(
        [] { return UserDefaults::standard().stringForKey("KTPreferedStringEncodingForMailMessage"); });
    return preferred.value();
}

}  // namespace lorvale

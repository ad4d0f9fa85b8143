#pragma once
#include <atomic>
#include <functional>
#include <optional>
#include <string>

#include "lorvale/platform/mutex.h"
#include "lorvale/values/encoding.h"

namespace lorvale {

/// The user's preferred encoding for mail, looked up once.  Any thread.
class PreferredEncoding {
public:
    /// Answers the localized name of the preferred encoding; nullopt while none is set.
    using NameSource = std::function<std::optional<std::string>()>;
    explicit PreferredEncoding(NameSource name) : _name(std::move(name)) {}

    /// The encoding, or unknown.  While no name is set the source is asked at each call; the first name, even
    /// one that means nothing, settles the answer for good: text that was read and written with one charset
    /// must not change in the middle of a session.
    StringEncoding value();

private:
    const NameSource _name;
    Mutex _mutex;
    std::atomic<bool> _settled{false};
    std::atomic<StringEncoding> _value{StringEncoding::unknown};
};

}  // namespace lorvale

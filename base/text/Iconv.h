#pragma once
#include <iconv.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lorvale {

/// One converter of the OS.  Never transliterates.  One thread at a time: callers keep theirs per thread, since
/// opening one may load a module.
class Iconv {
public:
    Iconv(const char* to, const char* from);
    ~Iconv();
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;

    /// Whether the OS knows both encodings.
    bool isOpen() const { return _descriptor != kClosed; }

    /// Reads one byte that is not valid where it stands; nullopt gives up.
    using Substitute = std::optional<char32_t> (*)(std::uint8_t byte);

    /// Converts from the initial state and back to it (ISO-2022-JP ends with a return to ASCII).  Nullopt when
    /// the input is not valid or incomplete, and there is no substitute or it gives up.  A substitute is for
    /// conversions to UTF-8 only.
    std::optional<std::string> convert(std::string_view input, Substitute substitute = nullptr);

private:
    static inline const iconv_t kClosed = reinterpret_cast<iconv_t>(-1);
    iconv_t _descriptor;
};

}  // namespace lorvale

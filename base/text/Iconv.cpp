#include "base/text/Iconv.h"

#include <cerrno>
#include <map>
#include <utility>

#include "lorvale/platform/mutex.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

/// Opens each pair of encodings once more and never closes it.  The OS unloads a conversion module with its
/// last user, so without this every thread that ends would unload what the next one loads again.
void keepModuleLoaded(const char* to, const char* from) {
    static auto& mutex = *new Mutex;
    static auto& kept = *new std::map<std::pair<std::string, std::string>, iconv_t>;
    const MutexLock lock(mutex);
    const auto [place, isNew] = kept.try_emplace({to, from});
    if (isNew) place->second = ::iconv_open(to, from);
    // Names come from strangers' mail: those that mean nothing are not remembered.
    if (place->second == reinterpret_cast<iconv_t>(-1)) kept.erase(place);
}

}  // namespace

Iconv::Iconv(const char* to, const char* from) {
    keepModuleLoaded(to, from);
    _descriptor = ::iconv_open(to, from);
}

Iconv::~Iconv() {
    if (isOpen()) ::iconv_close(_descriptor);
}

std::optional<std::string> Iconv::convert(std::string_view input, Substitute substitute) {
    if (!isOpen()) return std::nullopt;
    ::iconv(_descriptor, nullptr, nullptr, nullptr, nullptr);
    auto* in = const_cast<char*>(input.data());  // iconv does not write there, whatever its type says
    auto left = input.size();
    std::string output(input.size() + input.size() / 2 + 16, '\0');
    std::size_t written = 0;
    bool finishing = left == 0;
    for (;;) {
        auto* out = output.data() + written;
        auto room = output.size() - written;
        // Without input, iconv writes what leads back to the initial state.
        const auto result =
            ::iconv(_descriptor, finishing ? nullptr : &in, finishing ? nullptr : &left, &out, &room);
        const auto error = errno;
        written = output.size() - room;
        if (result != static_cast<std::size_t>(-1)) {
            if (finishing) break;
            finishing = true;
            continue;
        }
        std::string piece;
        if (error != E2BIG) {
            const auto c =
                finishing || substitute == nullptr ? std::nullopt : substitute(static_cast<std::uint8_t>(*in));
            if (!c) return std::nullopt;
            appendUtf8(piece, *c);
            ++in;
            finishing = --left == 0;
        }
        if (error == E2BIG || output.size() - written < piece.size()) output.resize(output.size() * 2);
        output.replace(written, piece.size(), piece);
        written += piece.size();
    }
    output.resize(written);
    return output;
}

}  // namespace lorvale

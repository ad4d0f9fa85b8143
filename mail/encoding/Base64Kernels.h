#pragma once
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "lorvale/values/data.h"

/// The inner loops of base64.  Each takes the clean stretches at the speed of the machine and leaves everything
/// unusual to its caller, which knows the rules; so a kernel needs none of them, and all kernels agree.

namespace lorvale {

inline constexpr std::string_view kBase64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

inline constexpr std::size_t kBase64LineInput = 57;   // bytes that fill a line
inline constexpr std::size_t kBase64LineOutput = 77;  // 76 characters and the line end

/// How far a kernel came.
struct Base64Progress {
    std::size_t read = 0;
    std::size_t written = 0;
};

struct Base64Kernels {
    /// Decodes groups of four symbols of the alphabet and passes over line ends between groups.  Stops before
    /// the first group that holds anything else.  `out` has room for in.size() / 4 * 3 bytes.
    Base64Progress (*decode)(std::string_view in, std::uint8_t* out);
    /// Encodes all full lines, with their line ends.  `out` has room for just these.
    Base64Progress (*encodeLines)(std::string_view in, std::uint8_t* out);
};

/// The kernels in portable C++, and the fastest that this processor runs.
extern const Base64Kernels kPortableBase64Kernels;
const Base64Kernels& base64Kernels();

/// The codecs of mime.h with given kernels.
void appendDecodedBase64(ByteBuffer& out, std::string_view in, const Base64Kernels& kernels);
Data encodeBase64(const Data& data, const Base64Kernels& kernels);

}  // namespace lorvale

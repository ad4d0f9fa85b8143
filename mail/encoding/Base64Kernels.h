#pragma once
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "lorvale/values/data.h"

/// The inner loops of base64.  They take whole clean lines at the speed of the machine and leave everything
/// else to their callers, which know the rules; so a kernel needs none of them, and all kernels agree.

namespace lorvale {

inline constexpr std::string_view kBase64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

inline constexpr std::size_t kBase64LineInput = 57;   // bytes that fill a line
inline constexpr std::size_t kBase64LineOutput = 77;  // 76 characters and the line end

/// How far a loop came.
struct Base64Progress {
    std::size_t read = 0;
    std::size_t written = 0;
};

struct Base64Kernels {
    std::string_view name;  ///< "portable", "AVX2", "AVX-512 VBMI"
    /// Decodes lines of `length` symbols, a multiple of 4, each with a "\n" behind it, or stretches of that
    /// length when `hasLineEnds` is not set.  Stops before the first that holds anything else, and may stop
    /// before one with fewer than 24 bytes of input behind it; the portable one stops at once.  Reads nothing
    /// beyond `in`.  Writes at most 16 bytes beyond what it decoded, and never beyond the in.size() / 4 * 3
    /// bytes for which `out` has room.
    Base64Progress (*decodeLines)(std::string_view in, std::size_t length, bool hasLineEnds, std::uint8_t* out);
    /// Encodes full lines, with their line ends; may leave one with fewer than 16 bytes of input behind it.
    /// Reads nothing beyond `in`, writes nothing beyond what it answers.
    Base64Progress (*encodeLines)(std::string_view in, std::uint8_t* out);
};

/// All kernels that this processor runs, the portable one first, the fastest last.  Never empty.
std::span<const Base64Kernels> base64Kernels();

/// Those that need more than the language offers; empty on other processors.
std::span<const Base64Kernels> base64KernelsOfProcessor();

/// Decodes groups of four symbols of the alphabet and passes over line ends between groups.  Stops before the
/// first group that holds anything else.  `out` has room for in.size() / 4 * 3 bytes.
Base64Progress decodeCleanBase64(std::string_view in, std::uint8_t* out, const Base64Kernels& kernels);

/// Encodes all full lines.  `out` has room for just these.
Base64Progress encodeBase64Lines(std::string_view in, std::uint8_t* out, const Base64Kernels& kernels);

/// The codecs of mime.h with given kernels.
void appendDecodedBase64(ByteBuffer& out, std::string_view in, const Base64Kernels& kernels);
Data encodeBase64(const Data& data, const Base64Kernels& kernels);

}  // namespace lorvale

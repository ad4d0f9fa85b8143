#include <algorithm>
#include <array>

#include "base/text/ByteSet.h"
#include "lorvale/mime.h"
#include "mail/encoding/Base64Kernels.h"
#include "mail/encoding/TransferDecoders.h"

namespace lorvale {

namespace {

constexpr std::int8_t kNoSymbol = -1;

constexpr auto symbolValues = [] {
    std::array<std::int8_t, 128> values{};
    values.fill(kNoSymbol);
    for (std::size_t i = 0; i < kBase64Alphabet.size(); ++i)
        values[static_cast<std::uint8_t>(kBase64Alphabet[i])] = static_cast<std::int8_t>(i);
    values['='] = 0;
    return values;
}();

/// The rules for one byte after another, as mail programs have always met them: transports that set the eighth
/// bit are forgiven, "=" is a symbol of value 0 like any other, and what cuts a group short is how many "="
/// came last, counted across white space and across groups.
class SymbolGroup {
public:
    bool isEmpty() const { return _count == 0; }
    void forgetPads() { _pads = 0; }

    /// Takes one byte; when it fills the group, writes up to three bytes at `out` and answers how many.
    std::size_t take(std::uint8_t byte, std::uint8_t* out) {
        if ((byte & 0x7F) == '=') {
            ++_pads;
        } else if (!ByteSet::asciiWhitespaceSet().byteIsMember(byte)) {
            _pads = 0;
        }
        const auto value = symbolValues[byte & 0x7F];
        if (value == kNoSymbol) return 0;
        _bits = _bits << 6 | static_cast<std::uint8_t>(value);
        if (++_count < 4) return 0;
        _count = 0;
        const std::size_t length = _pads == 0 ? 3 : _pads == 1 ? 2 : 1;
        for (std::size_t i = 0; i < length; ++i) out[i] = static_cast<std::uint8_t>(_bits >> (16 - 8 * i));
        return length;
    }

private:
    std::uint32_t _bits = 0;  // the lowest 24 are the group
    int _count = 0;
    std::size_t _pads = 0;
};

/// The last group of an encoding, of one to three bytes, padded with "=".
void appendGroup(ByteBuffer& out, std::string_view bytes) {
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bits |= std::uint32_t{static_cast<std::uint8_t>(bytes[i])} << (16 - 8 * i);
    for (std::size_t i = 0; i < 4; ++i)
        out.append(i <= bytes.size() ? kBase64Alphabet[bits >> (18 - 6 * i) & 63] : '=');
}

}  // namespace

void appendDecodedBase64(ByteBuffer& out, std::string_view in, const Base64Kernels& kernels) {
    auto* const to = out.reserve(in.size() / 4 * 3);
    std::size_t written = 0;
    SymbolGroup group;
    for (std::size_t i = 0; i < in.size();) {
        if (group.isEmpty()) {
            const auto clean = decodeCleanBase64(in.substr(i), to + written, kernels);
            if (clean.written > 0) group.forgetPads();
            written += clean.written;
            i += clean.read;
            if (i == in.size()) break;
        }
        written += group.take(static_cast<std::uint8_t>(in[i++]), to + written);
    }
    out.commit(written);
}

void appendDecodedBase64(ByteBuffer& out, std::string_view in) {
    appendDecodedBase64(out, in, base64Kernels().back());
}

/// The first padded group is the end: what stands behind it was put there by a list server or a filter.
void appendStandardBase64(ByteBuffer& out, std::string_view in) {
    auto* const to = out.reserve(in.size() / 4 * 3 + 3);
    std::size_t written = 0, count = 0, pads = 0;
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < in.size(); ++i) {
        if (count == 0) {
            const auto clean = decodeCleanBase64(in.substr(i), to + written, base64Kernels().back());
            written += clean.written;
            i += clean.read;
            if (i == in.size()) break;
        }
        const auto byte = static_cast<std::uint8_t>(in[i]);
        if (byte == '=') {
            if (count >= 2 && count + ++pads >= 4) break;
            continue;
        }
        const auto value = byte < symbolValues.size() ? symbolValues[byte] : kNoSymbol;
        if (value == kNoSymbol) continue;
        pads = 0;
        bits = bits << 6 | static_cast<std::uint8_t>(value);
        if (++count < 4) continue;
        for (const int shift : {16, 8, 0}) to[written++] = static_cast<std::uint8_t>(bits >> shift);
        count = 0;
    }
    // Symbols that fill no group give the bytes that they hold whole.
    for (std::size_t i = 0; i + 1 < count; ++i)
        to[written++] = static_cast<std::uint8_t>(bits << (24 - 6 * count) >> (16 - 8 * i));
    out.commit(written);
}

Data decodeBase64(const Data& data) {
    ByteBuffer out(3 * data.size() / 4);
    appendDecodedBase64(out, data.view());
    return out.data();
}

Data encodeBase64(const Data& data, const Base64Kernels& kernels) {
    // A block at a time, so that the buffer grows only when the output reaches its end.
    constexpr std::size_t kBlock = 512 * kBase64LineInput;
    ByteBuffer out(4 * data.size() / 3);
    auto rest = data.view();
    while (rest.size() >= kBase64LineInput) {
        const auto block = rest.substr(0, kBlock);
        auto* const to = out.reserve(block.size() / kBase64LineInput * kBase64LineOutput);
        const auto done = encodeBase64Lines(block, to, kernels);
        out.commit(done.written);
        rest.remove_prefix(done.read);
    }
    if (rest.empty()) return out.data();
    for (; !rest.empty(); rest.remove_prefix(std::min<std::size_t>(rest.size(), 3)))
        appendGroup(out, rest.substr(0, 3));
    out.append('\n');
    return out.data();
}

Data encodeBase64(const Data& data) {
    return encodeBase64(data, base64Kernels().back());
}

}  // namespace lorvale

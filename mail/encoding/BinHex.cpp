#include <algorithm>
#include <array>

#include "lorvale/mime.h"

namespace lorvale {

namespace {

constexpr std::string_view kAlphabet = "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
static_assert(kAlphabet.size() == 64);

constexpr std::uint8_t kNoSymbol = 0xFF;
constexpr auto symbolValues = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(kNoSymbol);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i)
        values[static_cast<std::uint8_t>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
    return values;
}();

constexpr std::uint8_t kRunMark = 0x90;

/// Undoes the run-length code: "X 0x90 n" stands for n times X, "0x90 0" for 0x90 itself.
class RunExpander {
public:
    explicit RunExpander(ByteBuffer& out) : _out(out) {}

    void take(std::uint8_t byte) {
        if (!_countFollows) {
            _out.append(byte);
            // As the first byte of all it has nothing to repeat, so it is an ordinary one.
            _countFollows = byte == kRunMark && _out.size() > 1;
            return;
        }
        _countFollows = false;
        if (byte == 0) return;
        _out.truncate(_out.size() - 1);
        const auto repeated = _out.bytes()[_out.size() - 1];
        const std::size_t more = byte - 1u;
        std::fill_n(_out.reserve(more), more, repeated);
        _out.commit(more);
    }

private:
    ByteBuffer& _out;
    bool _countFollows = false;
};

/// All symbols up to the end, whatever stands between them; a group that is not full is dropped.
Data expanded(std::string_view symbols) {
    ByteBuffer out(3 * symbols.size() / 4);
    RunExpander expander(out);
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : symbols) {
        const auto value = symbolValues[static_cast<std::uint8_t>(c)];
        if (value == kNoSymbol) continue;
        bits = bits << 6 | value;
        if (++count < 4) continue;
        count = 0;
        for (const int shift : {16, 8, 0}) expander.take(static_cast<std::uint8_t>(bits >> shift));
    }
    return out.data();
}

}  // namespace

// The expanded file, numbers with the most significant byte first:
//   offset  size
//        0     1  N, the length of the name
//        1     N  name
//    N + 1    11  version, type, creator and flags, which are dropped
//   N + 12     4  length of the data fork
//   N + 16     6  length of the resource fork and checksum, which are dropped
//   N + 22        data fork; its checksum and the resource fork follow
// A file that ends early gives what there is of it.
std::optional<Data> decodeBinHex40(const Data& data, std::string* name) {
    auto text = data.view();
    text.remove_prefix(std::min(text.find_first_not_of('\n'), text.size()));
    if (!text.starts_with(':')) return std::nullopt;
    const auto file = expanded(text.substr(1));
    const std::size_t nameLength = file.empty() ? 0 : file[0];
    if (name != nullptr) *name = decodeCString(file.subdata(Range{1, nameLength}).view());
    std::size_t length = 0;
    for (const auto byte : file.subdata(Range{nameLength + 12, 4})) length = length << 8 | byte;
    return file.subdata(Range{nameLength + 22, length});
}

}  // namespace lorvale

#include "mail/encoding/Base64Kernels.h"

#include <array>
#include <cstring>
#include <vector>

namespace lorvale {

namespace {

constexpr std::uint32_t kBadSymbol = 0xFF000000;

/// The bits of each symbol at its place in a group of 24 bits; kBadSymbol for a byte outside the alphabet.
constexpr auto symbolTables = [] {
    std::array<std::array<std::uint32_t, 256>, 4> tables{};
    for (auto& table : tables) table.fill(kBadSymbol);
    for (std::uint32_t value = 0; value < 64; ++value)
        for (std::uint32_t place = 0; place < 4; ++place)
            tables[place][static_cast<std::uint8_t>(kBase64Alphabet[value])] = value << (18 - 6 * place);
    return tables;
}();

/// The two characters for each value of 12 bits: half as many look-ups as with one character each.
constexpr auto pairTable = [] {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i)
        pairs[i] = {kBase64Alphabet[i >> 6], kBase64Alphabet[i & 63]};
    return pairs;
}();

/// The 24 bits of the four symbols at `in`, with bits of kBadSymbol set when one is outside the alphabet.
std::uint32_t groupAt(const char* in) {
    const auto symbol = [in](std::size_t place) {
        return symbolTables[place][static_cast<std::uint8_t>(in[place])];
    };
    return symbol(0) | symbol(1) | symbol(2) | symbol(3);
}

void writeGroup(std::uint32_t bits, std::uint8_t* out) {
    out[0] = static_cast<std::uint8_t>(bits >> 16);
    out[1] = static_cast<std::uint8_t>(bits >> 8);
    out[2] = static_cast<std::uint8_t>(bits);
}

Base64Progress decodeGroups(std::string_view in, std::uint8_t* out) {
    Base64Progress done;
    for (; in.size() - done.read >= 4; done.read += 4, done.written += 3) {
        const auto bits = groupAt(in.data() + done.read);
        if ((bits & kBadSymbol) != 0) break;
        writeGroup(bits, out + done.written);
    }
    return done;
}

std::size_t lineEndsAt(std::string_view in) {
    std::size_t count = 0;
    while (count < in.size() && (in[count] == '\n' || in[count] == '\r')) ++count;
    return count;
}

Base64Progress decodeNoLines(std::string_view, std::size_t, bool, std::uint8_t*) {
    return {};
}

Base64Progress encodeLinesPortably(std::string_view in, std::uint8_t* out) {
    Base64Progress done;
    for (; in.size() - done.read >= kBase64LineInput; done.read += kBase64LineInput) {
        for (std::size_t i = 0; i < kBase64LineInput; i += 3) {
            const auto byte = [&](std::size_t n) {
                return std::uint32_t{static_cast<std::uint8_t>(in[done.read + i + n])};
            };
            const auto bits = byte(0) << 16 | byte(1) << 8 | byte(2);
            std::memcpy(out + done.written, pairTable[bits >> 12].data(), 2);
            std::memcpy(out + done.written + 2, pairTable[bits & 0xFFF].data(), 2);
            done.written += 4;
        }
        out[done.written++] = '\n';
    }
    return done;
}

}  // namespace

Base64Progress decodeCleanBase64(std::string_view in, std::uint8_t* out, const Base64Kernels& kernels) {
    constexpr std::size_t kLongLine = 1024;  // so long that it may be all there is
    Base64Progress done;
    const auto add = [&done](Base64Progress more) {
        done.read += more.read;
        done.written += more.written;
    };
    for (;;) {
        // One line, or the beginning of a very long one, tells what the next ones will be like.
        const auto line = decodeGroups(in.substr(done.read, kLongLine), out + done.written);
        add(line);
        if (line.read == kLongLine) {
            add(kernels.decodeLines(in.substr(done.read), kLongLine, false, out + done.written));
            continue;
        }
        const auto lineEnds = lineEndsAt(in.substr(done.read));
        if (lineEnds == 0) return done;
        done.read += lineEnds;
        if (line.read > 0) add(kernels.decodeLines(in.substr(done.read), line.read, true, out + done.written));
    }
}

Base64Progress encodeBase64Lines(std::string_view in, std::uint8_t* out, const Base64Kernels& kernels) {
    const auto most = kernels.encodeLines(in, out);
    const auto rest = encodeLinesPortably(in.substr(most.read), out + most.written);
    return {most.read + rest.read, most.written + rest.written};
}

std::span<const Base64Kernels> base64Kernels() {
    static const auto kernels = [] {
        std::vector<Base64Kernels> all{{"portable", decodeNoLines, encodeLinesPortably}};
        for (const auto& special : base64KernelsOfProcessor()) all.push_back(special);
        return all;
    }();
    return kernels;
}

}  // namespace lorvale

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "base/text/Ascii.h"
#include "lorvale/mime.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"
#include "mail/model/HeaderDecoding.h"
#include "mail/model/HeaderEncoding.h"
#include "tests/mail/model/RealMail.h"
#include "tests/support/HeaderBlocks.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TextRows.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace std::string_view_literals;
using Block = testing::HeaderBlock;

std::string encodeBlock(const Block& block, EnvelopeLine envelope = EnvelopeLine::write) {
    return encodeHeaderBlock(block.headers, block.order, block.originalKeys, envelope).toString();
}

/// "key[value|value] key[] / order order"
std::string shown(const Block& block) {
    std::string text;
    for (const auto& [key, values] : block.headers) {
        text += key + "[";
        for (const auto& value : values) text += (&value == values.data() ? "" : "|") + value;
        text += "] ";
    }
    text += "/";
    for (const auto& key : block.order) text += " " + key;
    return text;
}

/// What is odd; the usual is compared in AgreesWithThePlainReader.
TEST(HeaderBlock, IsDecodedLineByLine) {
    const TextRow rows[] = {
        {"a folded line loses its newline and one blank", "Subject: a\n  b\n\tc\n", "subject[a bc] / subject"},
        {"the envelope line, only in front", "From a b: c\nFrom: x\nFrom y\n",
         "from[x] from [a b: c] / from  from"},
        {"the first of two counts", "Subject: a\nsubject: b\n", "subject[a] / subject"},
        {"the last From counts", "From: a\nX: 1\nFrom: b\n", "from[b] x[1] / from x from"},
        {"others are gathered", "To: a\nReceived: r\nTo: b\nReceived: s\n",
         "received[r|s] to[a|b] / to received to received"},
        {"an empty one leaves its place", "Cc:\nTo: \t\nTo: a\nSubject:\n",
         "cc[] subject[] to[a] / cc to to subject"},
        {"lines without a colon are skipped", "no colon\nA: 1\n:v\n", "[v] a[1] / a "},
        {"white space before the name goes, behind it stays", "A : 1\n", "a [1] / a "},
        {"an indented first line is dropped", " x: 1\nA: 2\n", "a[2] / a"},
        {"a carriage return is part of the value", "A: 1\r\nTo: b\r\n\r\nB: 2\r\n",
         "a[1\r] b[2\r] to[b\r] / a to b"},
        {"bytes have the default encoding", "Subject: caf\xE9\nTo: \xD0\n",
         "subject[caf\u00E9] to[\u2014] / subject to"},
        {"an empty line before an indented one joins", "To: a\n\n  b\n", "to[a\n b] / to"},
    };
    expectRows([](std::string_view bytes) { return shown(decodeBlock(bytes)); }, rows);
    EXPECT_EQ(decodeBlock("REPLY-To: x\n").originalKeys, (OriginalKeys{{"reply-to", "REPLY-To"}}));
}

/// The rules again, one byte at a time and without a thought for speed.
class PlainReader {
public:
    explicit PlainReader(std::string_view bytes) : _bytes(bytes) {}

    Block read() {
        for (bool first = true;; first = false) {
            auto line = logicalLine();
            if (line.size() < 2) return std::move(_block);
            const bool ended = line.ends_with('\n');
            if (line[0] == ' ' || line[0] == '\t') {
                append(line);
                continue;
            }
            if (ended) line.pop_back();
            const bool envelope = first && line.starts_with("From ");
            const auto colon = envelope ? 5 : line.find(':');
            if (colon == std::string::npos) continue;
            add(stripped(line.substr(0, colon), false), line.substr(envelope ? 5 : colon + 1));
        }
    }

private:
    std::string logicalLine() {
        std::string line;
        while (_at < _bytes.size()) {
            line += _bytes[_at++];
            if (line.back() != '\n') continue;
            if (_at == _bytes.size() || (_bytes[_at] != ' ' && _bytes[_at] != '\t')) break;
            line.pop_back();
            ++_at;
        }
        return line;
    }
    static std::string stripped(std::string text, bool behindToo) {
        text.erase(0, std::min(text.find_first_not_of(" \t\n"), text.size()));
        if (behindToo) text.erase(text.find_last_not_of(" \t\n") + 1);
        return text;
    }
    void append(const std::string& line) {
        auto* values = _open.empty() ? nullptr : &_block.headers[_open];
        const auto text = stripped(line, true);
        if (values == nullptr || values->empty() || text.empty()) return;
        values->back() += "\n" + line.substr(0, 1) + decodeMimeHeaderValue(decodeCString(text));
    }
    void add(const std::string& name, const std::string& value) {
        const auto key = lowercased(decodeCString(name));
        const bool gathers = key == "to" || key == "cc" || key == "received", replaces = key == "from";
        const bool known = _block.headers.contains(key);
        _open = gathers || replaces ? key : "";
        if (known && !gathers && !replaces) return;
        auto& values = _block.headers[key];
        if (replaces) values.clear();
        if (!known || replaces) _block.originalKeys[key] = decodeCString(name);
        const auto text = stripped(value, gathers || replaces);
        if (!text.empty() || (!gathers && !replaces))
            values.push_back(decodeMimeHeaderValue(decodeCString(text)));
        _block.order.push_back(key);
    }
    std::string_view _bytes;
    std::size_t _at = 0;
    std::string _open;
    Block _block;
};

std::string randomBlock(std::mt19937& random) {
    static const auto pieces = split(
        "From |From: |from:|To: |TO:|Cc:|Received: |Subject: |SUBJECT: |Date:|X-A: |\n|\n|\n|\n|\n |\n\t|\n\n"
        "| |\t|:|\r\n|a|b c|=?|?=|\xE9|\xD0: |=?utf-8?q?a=0Ab?=|=?x?B?YQ==?=|_|\0"sv,
        '|');
    std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1), length(0, 40);
    std::string bytes;
    for (auto n = length(random); n > 0; --n) bytes += pieces[piece(random)];
    return bytes;
}

TEST(HeaderBlock, AgreesWithThePlainReader) {
    const LogCapture silence;
    std::mt19937 random(11);
    for (int i = 0; i < 3'000; ++i) {
        const auto bytes = randomBlock(random);
        SCOPED_TRACE(::testing::PrintToString(bytes));
        const auto block = decodeBlock(ExactCopy(bytes));
        ASSERT_EQ(shown(block), shown(PlainReader(bytes).read()));
        EXPECT_TRUE(cachedHeadersAgree(bytes, block));
        if (HasFailure()) break;
    }
    const auto blocks = testing::realHeaderBlocks();
    for (std::size_t i = 0; i < blocks.size(); i += 3) {
        const auto block = decodeBlock(blocks[i]);
        ASSERT_EQ(block, PlainReader(blocks[i]).read());
        EXPECT_TRUE(cachedHeadersAgree(blocks[i], block));
    }
}

TEST(HeaderBlock, IsEncodedInItsOrder) {
    const TextRow rows[] = {
        {"places and spellings are kept", "From a b\nReceived: r\nTo: a\nRECEIVED: s\nto: b\nX-y:1\n\n",
         "From a b\nReceived: r\nTo: a\nReceived: s\nTo: b\nX-y: 1\n\n"},
        {"of two From lines the last is written twice", "From: a\nX: 1\nFrom: b\n\n",
         "From: b\nX: 1\nFrom: b\n\n"},
        {"an empty list writes nothing", "Cc:\nA: 1\n\n", "A: 1\n\n"},
        {"a newline out of an encoded word cannot start a header", "A: =?us-ascii?q?x=0ABcc:y=0A=0Az?=\n\n",
         "A: x\n Bcc:y\n \n z\n\n"},
        {"nor can what is a line end to others; that of the message stays", "A: x\rBcc: y\v\x1Dz\r\n\n",
         "A: x Bcc: y  z\r\n\n"},
    };
    expectRows([](std::string_view bytes) { return encodeBlock(decodeBlock(bytes)); }, rows);
    EXPECT_EQ(encodeBlock(decodeBlock("From a\nA: 1\n\n"), EnvelopeLine::leaveOut), "A: 1\n\n");
    EXPECT_EQ(encodeBlock({{{"a", {"1"}}}, {"a", "gone"}, {}}), "a: 1\n\n");
    EXPECT_EQ(encodeBlock({{{" a\nb: c\rd", {"1"}}}, {" a\nb: c\rd"}, {}}), "a-b- c-d: 1\n\n");
    EXPECT_EQ(encodeBlock({{{"to", {"1", "2"}}}, {"to"}, {}}), "to: 1\n\n");  // one place, one value
    EXPECT_EQ(encodeBlock({{{"from ", {"x\u0100"}}}, {"from "}, {}}), "From x?\n\n");
}

TEST(HeaderBlock, OfManyRepeatedLinesDoesNotGrowWithTheSquare) {
    std::string bytes;
    for (int i = 0; i < 20'000; ++i) bytes += "From:\n";
    bytes += "From: " + std::string(20'000, 'x') + "\n\n";
    EXPECT_LT(encodeBlock(decodeBlock(bytes)).size(), 20 * bytes.size());
}

/// Every plain value of real mail survives being decoded, written and decoded again, in its place.
TEST(HeaderBlock, OfRealMailSurvivesWriting) {
    const LogCapture silence;
    const auto blocks = testing::realHeaderBlocks();
    if (blocks.empty()) GTEST_SKIP() << "no folder of real mail beside the checkout";
    std::size_t compared = 0;
    for (std::size_t i = 1; i < blocks.size(); i += 3) {
        const auto before = decodeBlock(blocks[i]);
        const auto after = decodeBlock(encodeBlock(before));
        for (const auto& [key, values] : before.headers) {
            const bool plain = std::ranges::all_of(values, [](const std::string& value) {
                return !value.empty() && decodeMimeHeaderValue(encodeMimeHeaderValue(value)) == value &&
                       value.find_first_of("\n\r\v\f") == std::string::npos;
            });
            const bool repeated = std::ranges::count(before.order, key) > std::ssize(values);
            const bool renamed = std::ranges::any_of(key, isAsciiControl);
            if (!plain || repeated || renamed || values.empty()) continue;
            ASSERT_EQ(after.headers.at(key), values) << key;
            ++compared;
        }
    }
    EXPECT_GT(compared, 3 * blocks.size());
}

}  // namespace
}  // namespace lorvale

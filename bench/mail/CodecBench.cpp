// Each codec beside a memcpy of the same input in the same run, and beside GMime where it is installed.  Bytes
// per second are bytes of input; the counter "of_memcpy" is the share of memcpy's speed, measured in turns with
// it.
#include <benchmark/benchmark.h>
#include <malloc.h>

#ifdef LORVALE_BENCH_GMIME
#include <gmime/gmime.h>
#endif

#include <chrono>
#include <cstring>
#include <functional>
#include <random>

#include "lorvale/mime.h"
#include "lorvale/values/text.h"

namespace {

using namespace lorvale;

Data randomBytes(std::size_t size) {
    std::mt19937 random(1);
    std::string bytes(size, '\0');
    for (auto& c : bytes) c = static_cast<char>(random());
    return Data(std::move(bytes));
}

/// Text in lines of at most `width` columns; of the words one in `accented` has a letter outside ASCII (0:
/// none).
Data prose(std::size_t size, std::size_t width, std::size_t accented) {
    constexpr std::string_view kWords[] = {"the",  "letter", "arrived",  "on",   "Friday",
                                           "with", "a",      "parcel",   "from", "Fontainebleau",
                                           "and",  "nobody", "expected", "it,"};
    std::mt19937 random(2);
    std::string text;
    for (std::size_t column = 0; text.size() < size;) {
        std::string word(kWords[random() % std::size(kWords)]);
        if (accented > 0 && random() % accented == 0) word += "\xC3\xA9";
        if (column + word.size() >= width) {
            text.back() = '\n';
            column = 0;
        }
        text += word + ' ';
        column += word.size() + 1;
    }
    text.resize(size - 1);
    while (static_cast<std::uint8_t>(text.back()) >= 0x80 || text.back() == ' ') text.pop_back();
    return Data(std::move(text) + '\n');
}

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Runs a codec and a memcpy of its input in turns.  The counters come from the best run of each, which a busy
/// machine disturbs least.
void beside(benchmark::State& state, const Data& in, const std::function<void()>& codec) {
    std::string copy(in.size(), '\0');
    double codecTime = 1e9, copyTime = 1e9;
    for (auto _ : state) {
        const auto once = secondsOf(codec);
        state.SetIterationTime(once);
        codecTime = std::min(codecTime, once);
        copyTime = std::min(copyTime, secondsOf([&] {
                                std::memcpy(copy.data(), in.bytes(), in.size());
                                benchmark::DoNotOptimize(copy.data());
                                benchmark::ClobberMemory();
                            }));
    }
    state.counters["best_bytes_per_second"] = benchmark::Counter(
        static_cast<double>(in.size()) / codecTime, benchmark::Counter::kDefaults, benchmark::Counter::kIs1024);
    state.counters["of_memcpy"] = copyTime / codecTime;
}

using Codec = Data (*)(const Data&);

void measure(benchmark::State& state, const Data& in, const Data& expected, Codec codec) {
    if (codec(in) != expected) return state.SkipWithError("wrong answer");
    beside(state, in, [&] { benchmark::DoNotOptimize(codec(in)); });
}

#ifdef LORVALE_BENCH_GMIME
/// One whole pass, as GMime's stream filters make it: a new state and a new output buffer for each part.
Data withGMime(const Data& in, GMimeContentEncoding encoding, bool encodes) {
    GMimeEncoding state;
    if (encodes) {
        g_mime_encoding_init_encode(&state, encoding);
    } else {
        g_mime_encoding_init_decode(&state, encoding);
    }
    ByteBuffer out(g_mime_encoding_outlen(&state, in.size()));
    const auto* const from = reinterpret_cast<const char*>(in.bytes());
    auto* const to = reinterpret_cast<char*>(out.bytes());
    out.commit(g_mime_encoding_flush(&state, from, in.size(), to));
    return out.data();
}

template <GMimeContentEncoding encoding, bool encodes>
Data gmime(const Data& in) {
    return withGMime(in, encoding, encodes);
}
#endif

constexpr std::size_t kSizes[] = {64 * 1024, 1024 * 1024, 32 * 1024 * 1024};

void add(const std::string& name, std::size_t size, Data in, Data expected, Codec codec) {
    const auto full = name + "/" + std::to_string(size / 1024) + "KiB";
    benchmark::RegisterBenchmark(full.c_str(), [=](benchmark::State& state) {
        measure(state, in, expected, codec);
    })->UseManualTime();
}

void addTransferEncodings(std::size_t size) {
    const auto bytes = randomBytes(size);
    const auto base64 = encodeBase64(bytes);
    const auto lines = prose(size, 72, 0);
    const auto paragraph = prose(size, size, 0);
    const auto french = prose(size, 72, 6);
    add("base64_decode", size, base64, bytes, decodeBase64);
    add("base64_encode", size, bytes, base64, encodeBase64);
    for (const auto& [name, text] :
         {std::pair{"lines", lines}, {"paragraph", paragraph}, {"accented", french}}) {
        const auto encoded = encodeQuotedPrintable(text);
        add(std::string("qp_decode_") + name, size, encoded, text, decodeQuotedPrintable);
        add(std::string("qp_encode_") + name, size, text, encoded, encodeQuotedPrintable);
    }
#ifdef LORVALE_BENCH_GMIME
    constexpr auto kBase64 = GMIME_CONTENT_ENCODING_BASE64;
    constexpr auto kQuoted = GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE;
    add("gmime/base64_decode", size, base64, bytes, gmime<kBase64, false>);
    // Its lines differ from ours, so what it encodes is held against its own answer, which must decode.
    const auto checked = [&](const Data& in, Codec encode, Codec decode) {
        const auto encoded = encode(in);
        return decode(encoded) == in ? encoded : Data();
    };
    add("gmime/base64_encode", size, bytes, checked(bytes, gmime<kBase64, true>, decodeBase64),
        gmime<kBase64, true>);
    for (const auto& [name, text] :
         {std::pair{"lines", lines}, {"paragraph", paragraph}, {"accented", french}}) {
        add(std::string("gmime/qp_decode_") + name, size, encodeQuotedPrintable(text), text,
            gmime<kQuoted, false>);
        add(std::string("gmime/qp_encode_") + name, size, text,
            checked(text, gmime<kQuoted, true>, decodeQuotedPrintable), gmime<kQuoted, true>);
    }
#endif
}

struct Header {
    std::string_view value, read;
};

/// Values as they stand in mail, in about the shares of a mixed mailbox: most are plain.
constexpr Header kHeaders[] = {
    {"Re: [list] Minutes of the meeting on Friday", "Re: [list] Minutes of the meeting on Friday"},
    {"\"Anna Example\" <anna@example.org>, bert@example.net",
     "\"Anna Example\" <anna@example.org>, bert@example.net"},
    {"Fri, 23 Aug 2002 11:04:35 +0200 (CEST)", "Fri, 23 Aug 2002 11:04:35 +0200 (CEST)"},
    {"=?iso-8859-1?Q?Andr=E9?= <andre@example.org>", "André<andre@example.org>"},
    {"Re: =?UTF-8?Q?Rechnung_f=C3=BCr_M=C3=A4rz?=", "Re: Rechnung für März"},
    {"=?UTF-8?B?0J/RgNC40LLQtdGCLCDQutCw0Log0LTQtdC70LA/?=", "Привет, как дела?"},
    {"=?iso-2022-jp?B?GyRCRnxLXBsoQg==?=", "日本"},
};

void addHeaders(const std::string& name, std::span<const Header> headers,
                std::function<std::string(std::string_view)> decode) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        std::int64_t bytes = 0;
        for (const auto& header : headers) {
            if (decode(header.value) != header.read) return state.SkipWithError("wrong answer");
            bytes += std::ssize(header.value);
        }
        for (auto _ : state)
            for (const auto& header : headers) benchmark::DoNotOptimize(decode(header.value));
        state.SetBytesProcessed(state.iterations() * bytes);
        state.SetItemsProcessed(state.iterations() * std::ssize(headers));
    });
}

void addHeaderCopies(std::span<const Header> headers) {
    benchmark::RegisterBenchmark("header_copy_mixed", [=](benchmark::State& state) {
        std::int64_t bytes = 0;
        for (const auto& header : headers) bytes += std::ssize(header.value);
        for (auto _ : state)
            for (const auto& header : headers) benchmark::DoNotOptimize(std::string(header.value));
        state.SetBytesProcessed(state.iterations() * bytes);
    });
}

}  // namespace

int main(int argc, char** argv) {
    // Freed memory stays with the process: page faults of fresh memory would drown the inner loops.
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    for (const auto size : kSizes) addTransferEncodings(size);
    const std::span<const Header> all(kHeaders);
    addHeaderCopies(all);
    const auto classic = [](std::string_view text) {
        return decodeMimeHeaderValue(text, MailDialect::classic);
    };
    const auto standard = [](std::string_view text) {
        return decodeMimeHeaderValue(text, MailDialect::standard);
    };
    // Here the blank behind an encoded word stays, as RFC 2047 asks.
    static constexpr Header kWords[] = {
        {"=?iso-8859-1?Q?Andr=E9?= <andre@example.org>", "André <andre@example.org>"},
        kHeaders[4],
        kHeaders[5],
        kHeaders[6]};
    addHeaders("header_decode_mixed", all, classic);
    addHeaders("header_decode_plain", all.first(3), classic);
    addHeaders("header_decode_words", all.subspan(3), classic);
    addHeaders("standard/header_decode_plain", all.first(3), standard);
    addHeaders("standard/header_decode_words", kWords, standard);
#ifdef LORVALE_BENCH_GMIME
    g_mime_init();
    const auto gmimeDecode = [](std::string_view text) {
        char* const read = g_mime_utils_header_decode_text(nullptr, std::string(text).c_str());
        std::string result = read;
        g_free(read);
        return result;
    };
    addHeaders("gmime/header_decode_plain", all.first(3), gmimeDecode);
    addHeaders("gmime/header_decode_words", kWords, gmimeDecode);
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}

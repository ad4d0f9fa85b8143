// Composing a letter to its bytes: attributed text, and a file of a megabyte.  The rate is that of the file.
// Another library does the same work in the same run.
#include <benchmark/benchmark.h>

#ifdef LORVALE_BENCH_GMIME
#include <gmime/gmime.h>
#endif

#include <random>
#include <string>

#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/values/rich_text.h"

namespace {

using namespace lorvale;

constexpr std::size_t kFileSize = 1'000'000;

const std::string& fileContents() {
    static const auto contents = [] {
        std::mt19937 random(1);
        std::string bytes(kFileSize, '\0');
        for (char& c : bytes) c = static_cast<char>(random() % 256);
        return bytes;
    }();
    return contents;
}

AttributedText letterText() {
    TextAttributes bold;
    bold.font.emplace(Font::user()).bold = true;
    AttributedText text;
    for (int i = 0; i < 50; ++i) {
        text.append("A line of a letter with some words in it, ");
        text.append("and some in bold \u00E9.\n", bold);
    }
    return text;
}

void count(benchmark::State& state, std::size_t size) {
    if (size < kFileSize * 4 / 3) state.SkipWithError("the file is missing");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFileSize));
}

void compose(benchmark::State& state, MailDialect dialect) {
    setMailDialect(dialect);
    const auto file = FileWrapper::regularFile(Data::copyOf(fileContents()));
    if (!file->setPreferredFilename("photo.bin")) return state.SkipWithError("no name");
    const auto text = letterText();
    std::size_t size = 0;
    for (auto _ : state) {
        const auto letter = newLetter("a@x.example");
        letter->headers()->setObject("b@x.example", "To");
        const auto body = std::static_pointer_cast<MimeBody>(letter->messageBody());
        body->setFiles({file});
        body->setDecodedBody(text);
        completeLetter(*letter);
        size = letter->messageData()->size();
    }
    setMailDialect(MailDialect::classic);
    count(state, size);
}
BENCHMARK_CAPTURE(compose, standard, MailDialect::standard);
BENCHMARK_CAPTURE(compose, classic, MailDialect::classic);

#ifdef LORVALE_BENCH_GMIME
GMimePart* partByGMime(const char* subtype, const char* type, const std::string& bytes,
                       GMimeContentEncoding encoding) {
    auto* const part = g_mime_part_new_with_type(type, subtype);
    auto* const stream = g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size());
    auto* const content = g_mime_data_wrapper_new_with_stream(stream, GMIME_CONTENT_ENCODING_DEFAULT);
    g_mime_part_set_content(part, content);
    g_mime_part_set_content_encoding(part, encoding);
    g_object_unref(content);
    g_object_unref(stream);
    return part;
}

/// The texts are made already: only the letter is composed.
void composeByGMime(benchmark::State& state) {
    g_mime_init();
    const auto plain = letterText().string();
    const auto page = htmlFromAttributedText(letterText()).toString();
    std::size_t size = 0;
    for (auto _ : state) {
        auto* const message = g_mime_message_new(TRUE);
        g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_TO, nullptr, "b@x.example");
        auto* const mixed = g_mime_multipart_new_with_subtype("mixed");
        auto* const both = g_mime_multipart_new_with_subtype("alternative");
        GMimePart* const parts[] = {
            partByGMime("plain", "text", plain, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE),
            partByGMime("html", "text", page, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE),
            partByGMime("octet-stream", "application", fileContents(), GMIME_CONTENT_ENCODING_BASE64),
        };
        g_mime_part_set_filename(parts[2], "photo.bin");
        g_mime_multipart_add(both, GMIME_OBJECT(parts[0]));
        g_mime_multipart_add(both, GMIME_OBJECT(parts[1]));
        g_mime_multipart_add(mixed, GMIME_OBJECT(both));
        g_mime_multipart_add(mixed, GMIME_OBJECT(parts[2]));
        g_mime_message_set_mime_part(message, GMIME_OBJECT(mixed));
        auto* const out = g_mime_stream_mem_new();
        g_mime_object_write_to_stream(GMIME_OBJECT(message), nullptr, out);
        size = static_cast<std::size_t>(g_mime_stream_length(out));
        g_object_unref(out);
        for (auto* const part : parts) g_object_unref(part);
        g_object_unref(both);
        g_object_unref(mixed);
        g_object_unref(message);
    }
    count(state, size);
}
BENCHMARK(composeByGMime);
#endif

}  // namespace

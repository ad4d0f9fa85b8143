// Taking the messages of a mailbox apart: the one that LORVALE_MAILBOX names, else one made here.  "Parse"
// makes the tree of each message and decodes the transfer encoding of every part; "text" goes on to the text a
// reader sees. Others do the same work on the same bytes in the same run.
#include <benchmark/benchmark.h>

#ifdef LORVALE_BENCH_GMIME
#include <gmime/gmime.h>
#endif
#ifdef LORVALE_BENCH_ETPAN
#include <libetpan/libetpan.h>
#endif

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "base/files/FileSystem.h"
#include "lorvale/body.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "mail/stores/MboxScan.h"

namespace {

using namespace lorvale;

/// 2,000 messages: plain ones, alternatives in quoted-printable, pictures in base64.
std::string madeMailbox() {
    std::mt19937 random(1);
    const auto text = [&](std::size_t lines) {
        std::string made;
        for (; lines > 0; --lines) made += std::string(20 + random() % 50, 'a') + " \xC3\xA9\n";
        return made;
    };
    const auto part = [&](std::string_view type, const Data& body, std::string_view encoding) {
        return "--b\nContent-Type: " + std::string(type) +
               "\nContent-Transfer-Encoding: " + std::string(encoding) + "\n\n" + body.toString() + "\n";
    };
    std::string bytes;
    for (unsigned i = 0; i < 2000; ++i) {
        bytes +=
            "From a@mail.example Thu Aug 22 12:46:23 2002\nFrom: a@mail.example\nSubject: Topic\nMIME-Version: "
            "1.0\n";
        if (i % 3 == 0) {
            bytes += "Content-Type: text/plain; charset=utf-8\n\n" + text(random() % 150);
        } else {
            const auto quoted = encodeQuotedPrintable(Data::copyOf(text(random() % 100)));
            bytes += "Content-Type: multipart/mixed; boundary=b\n\n" +
                     part("text/plain; charset=utf-8", quoted, "quoted-printable");
            if (i % 3 == 1) bytes += part("image/gif", encodeBase64(Data::copyOf(text(100))), "base64");
            bytes += "--b--\n";
        }
        bytes += '\n';
    }
    return bytes;
}

/// The messages without their envelope lines.
const std::vector<Data>& messages() {
    static const auto all = [] {
        setLogSink([](std::string_view) {});
        const char* const named = std::getenv("LORVALE_MAILBOX");
        const auto read = named != nullptr ? FileSystem::current().readFile(named) : std::nullopt;
        const auto mailbox = read ? *read : Data(madeMailbox());
        std::vector<Data> found;
        for (const auto& entry : mboxEntries(mailbox.view())) {
            auto view = mailbox.view().substr(entry.range.location, entry.range.length);
            view.remove_prefix(std::min(view.find('\n') + 1, view.size()));
            found.push_back(mailbox.subdata(view));
        }
        return found;
    }();
    return all;
}

std::size_t totalSize() {
    std::size_t size = 0;
    for (const auto& message : messages()) size += message.size();
    return size;
}

void count(benchmark::State& state, std::size_t decoded) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(totalSize()));
    state.counters["decoded"] = static_cast<double>(decoded);
}

void BM_Copy(benchmark::State& state) {
    std::string copy;
    for (auto _ : state) {
        for (const auto& message : messages()) {
            copy.assign(message.view());
            benchmark::DoNotOptimize(copy.data());
        }
    }
    count(state, totalSize());
}
BENCHMARK(BM_Copy);

std::size_t decodedSize(MimeBodyPart& part) {
    const auto* const children = part.bodyParts();
    if (children == nullptr) return part.bodyData()->size();
    std::size_t size = 0;
    for (const auto& child : *children) size += decodedSize(*child);
    return size;
}

void parse(benchmark::State& state, MailDialect dialect) {
    std::size_t size = 0;
    for (auto _ : state) {
        size = 0;
        for (const auto& message : messages())
            size += decodedSize(*MimeBodyPart::bodyPartWithData(message, dialect));
        if (size == 0) state.SkipWithError("nothing decoded");
    }
    count(state, size);
}
BENCHMARK_CAPTURE(parse, standard, MailDialect::standard);
BENCHMARK_CAPTURE(parse, classic, MailDialect::classic);

void text(benchmark::State& state, MailDialect dialect) {
    std::size_t size = 0;
    for (auto _ : state) {
        size = 0;
        for (const auto& message : messages())
            size += MimeBodyPart::bodyPartWithData(message, dialect)
                        ->decodeBodyPartInDirectory(std::nullopt)
                        .string()
                        .size();
        if (size == 0) state.SkipWithError("no text");
    }
    count(state, size);
}
BENCHMARK_CAPTURE(text, standard, MailDialect::standard);
BENCHMARK_CAPTURE(text, classic, MailDialect::classic);

#ifdef LORVALE_BENCH_GMIME
std::size_t decodedByGMime(GMimeObject* object, bool asText) {
    std::size_t size = 0;
    if (GMIME_IS_MULTIPART(object)) {
        auto* const multipart = GMIME_MULTIPART(object);
        for (int i = 0; i < g_mime_multipart_get_count(multipart); ++i)
            size += decodedByGMime(g_mime_multipart_get_part(multipart, i), asText);
    } else if (GMIME_IS_MESSAGE_PART(object)) {
        auto* const message = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object));
        if (message != nullptr && g_mime_message_get_mime_part(message) != nullptr)
            size = decodedByGMime(g_mime_message_get_mime_part(message), asText);
    } else if (asText && GMIME_IS_TEXT_PART(object)) {
        char* const made = g_mime_text_part_get_text(GMIME_TEXT_PART(object));
        size = made != nullptr ? std::strlen(made) : 0;
        g_free(made);
    } else if (auto* const content =
                   GMIME_IS_PART(object) ? g_mime_part_get_content(GMIME_PART(object)) : nullptr) {
        auto* const stream = g_mime_stream_mem_new();
        g_mime_data_wrapper_write_to_stream(content, stream);
        size = static_cast<std::size_t>(g_mime_stream_length(stream));
        g_object_unref(stream);
    }
    return size;
}

void byGMime(benchmark::State& state, bool asText) {
    g_mime_init();
    std::size_t size = 0;
    for (auto _ : state) {
        size = 0;
        for (const auto& message : messages()) {
            auto* const stream = g_mime_stream_mem_new_with_buffer(message.view().data(), message.size());
            auto* const parser = g_mime_parser_new_with_stream(stream);
            auto* const parsed = g_mime_parser_construct_message(parser, nullptr);
            if (parsed != nullptr) {
                size += decodedByGMime(g_mime_message_get_mime_part(parsed), asText);
                g_object_unref(parsed);
            }
            g_object_unref(parser);
            g_object_unref(stream);
        }
    }
    count(state, size);
}
BENCHMARK_CAPTURE(byGMime, parse, false);
BENCHMARK_CAPTURE(byGMime, text, true);
#endif

#ifdef LORVALE_BENCH_ETPAN
std::size_t decodedByEtpan(struct mailmime* mime) {
    std::size_t size = 0;
    if (mime->mm_type == MAILMIME_SINGLE) {
        const auto* const data = mime->mm_data.mm_single;
        if (data == nullptr || data->dt_type != MAILMIME_DATA_TEXT) return 0;
        const int encoding = mime->mm_mime_fields != nullptr
                                 ? mailmime_transfer_encoding_get(mime->mm_mime_fields)
                                 : static_cast<int>(MAILMIME_MECHANISM_8BIT);
        std::size_t index = 0;
        char* decoded = nullptr;
        if (mailmime_part_parse(data->dt_data.dt_text.dt_data, data->dt_data.dt_text.dt_length, &index,
                                encoding, &decoded, &size) == MAILIMF_NO_ERROR)
            mailmime_decoded_part_free(decoded);
    } else if (mime->mm_type == MAILMIME_MULTIPLE) {
        for (auto* each = clist_begin(mime->mm_data.mm_multipart.mm_mp_list); each != nullptr;
             each = clist_next(each))
            size += decodedByEtpan(static_cast<struct mailmime*>(clist_content(each)));
    } else if (mime->mm_data.mm_message.mm_msg_mime != nullptr) {
        size = decodedByEtpan(mime->mm_data.mm_message.mm_msg_mime);
    }
    return size;
}

void BM_ParseByEtpan(benchmark::State& state) {
    std::size_t size = 0;
    for (auto _ : state) {
        size = 0;
        for (const auto& message : messages()) {
            std::size_t index = 0;
            struct mailmime* mime = nullptr;
            if (mailmime_parse(message.view().data(), message.size(), &index, &mime) != MAILIMF_NO_ERROR)
                continue;
            size += decodedByEtpan(mime);
            mailmime_free(mime);
        }
    }
    count(state, size);
}
BENCHMARK(BM_ParseByEtpan);
#endif

}  // namespace

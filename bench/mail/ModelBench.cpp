// The paths that every message of a listing takes: its header block, its date, its addresses.
#include <benchmark/benchmark.h>

#ifdef LORVALE_BENCH_GMIME
#include <gmime/gmime.h>
#endif

#include <cstring>
#include <string>
#include <vector>

#include "lorvale/message/addresses.h"
#include "mail/model/DateUtils.h"
#include "mail/model/HeaderDecoding.h"
#include "mail/model/HeaderEncoding.h"

namespace {

using namespace lorvale;

/// As a letter of a mailing list has them: 18 headers, most of them folded, three with encoded words.
constexpr std::string_view kBlock =
    "From anna@mail.example Thu Aug 22 12:46:23 2002\n"
    "Return-Path: <bounce-users@lists.example>\n"
    "Delivered-To: bert@localhost.example\n"
    "Received: from localhost (localhost [127.0.0.1])\n\tby mail.example (Postfix) with ESMTP id D03E543C36\n"
    "\tfor <bert@localhost>; Thu, 22 Aug 2002 07:36:16 -0400 (EDT)\n"
    "Received: from mail.example [127.0.0.1]\n\tby localhost with IMAP (fetchmail-5.9.0)\n"
    "\tfor bert@localhost (single-drop); Thu, 22 Aug 2002 12:36:16 +0100 (IST)\n"
    "Received: from lists.example ([66.187.233.211]) by\n    relay.example (8.11.6/8.11.6) with ESMTP id\n"
    "    g7MBYrZ04811 for <bert-users@relay.example>; Thu, 22 Aug 2002 12:34:53 +0100\n"
    "From: =?ISO-8859-1?Q?Anna_M=FCller?= <anna@mail.example>\n"
    "To: users@lists.example, \"Bert, the other\" <bert@relay.example>\n"
    "Cc: =?utf-8?B?Q2zDqW1lbnQ=?= <clement@mail.example>\n"
    "Subject: Re: [users] =?utf-8?Q?Ein_l=C3=A4ngerer_Betreff_mit_=C3=9Cmlauten?=\n"
    " =?utf-8?Q?_und_einer_Falte?=\n"
    "In-Reply-To: <13258.1030015585@mail.example>\n"
    "References: <1029945287.4797.TMDA@mail.example>\n    <1029882468.3116.TMDA@mail.example> "
    "<9627.1029933001@munnari.example>\n"
    "MIME-Version: 1.0\n"
    "Content-Type: text/plain; charset=us-ascii\n"
    "Message-ID: <13277.1030015920@mail.example>\n"
    "X-Loop: users@lists.example\n"
    "List-Help: <mailto:users-request@lists.example?subject=help>\n"
    "List-Subscribe: <https://lists.example/mailman/listinfo/users>,\n"
    "    <mailto:users-request@lists.example?subject=subscribe>\n"
    "Date: Thu, 22 Aug 2002 18:26:25 +0700\n\n";

void countBytes(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
    state.SetItemsProcessed(state.iterations());
}

void BM_CopyHeaderBlock(benchmark::State& state) {
    std::string copy(kBlock.size(), '\0');
    for (auto _ : state) {
        std::memcpy(copy.data(), kBlock.data(), kBlock.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
    countBytes(state, kBlock.size());
}
BENCHMARK(BM_CopyHeaderBlock);

void decodeBlock(benchmark::State& state, MailDialect dialect) {
    for (auto _ : state) {
        HeaderDictionary headers;
        HeaderOrder order;
        OriginalKeys originalKeys;
        decodeHeaderBlock(kBlock, headers, order, originalKeys, dialect);
        if (order.size() != 19) state.SkipWithError("wrong count of headers");
    }
    countBytes(state, kBlock.size());
}
BENCHMARK_CAPTURE(decodeBlock, classic, MailDialect::classic);
BENCHMARK_CAPTURE(decodeBlock, standard, MailDialect::standard);

void cachedHeaders(benchmark::State& state, MailDialect dialect) {
    for (auto _ : state) {
        if (cachedHeadersInBlock(kBlock, dialect).size() != 3) state.SkipWithError("wrong count of headers");
    }
    countBytes(state, kBlock.size());
}
BENCHMARK_CAPTURE(cachedHeaders, classic, MailDialect::classic);
BENCHMARK_CAPTURE(cachedHeaders, standard, MailDialect::standard);

#ifdef LORVALE_BENCH_GMIME
/// GMime keeps the bytes of a value until it is asked for its text, so it is asked for each.
void BM_GMimeReadsHeaderBlock(benchmark::State& state) {
    g_mime_init();
    const auto block = kBlock.substr(kBlock.find('\n') + 1);
    for (auto _ : state) {
        auto* const stream = g_mime_stream_mem_new_with_buffer(block.data(), block.size());
        auto* const parser = g_mime_parser_new_with_stream(stream);
        auto* const message = g_mime_parser_construct_message(parser, nullptr);
        auto* const headers = g_mime_object_get_header_list(GMIME_OBJECT(message));
        const int count = g_mime_header_list_get_count(headers);
        if (count < 15) state.SkipWithError("wrong count of headers");
        for (int i = 0; i < count; ++i)
            benchmark::DoNotOptimize(g_mime_header_get_value(g_mime_header_list_get_header_at(headers, i)));
        g_object_unref(message);
        g_object_unref(parser);
        g_object_unref(stream);
    }
    countBytes(state, block.size());
}
BENCHMARK(BM_GMimeReadsHeaderBlock);
#endif

void BM_EncodeHeaderBlock(benchmark::State& state) {
    HeaderDictionary headers;
    HeaderOrder order;
    OriginalKeys originalKeys;
    decodeHeaderBlock(kBlock, headers, order, originalKeys);
    std::size_t size = 0;
    for (auto _ : state) size = encodeHeaderBlock(headers, order, originalKeys, EnvelopeLine::write).size();
    countBytes(state, size);
}
BENCHMARK(BM_EncodeHeaderBlock);

/// One date over and over, so that its format stands in front, or none fits.
void readDate(benchmark::State& state, std::string_view text) {
    for (auto _ : state) {
        if (!dateInCommonFormatsWithString(text)) state.SkipWithError("not read");
    }
    countBytes(state, text.size());
}
BENCHMARK_CAPTURE(readDate, usual, "Thu, 22 Aug 2002 18:26:25 +0700");
BENCHMARK_CAPTURE(readDate, zoneName, "Thu, 22 Aug 2002 18:26:25 GMT");
BENCHMARK_CAPTURE(readDate, envelope, "Thu Aug 22 12:46:23 2002");
BENCHMARK_CAPTURE(readDate, tolerant, "Thu, 22 Aug 2002 18:26:25 -0400 (EDT)");

void BM_TolerantReaderAlone(benchmark::State& state) {
    for (auto _ : state) {
        if (!dateInTolerantForm("Thu, 22 Aug 2002 18:26:25 -0400 (EDT)")) state.SkipWithError("not read");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TolerantReaderAlone);

constexpr std::string_view kAddress = "\"Anna M\xC3\xBCller\" (at home) <anna.mueller@mail.example>";

void BM_UncommentedAddress(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(uncommentedAddress(kAddress));
    countBytes(state, kAddress.size());
}
BENCHMARK(BM_UncommentedAddress);

void BM_AddressComment(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(addressComment(kAddress));
    countBytes(state, kAddress.size());
}
BENCHMARK(BM_AddressComment);

void BM_AddressList(benchmark::State& state) {
    std::string list;
    for (int i = 0; i < 100; ++i) list += std::string(kAddress) + ", ";
    for (auto _ : state) {
        if (addressList(list)->size() != 100) state.SkipWithError("wrong count of addresses");
    }
    countBytes(state, list.size());
}
BENCHMARK(BM_AddressList);

}  // namespace

// Documents to attributed text, and RTF back.  HTML beside the parser under it, which makes no text.
#include <benchmark/benchmark.h>
#include <libxml/HTMLparser.h>

#include <string>

#include "lorvale/values/rich_text.h"
#include "mail/mime/EnrichedReader.h"

namespace lorvale {
namespace {

constexpr std::size_t kSize = 4 << 20;

std::string filled(std::string begin, std::string_view piece, std::string_view end) {
    while (begin.size() < kSize) begin += piece;
    return begin.append(end);
}

/// As letters have it; 1: as programs write them, with more markup than text.
std::string page(std::int64_t kind) {
    return kind == 0
               ? filled("<html><body>",
                        "<p>A paragraph of a letter with a few words in <b>bold</b>, and a "
                        "<a href=\"http://news.example/read?id=12345\">link to read more</a> about it.</p>\n",
                        "</body></html>")
               : filled("<html><body>",
                        "<table cellpadding=\"0\"><tr><td style=\"font-family:Arial;font-size:14px;"
                        "color:#333333\" align=\"left\"><span "
                        "style=\"font-weight:bold\">Word</span>&nbsp;</td></tr></table>\n",
                        "</body></html>");
}

std::string rtf(std::int64_t kind) {
    const std::string head =
        "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0 Times;}{\\f1 "
        "Courier;}}{\\colortbl;\\red255\\green0\\blue0;}\n";
    return kind == 0 ? filled(head,
                              "\\pard\\f0\\fs24 A paragraph of a letter with a few words in \\b bold\\b0 , and "
                              "some that are not.\\par\n",
                              "}")
                     : filled(head, "{\\f1\\b a}{\\cf1\\i \\'e9\\u8364?}", "}");
}

void setBytes(benchmark::State& state, const std::string& text) {
    state.SetBytesProcessed(state.iterations() * std::ssize(text));
}

void BM_ReadHtml(benchmark::State& state) {
    const auto html = page(state.range(0));
    for (auto _ : state)
        if (attributedTextFromHTML(Data::ofStatic(html), "utf-8").empty()) state.SkipWithError("no text");
    setBytes(state, html);
}
BENCHMARK(BM_ReadHtml)->Arg(0)->Arg(1)->ArgName("markup")->Unit(benchmark::kMillisecond);

/// libxml2 alone, telling of tags to nobody.
void BM_ParseHtml(benchmark::State& state) {
    const auto html = page(state.range(0));
    for (auto _ : state) {
        auto* const parser = ::htmlCreateMemoryParserCtxt(html.data(), static_cast<int>(html.size()));
        *parser->sax = htmlSAXHandler{};
        ::htmlParseDocument(parser);
        ::htmlFreeParserCtxt(parser);
    }
    setBytes(state, html);
}
BENCHMARK(BM_ParseHtml)->Arg(0)->Arg(1)->ArgName("markup")->Unit(benchmark::kMillisecond);

/// libxml2 making its tree.
void BM_ParseHtmlToTree(benchmark::State& state) {
    const auto html = page(state.range(0));
    for (auto _ : state) {
        auto* const tree =
            ::htmlReadMemory(html.data(), static_cast<int>(html.size()), nullptr, "UTF-8",
                             HTML_PARSE_RECOVER | HTML_PARSE_NONET | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING);
        if (tree == nullptr) state.SkipWithError("no tree");
        ::xmlFreeDoc(tree);
    }
    setBytes(state, html);
}
BENCHMARK(BM_ParseHtmlToTree)->Arg(0)->Arg(1)->ArgName("markup")->Unit(benchmark::kMillisecond);

void BM_ReadRtf(benchmark::State& state) {
    const auto document = rtf(state.range(0));
    for (auto _ : state)
        if (attributedTextFromRTF(Data::ofStatic(document)).empty()) state.SkipWithError("no text");
    setBytes(state, document);
}
BENCHMARK(BM_ReadRtf)->Arg(0)->Arg(1)->ArgName("markup")->Unit(benchmark::kMillisecond);

void BM_WriteRtf(benchmark::State& state) {
    const auto text = attributedTextFromRTF(Data(rtf(state.range(0))));
    std::size_t size = 0;
    for (auto _ : state) size = rtfFromAttributedText(text).size();
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}
BENCHMARK(BM_WriteRtf)->Arg(0)->Arg(1)->ArgName("markup")->Unit(benchmark::kMillisecond);

void BM_ReadEnriched(benchmark::State& state) {
    const auto text =
        state.range(0) == 0
            ? filled("", "A paragraph of a letter with a few words in <bold>bold</bold>,\nand more.\n\n", "")
            : filled("", "<bold>a</bold><color><param>red</param>b</color>", "");
    for (auto _ : state)
        if (attributedStringFromMimeEnrichedString(text).empty()) state.SkipWithError("no text");
    setBytes(state, text);
}
BENCHMARK(BM_ReadEnriched)->Arg(0)->Arg(1)->ArgName("markup")->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace lorvale

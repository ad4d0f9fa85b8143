#include <libxml/HTMLparser.h>
#include <libxml/parserInternals.h>

#include <exception>
#include <limits>
#include <memory>

#include "base/richtext/HtmlReader.h"
#include "base/richtext/HtmlSource.h"

// libxml2 tells of tags and text one by one, and the text is put together from that; no tree is made, and
// nothing outside of the page is ever looked at.

namespace lorvale {

namespace {

struct FreeParser {
    void operator()(htmlParserCtxtPtr parser) const { ::htmlFreeParserCtxt(parser); }
};
using Parser = std::unique_ptr<htmlParserCtxt, FreeParser>;

/// What the parser's calls come with.
struct Parsing {
    HtmlReader reader;
    htmlParserCtxtPtr parser = nullptr;
    std::exception_ptr failure;

    /// No exception passes through the parser, which is C: the first one stops it and is thrown behind it.
    template <class Call>
    void run(Call call) {
        if (failure) return;
        try {
            call();
        } catch (...) {
            failure = std::current_exception();
            ::xmlStopParser(parser);
        }
    }

    void open(std::string_view name, const xmlChar** attributes) {
        reader.open(name, HtmlAttributes(attributes));
        if (static_cast<std::size_t>(parser->nameNr) <= HtmlReader::kDeepest) return;
        // For the end of each element the parser looks through all that are open, so a page of many that nobody
        // closes would take for ever.  The deepest are closed at once; what is in them is read like any text.
        reader.close();
        parser->name = --parser->nameNr > 0 ? parser->nameTab[parser->nameNr - 1] : nullptr;
    }
};

Parsing& parsing(void* context) {
    return *static_cast<Parsing*>(context);
}
std::string_view view(const xmlChar* name) {
    return reinterpret_cast<const char*>(name);
}

void addText(void* context, const xmlChar* text, int length) {
    const std::string_view utf8(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length));
    parsing(context).run([&] { parsing(context).reader.addText(utf8); });
}

htmlSAXHandler handler() {
    htmlSAXHandler calls{};
    calls.startElement = [](void* context, const xmlChar* name, const xmlChar** attributes) {
        parsing(context).run([&] { parsing(context).open(view(name), attributes); });
    };
    calls.endElement = [](void* context, const xmlChar*) {
        parsing(context).run([&] { parsing(context).reader.close(); });
    };
    calls.characters = addText;
    calls.ignorableWhitespace = addText;
    calls.cdataBlock = addText;  // scripts and style sheets, whose elements are hidden
    return calls;
}

}  // namespace

AttributedText attributedTextFromHTML(const Data& html, std::optional<std::string_view> charset,
                                      const AttachmentSource& pictures) {
    [[maybe_unused]] static const bool isSetUp = (::xmlInitParser(), true);
    auto text = textOfHtml(html, charset);
    // The parser counts bytes in an int.
    constexpr std::size_t kMost = std::numeric_limits<int>::max() / 2;
    if (text.size() > kMost) text.resize(kMost);
    const Parser parser(::htmlCreateMemoryParserCtxt(text.data(), static_cast<int>(text.size())));
    if (parser == nullptr) return AttributedText();  // so does it for an empty page
    Parsing state{HtmlReader(pictures), parser.get(), nullptr};
    *parser->sax = handler();
    parser->userData = &state;
    ::htmlCtxtUseOptions(parser.get(), HTML_PARSE_RECOVER | HTML_PARSE_NONET | HTML_PARSE_NOERROR |
                                           HTML_PARSE_NOWARNING | HTML_PARSE_NOIMPLIED | HTML_PARSE_IGNORE_ENC);
    ::xmlSwitchEncoding(parser.get(), XML_CHAR_ENCODING_UTF8);  // it would take the bytes for Latin 1
    ::htmlParseDocument(parser.get());
    if (state.failure) std::rethrow_exception(state.failure);
    return state.reader.take();
}

}  // namespace lorvale

#include "fuzz/FuzzTarget.h"
#include "lorvale/platform/exception.h"
#include "mail/mime/EnrichedReader.h"
#include "mail/mime/EnrichedWriter.h"

// What was read from enriched text, written and read again, is the same text; and from then on it is written
// the same.  In classic letters colours fade, and names of fonts with brackets grow.

namespace {

using namespace lorvale;

AttributedText asClassicKeeps(const AttributedText& text) {
    AttributedText kept;
    for (const auto& run : text.runs()) {
        auto attributes = run.attributes;
        attributes.foregroundColor.reset();
        if (attributes.font && attributes.font->family.find_first_of("<>") != std::string::npos)
            attributes.font->family = Font::user().family;
        kept.append(run.text, attributes);
    }
    return kept;
}

}  // namespace

LORVALE_FUZZ_TARGET(input) {
    AttributedText text;
    try {
        text = attributedStringFromMimeEnrichedString(input);
    } catch (const NamedException&) {
        return;  // a command that is refused
    }
    for (const auto dialect : {MailDialect::standard, MailDialect::classic}) {
        if (dialect == MailDialect::classic) text = asClassicKeeps(text);
        const auto once = attributedStringFromMimeEnrichedString(enrichedString(text, dialect));
        if (once.string() != text.string()) std::abort();
        const auto written = enrichedString(once, dialect);
        if (enrichedString(attributedStringFromMimeEnrichedString(written), dialect) != written) std::abort();
    }
}

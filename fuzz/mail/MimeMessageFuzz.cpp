// A message becomes text in both dialects, whatever it holds, and the same text each time.  Parts lie inside
// what they are parts of, no two share bytes, and every part has a name that can be a file's.
#include "fuzz/FuzzTarget.h"
#include "lorvale/body.h"
#include "lorvale/platform/exception.h"
#include "mail/mime/TextBlocks.h"

using namespace lorvale;

namespace {

/// Answers how many bytes of the message its leaves take.
std::size_t requireSoundTree(MimeBodyPart& part) {
    fuzz::require(FileWrapper::isFilename(part.filename()));
    const auto* const children = part.bodyParts();
    const auto own = part.encodedBodyData().value_or(Data()).size();
    if (children == nullptr) return own;
    std::size_t taken = 0;
    for (const auto& child : *children) taken += requireSoundTree(*child);
    // A classic multipart is divided behind its transfer encoding, as a message in a message is.
    if (part.isMultipart() && part.dialect() == MailDialect::standard) fuzz::require(taken <= own);
    return own;
}

AttributedText textIn(const Data& message, MailDialect dialect) {
    const auto part = MimeBodyPart::bodyPartWithData(message, dialect);
    if (!part) return {};
    requireSoundTree(*part);
    auto text = part->decodeBodyPartInDirectory(std::nullopt);
    for (const auto& file : text.attachments()) fuzz::require(FileWrapper::isFilename(file->filename()));
    part->flushCachedData();
    part->decodeBodyPartInDirectory(std::nullopt);
    return text;
}

void requireTextAndBlocksInOrder(const Data& text) {
    std::size_t at = 0;
    for (const auto& block : blocksInText(text)) {
        fuzz::require(block.start >= at && block.end > block.start && block.end <= text.size());
        at = block.end;
    }
}

}  // namespace

LORVALE_FUZZ_TARGET(input) {
    const auto message = Data::copyOf(input);
    requireTextAndBlocksInOrder(message);
    for (const auto dialect : {MailDialect::classic, MailDialect::standard}) {
        try {
            fuzz::require(textIn(message, dialect).string() == textIn(message, dialect).string());
        } catch (const RangeException&) {
            fuzz::require(dialect == MailDialect::classic);  // a type that ends in white space
        }
    }
}

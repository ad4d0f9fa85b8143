#include <memory>

#include "fuzz/FuzzTarget.h"
#include "lorvale/body.h"
#include "lorvale/mime.h"
#include "lorvale/platform/exception.h"
#include "lorvale/values/file_wrapper.h"
#include "lorvale/values/text.h"

// Any attributed text becomes a letter, and reading that gives the text and the files back.  Classic readers
// have rules of their own for names and markup, so that there only plain text has to come back.

namespace {

using namespace lorvale;

/// Pieces of text and files: a byte says what comes and how it looks, the bytes up to the next zero are it.
AttributedText textFrom(std::string_view input) {
    AttributedText text;
    while (!input.empty()) {
        const auto look = static_cast<unsigned>(static_cast<std::uint8_t>(input.front()));
        input.remove_prefix(1);
        const auto piece = input.substr(0, input.find('\0'));
        input.remove_prefix(std::min(piece.size() + 1, input.size()));
        if ((look & 0x80U) != 0) {
            auto file =
                (look & 0x40U) != 0 ? FileWrapper::directory() : FileWrapper::regularFile(Data::copyOf(piece));
            if (file->setPreferredFilename(piece.substr(0, 40))) text.append(AttributedText(file));
            continue;
        }
        TextAttributes attributes;
        if ((look & 1U) != 0) attributes.font.emplace(Font::user()).bold = true;
        if ((look & 2U) != 0) attributes.foregroundColor = Color{1, 0, 0, 1};
        if ((look & 4U) != 0) attributes.underline = 1;
        if ((look & 8U) != 0) attributes.link = std::string(piece);
        if ((look & 16U) != 0)
            attributes.paragraphStyle.emplace().alignment = ParagraphStyle::Alignment::center;
        text.append(piece, attributes);
    }
    return text;
}

/// What a letter keeps of a text: a page has no controls, and begins and ends with its words; line ends are one
/// kind; a reader puts files on lines of their own.
std::string essence(const AttributedText& text) {
    AttributedText alone(text);
    alone.removeAllAttachments();
    std::string words;
    for (const char c : alone.string())
        if (static_cast<std::uint8_t>(c) > ' ' && c != '\x7F') words += c;
    return words;
}

std::vector<std::string> contents(const AttributedText& text) {
    std::vector<std::string> all;
    for (const auto& file : text.attachments())
        if (file->kind() == FileWrapper::Kind::regularFile)
            all.push_back(file->regularFileContents().toString());
    std::ranges::sort(all);
    return all;
}

/// Characters that no page can hold; the reader of pages leaves them out or takes them for others.
bool fitsAPage(std::string_view text) {
    while (!text.empty()) {
        const auto c = nextCodePoint(text);
        if ((c >= 0x7F && c < 0xA0) || (c & 0xFFFE) == 0xFFFE || (c >= 0xFDD0 && c <= 0xFDEF) || c == 0)
            return false;
    }
    return true;
}

}  // namespace

LORVALE_FUZZ_TARGET(input) {
    const auto text = textFrom(input);
    for (const auto dialect : {MailDialect::standard, MailDialect::classic}) {
        const auto part = MimeBodyPart::bodyPartFromAttributedString(text, dialect);
        ByteBuffer letter;
        part->appendToData(letter);
        const auto data = letter.data();
        std::shared_ptr<MimeBodyPart> read;
        try {
            read = MimeBodyPart::bodyPartWithData(data, dialect);
        } catch (const RangeException&) {
            fuzz::require(dialect == MailDialect::classic);  // the name of a file ends in a blank
            continue;
        }
        fuzz::require(read != nullptr && read->mimeType() == part->mimeType());
        const auto back = read->decodeBodyPartInDirectory(std::nullopt);
        if (dialect == MailDialect::classic) {
            fuzz::require(part->mimeSubtype() != "plain" || !text.attachments().empty() ||
                          back.string() == text.string());
            continue;
        }
        for (const auto line : split(data.view(), '\n')) fuzz::require(line.size() <= 998);
        fuzz::require(!fitsAPage(text.string()) || essence(back) == essence(text));
        auto archived = contents(back);
        for (const auto& each : contents(text)) {
            const auto found = std::ranges::find(archived, each);
            fuzz::require(found != archived.end());
            archived.erase(found);
        }
    }
}

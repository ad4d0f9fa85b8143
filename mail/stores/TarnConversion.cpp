#include "mail/stores/TarnConversion.h"

#include <algorithm>
#include <exception>

#include "base/files/PathUtils.h"
#include "base/text/Ascii.h"
#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/model/HeaderDecoding.h"

namespace lorvale {

namespace {

/// Without the headers that told of the document, and with one that tells where it is now.
std::string headerReferringTo(std::string_view name, std::string_view header) {
    constexpr std::string_view kGone[] = {"tarn-attachment", "tarn-reference", "content-type"};
    std::string kept;
    bool goes = false;
    while (!header.empty() && header.front() != '\n') {
        const auto line = header.substr(0, std::min(header.find('\n'), header.size() - 1) + 1);
        header.remove_prefix(line.size());
        if (!isAsciiBlank(line.front())) {
            const auto key = trimmed(line.substr(0, line.find(':')));
            goes = std::ranges::any_of(kGone, [&](auto each) { return equalIgnoringAsciiCase(each, key); });
        }
        if (!goes) kept += line;
    }
    return kept + formatText("Tarn-Reference: %@, 1/1\n\n", name);
}

/// Where the document of a message lies now; nullopt, with nothing left behind, where it cannot be laid out.
std::optional<std::string> laidOut(TarnMailBody& body, const std::string& mailbox) {
    const auto text = body.decodeBodyIntoDirectory(mailbox);
    auto directory = body.attachmentDirectory();
    body.setAttachmentDirectory(std::nullopt);
    if (!text || !directory) return std::nullopt;
    const auto has = [&](std::string_view name) {
        return pathExists(stringByAppendingPathComponent(*directory, name));
    };
    // A text that says that the document is missing must not take the place of what may still hold it.
    if (has("TXT.rtf") || has("index.rtf")) return directory;
    deletePath(*directory);
    return std::nullopt;
}

}  // namespace

std::optional<AppendableBytes> convertedForMailbox(const std::shared_ptr<Message>& message,
                                                   const std::string& mailbox) {
    constexpr std::string_view kOfThisFormat[] = {"tarn-attachment", "tarn-reference"};
    const auto came = message->headers()->encodedHeaders();
    if (!came) return std::nullopt;
    const auto values = firstValuesInBlock(came->view(), kOfThisFormat);
    if (std::ranges::none_of(values, [](const auto& value) { return value.has_value(); })) return std::nullopt;
    try {
        const auto body = std::dynamic_pointer_cast<TarnMailBody>(message->messageBody());
        if (body == nullptr) return std::nullopt;
        message->headers()->appendFromSpaceIfMissing();
        const auto header = message->headers()->encodedHeaders();
        const auto directory = header ? laidOut(*body, mailbox) : std::nullopt;
        if (directory) {
            return AppendableBytes{
                Data::copyOf(headerReferringTo(lastPathComponent(*directory), header->view())),
                Data::ofStatic("\n")};
        }
        log("failed to convert message\n%@", message->description());
    } catch (const std::exception& exception) {
        log("failed to convert message\n%@\n(%@)", message->description(), exception.what());
    }
    return std::nullopt;
}

}  // namespace lorvale

#include "mail/mime/Alternatives.h"

#include <algorithm>
#include <array>

#include "lorvale/mime.h"
#include "mail/mime/BodyText.h"

namespace lorvale {

namespace {

using Names = std::span<const std::string_view>;

bool isOneOf(const std::optional<std::string>& name, Names names) {
    return name && std::ranges::any_of(names, [&](std::string_view each) { return isKeyEqual(*name, each); });
}

constexpr auto kRichTypes = std::to_array<std::string_view>({"plain", "html", "enriched", "richtext", "rtf"});

/// Kinds of messages that are text for people, or nearly.
constexpr auto kReadableMessages = std::to_array<std::string_view>(
    {"rfc822", "global", "news", "partial", "delivery-status", "global-delivery-status", "feedback-report",
     "disposition-notification", "global-disposition-notification"});

/// Whether the text was written to be read here, which a calendar or some other data as text is not.
bool isMeantForReading(MimeBodyPart& part) {
    if (part.isMultipart()) {
        const auto* const children = part.bodyParts();
        return children != nullptr &&
               std::ranges::any_of(*children, [](const auto& child) { return isMeantForReading(*child); });
    }
    return part.isText() && isOneOf(part.mimeSubtype(), kRichTypes) && !part.isAttachment();
}

bool isClassicAttachment(const MimeBodyPart& part) {
    constexpr auto kShownMessages = std::to_array<std::string_view>({"rfc822", "partial"});
    const auto isOfType = [&](std::string_view type) {
        return part.mimeType() && isKeyEqual(*part.mimeType(), type);
    };
    const auto hasSubtype = [&](std::string_view subtype) {
        return part.mimeSubtype() && isKeyEqual(*part.mimeSubtype(), subtype);
    };
    if (!part.mimeType()) return false;
    if (isOfType("multipart")) return hasSubtype("folder");
    if (isOfType("text")) return part.mimeParameterForKey("name") && !inlinesTextAttachments();
    if (isOfType("message")) return !isOneOf(part.mimeSubtype(), kShownMessages);
    return !(isOfType("application") && hasSubtype("rtf") && inlinesTextAttachments());
}

}  // namespace

bool MimeBodyPart::isAttachment() const {
    if (_dialect == MailDialect::classic) return isClassicAttachment(*this);
    if (isMultipart()) return false;
    if (_disposition == ContentDisposition::attachment) return true;
    if (isKeyEqual(*_mimeType, "message")) return !isOneOf(_mimeSubtype, kReadableMessages);
    const bool isRTF = isKeyEqual(*_mimeType, "application") && isKeyEqual(*_mimeSubtype, "rtf");
    if (!isText()) return !(isRTF && inlinesTextAttachments());
    // Text that has a name and does not say where it belongs.  A calendar has one for programs that keep it.
    return _disposition == ContentDisposition::none && !isKeyEqual(*_mimeSubtype, "calendar") &&
           givenFilename() && !inlinesTextAttachments();
}

bool canBeShown(MimeBodyPart& part) {
    if (!part.isMultipart()) return !part.isAttachment();
    const auto* const children = part.bodyParts();
    return children != nullptr &&
           std::ranges::any_of(*children, [](const auto& child) { return canBeShown(*child); });
}

std::shared_ptr<MimeBodyPart> bestAlternative(const MimeBodyPart::Parts& children) {
    for (const auto isGood : {isMeantForReading, canBeShown}) {
        const auto best = std::ranges::find_if(children.rbegin(), children.rend(),
                                               [&](const auto& child) { return isGood(*child); });
        if (best != children.rend()) return *best;
    }
    return children.back();
}

}  // namespace lorvale

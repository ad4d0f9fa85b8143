#include "mail/stores/TOCMessage.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <utility>

#include "lorvale/message/addresses.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/model/HeaderDecoding.h"
#include "mail/model/HeaderSummary.h"

namespace lorvale {

namespace {

constexpr int kNoon = 12;

/// Text as a table holds it: in the default C string encoding, and without the byte that would end it early.
std::string asStored(std::string text) {
    std::erase(text, '\0');
    return isAscii(text) ? text : decodeCString(encodeCString(text).view());
}

std::string_view beforeComma(std::string_view text) {
    return text.substr(0, text.find(','));
}

/// Type and subtype of a "Content-Type:", in lower case and without blanks; what is missing is empty.
struct MajorType {
    explicit MajorType(std::string_view value) {
        value = value.substr(0, value.find_first_of(";("));
        const auto slash = value.find('/');
        type = asciiLowered(trimmed(value.substr(0, slash)));
        if (slash != std::string_view::npos) subtype = asciiLowered(trimmed(value.substr(slash + 1)));
        // "text/x-html" was the name before there was one.
        for (auto* const word : {&type, &subtype})
            if (word->starts_with("x-")) word->erase(0, 2);
    }
    std::string type, subtype;
};

char refStateOfMime(const std::optional<std::string>& contentType) {
    if (!contentType) return ReferenceState::plain;
    const MajorType major(*contentType);
    if (major.subtype == "enriched" && (major.type == "text" || major.type.empty()))
        return ReferenceState::mime;
    if (major.type.empty() || major.subtype.empty()) return ReferenceState::plain;
    if (major.type != "text") return ReferenceState::mime;
    return major.subtype == "html" ? ReferenceState::html : ReferenceState::plain;
}

KeptTOCRecord recordOf(const TOCListing& listing, MboxRange range) {
    const auto sender = encodeCString(listing.sender), subject = encodeCString(listing.subject),
               attachment = encodeCString(listing.attachment);
    return KeptTOCRecord(TOCRecord{range, ' ', listing.refState, sender.view(), subject.view(),
                                   attachment.view(), TOCTime::of(listing.date)});
}

std::string textOf(std::string_view stored) {
    return isAscii(stored) ? std::string(stored) : decodeCString(stored);
}

void appendText(std::string& text, std::string_view stored) {
    if (isAscii(stored)) {
        text.append(stored);
    } else {
        text.append(decodeCString(stored));
    }
}

void appendSeconds(std::string& identifier, const Date& date) {
    std::array<char, 24> digits;
    const auto* const end =
        std::to_chars(digits.data(), digits.data() + digits.size(), date.secondsSince1970()).ptr;
    identifier.append(digits.data(), static_cast<std::size_t>(end - digits.data()));
}

}  // namespace

Date listedDate(const Date& date) {
    const auto seconds = date.secondsSince1970();
    if (seconds > 0 && seconds <= std::numeric_limits<std::uint32_t>::max()) return Date(seconds);
    auto day = civilTime(date.inLocalZone());
    if (day.year < 0) day = {.year = 0};
    return dateFromTocInt(static_cast<std::uint32_t>(day.year * 512 + day.month * 32 + day.day))
        .value_or(Date());
}

std::uint32_t tocSillyDateInt(const Date& date) {
    const auto day = civilTime(date.inLocalZone());
    // No place for years before our era; those are no dates of mail.
    return static_cast<std::uint32_t>(std::max(day.year, 0) * 512 + day.month * 32 + day.day);
}

bool isTocDay(std::uint32_t number) {
    const auto day = number & 31, month = number >> 5 & 15, year = number >> 9;
    return day >= 1 && month >= 1 && month <= 12 && year < 10'000;
}

std::optional<Date> dateFromTocInt(std::uint32_t number) {
    if (!isTocDay(number)) return std::nullopt;
    const auto day = static_cast<int>(number & 31), month = static_cast<int>(number >> 5 & 15);
    CivilTime noon{.year = static_cast<int>(number >> 9), .month = month, .hour = kNoon};
    // A 31st of a shorter month is a day of the next one.
    noon.day = std::min(day, daysInMonth(noon.year, month));
    const auto date = dateFromLocalCivil(noon);
    if (!date) return std::nullopt;
    return Date(date->secondsSince1970() + (day - noon.day) * 86'400, date->zoneOffset());
}

TOCListing TOCListing::ofHeaderBlock(std::string_view block) {
    constexpr std::string_view kWanted[] = {"tarn-reference", "tarn-attachment", "mime-reference",
                                            "content-type"};
    const auto values = firstValuesInBlock(block, kWanted);
    const auto& [tarnReference, tarnAttachment, mimeReference, contentType] =
        std::tie(values[0], values[1], values[2], values[3]);
    auto summary = summaryOfHeaderBlock(block);
    TOCListing listing;
    if (tarnReference || tarnAttachment) {
        listing.refState = ReferenceState::tarn;
        listing.attachment = asStored(std::string(beforeComma(tarnReference.value_or(""))));
    } else {
        listing.refState = refStateOfMime(contentType);
        listing.attachment = asStored(mimeReference.value_or(""));
    }
    listing.date = listedDate(summary.dateReceived.value_or(Date::now()));
    if (!summary.to.empty() && isMyAddress(summary.from))
        summary.from = formatText("(To: %@)", addressComment(summary.to));
    listing.sender = asStored(std::move(summary.from));
    listing.subject = asStored(std::move(summary.subject));
    return listing;
}

TOCMessage::TOCMessage(MboxRange range, const TOCListing& listing)
    : _mboxRange(std::bit_cast<std::uint64_t>(range)), _listing(recordOf(listing, range)) {}

TOCMessage::TOCMessage(const TOCRecord& record, KeptTOCRecord kept)
    : _status(statusOf(record.status)),
      _mboxRange(std::bit_cast<std::uint64_t>(record.range)),
      _listing(std::move(kept)) {}

std::shared_ptr<TOCMessage> TOCMessage::TOCMessageFromMessage(Message& message) {
    const auto block = message.headers()->encodedHeaders();
    if (!block) return nullptr;
    const auto* const placed = dynamic_cast<const TOCMessage*>(&message);
    auto listed = std::make_shared<TOCMessage>(placed != nullptr ? placed->mboxRange() : MboxRange(),
                                               TOCListing::ofHeaderBlock(block->view()));
    const auto flags = message.currentFlags();
    listed->setIsRead(flags->isRead());
    listed->setIsDeleted(flags->isDeleted());
    return listed;
}

std::string TOCMessage::messageIDForSender(std::string_view sender, std::string_view subject,
                                           const Date& date) {
    auto identifier = formatText("%@_%@_", sender, subject);
    appendSeconds(identifier, date);
    return identifier;
}

CachedHeaders TOCMessage::listing() const {
    if (!isListed()) return {};
    const auto record = _listing.read();
    return CachedHeaders::ofListing(textOf(record.subject), textOf(record.sender), record.time.date());
}

std::string TOCMessage::sender() const {
    return textOf(_listing.read().sender);
}

std::string TOCMessage::subject() const {
    return textOf(_listing.read().subject);
}

Date TOCMessage::dateReceived() const {
    return isListed() ? _listing.read().time.date() : Date();
}

std::string TOCMessage::attachment() const {
    return textOf(_listing.read().attachment);
}

TOCRecord TOCMessage::record() const {
    auto record = _listing.read();
    record.range = mboxRange();
    record.status = isDeleted() ? 'd' : isRead() ? ' ' : '*';
    record.time = TOCTime::of(dateReceived());
    return record;
}

std::string TOCMessage::messageID() {
    std::string identifier;
    putMessageID(identifier);
    return identifier;
}

void TOCMessage::putMessageID(std::string& into) {
    if (!isListed()) {
        into = Message::messageID();
        return;
    }
    const auto record = _listing.read();
    into.clear();
    appendText(into, record.sender);
    into.push_back('_');
    appendText(into, record.subject);
    into.push_back('_');
    appendSeconds(into, record.time.date());
}

TOCMessage::IDShape TOCMessage::shapeOfID() const {
    const auto lengthOf = [](std::string_view stored) {
        return isAscii(stored) ? stored.size() : decodeCString(stored).size();
    };
    const auto record = _listing.read();
    return {record.time.date().secondsSince1970(), lengthOf(record.sender) + lengthOf(record.subject) + 2};
}

std::optional<std::string> TOCMessage::messageTypeImageName() const {
    switch (refState()) {
        case ReferenceState::tarn:
        case ReferenceState::rich:
            return "nm";
        case ReferenceState::mime:
            return "mime";
        case ReferenceState::html:
            return "html";
        default:
            return Message::messageTypeImageName();
    }
}

std::string_view TOCMessage::typeDescription() const {
    switch (refState()) {
        case ReferenceState::rich:
            return "Rich Tarnmail";
        case ReferenceState::voice:
            return "Tarn Voicemail";
        case ReferenceState::mime:
            return "Rich MIME";
        case ReferenceState::html:
            return "HTML MIME";
        default:
            return "Plain text";
    }
}

std::string TOCMessage::description() {
    return formatText("%@%@\n", Message::description(), typeDescription());
}

}  // namespace lorvale

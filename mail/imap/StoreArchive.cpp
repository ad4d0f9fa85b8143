#include "mail/imap/StoreArchive.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <vector>

#include "base/text/Ascii.h"
#include "base/text/Crc32.h"
#include "lorvale/imap/message.h"
#include "lorvale/message.h"
#include "lorvale/values/format.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

namespace {

constexpr std::string_view kMagic = "LvIM";
constexpr std::uint32_t kVersion = 2;
constexpr std::size_t kHeaderSize = 12;

enum HeaderBit : std::uint32_t { hasSender = 1, hasSubject = 2, hasDate = 4, allHeaderBits = 7 };

class Writer {
public:
    std::string bytes;

    void number(std::uint64_t value, int size = 4) {
        while (size-- > 0) bytes += static_cast<char>(value >> (8 * size));
    }
    void text(std::string_view value) {
        number(value.size());
        bytes += value;
    }
};

/// Goes on with zeros and empty texts behind the end, and remembers that.
class Reader {
public:
    explicit Reader(std::string_view bytes) : _rest(bytes) {}

    bool isGood() const { return _isGood; }
    bool atEnd() const { return _rest.empty(); }
    void fail() { _isGood = false; }

    std::uint64_t number(std::size_t size = 4) {
        std::uint64_t value = 0;
        for (const char c : take(size)) value = value << 8 | static_cast<std::uint8_t>(c);
        return value;
    }
    std::uint32_t word() { return static_cast<std::uint32_t>(number()); }
    std::string_view text() { return take(word()); }

private:
    std::string_view take(std::size_t size) {
        if (size > _rest.size()) _isGood = false;
        if (!_isGood) return {};
        const auto taken = _rest.substr(0, size);
        _rest.remove_prefix(size);
        return taken;
    }

    std::string_view _rest;
    bool _isGood = true;
};

void writeHeaders(Writer& out, const CachedHeaders& headers) {
    const auto sender = headers.find("from"), subject = headers.find("subject"), date = headers.find("date");
    const auto* const moment = date ? std::get_if<Date>(&*date) : nullptr;
    out.number((sender ? hasSender : 0U) | (subject ? hasSubject : 0U) | (moment != nullptr ? hasDate : 0U));
    if (sender) out.text(headers.textForKey("from"));
    if (subject) out.text(headers.textForKey("subject"));
    if (moment == nullptr) return;
    out.number(static_cast<std::uint64_t>(moment->secondsSince1970()), 8);
    out.number(static_cast<std::uint32_t>(moment->zoneOffset()));
}

CachedHeaders readHeaders(Reader& in) {
    CachedHeaders headers;
    const auto bits = in.word();
    if (bits > allHeaderBits) in.fail();
    if ((bits & hasSender) != 0) headers.set("from", std::string(in.text()));
    if ((bits & hasSubject) != 0) headers.set("subject", std::string(in.text()));
    if ((bits & hasDate) == 0) return headers;
    const auto seconds = static_cast<std::int64_t>(in.number(8));
    headers.set("date", Date(seconds, static_cast<std::int32_t>(in.word())));
    return headers;
}

void writeFlags(Writer& out, MessageFlags& flags) {
    const auto archive = toPropertyList(flags);
    out.number(static_cast<std::uint64_t>(archive[1].integer()));
    out.number(static_cast<std::uint64_t>(archive[2].integer()));
    const auto* const named = archive[0].get<PropertyList::Dictionary>();
    out.number(named != nullptr ? named->size() + 1 : 0);
    if (named == nullptr) return;
    for (const auto& [name, value] : *named) {
        out.text(name);
        out.text(value.string());
    }
}

std::shared_ptr<MessageFlags> readFlags(Reader& in) {
    const auto bits = in.word(), priority = in.word(), named = in.word();
    auto flags = std::make_shared<MessageFlags>(bits, priority);
    if (named == 0) return flags;
    FlagDictionary dictionary;
    for (std::uint32_t i = 1; i < named && in.isGood(); ++i) {
        const auto name = in.text();
        dictionary.insert_or_assign(std::string(name), std::string(in.text()));
    }
    flags->setUserFlags(std::move(dictionary));
    return flags;
}

void writeMessage(Writer& out, IMAPMessage& message) {
    out.text(message.uid());
    out.number(message.messageSize());
    writeHeaders(out, message.listedHeaders());
    writeFlags(out, *message.messageFlags());
    out.number(message.reservedFlags());
}

std::shared_ptr<Message> readMessage(Reader& in) {
    const auto uid = in.text();
    if (uid.empty() || !std::ranges::all_of(uid, isAsciiDigit)) in.fail();
    const auto size = in.word();
    auto message = IMAPMessage::messageWithCachedHeaders(readHeaders(in), std::nullopt, size);
    message->setMessageFlags(readFlags(in));
    message->setReservedFlags(in.word());
    message->setUID(std::string(uid));
    return message;
}

void writePlaces(Writer& out, const MessageList& some, const MessageList& all) {
    std::vector<std::size_t> places;
    for (const auto& message : some)
        if (const auto place = all.indexOf(*message); place < all.size()) places.push_back(place);
    out.number(places.size());
    for (const auto place : places) out.number(place);
}

MessageList readPlaces(Reader& in, const MessageList& all) {
    std::vector<std::shared_ptr<Message>> messages;
    const auto count = in.word();
    if (count > all.size()) in.fail();
    for (std::uint32_t i = 0; i < count && in.isGood(); ++i) {
        const auto place = in.word();
        if (place >= all.size())
            in.fail();
        else
            messages.push_back(all[place]);
    }
    return messages;
}

/// Behind the header.
std::optional<StoreArchive> readContents(Reader in) {
    StoreArchive archive;
    archive.uidValidity = in.text();
    archive.uidNext = in.text();
    archive.totalSize = in.word();
    archive.deletedSize = in.word();
    std::vector<std::shared_ptr<Message>> messages;
    // The count is a claim; the memory follows the bytes that are there.
    for (auto count = in.word(); count > 0 && in.isGood(); --count) messages.push_back(readMessage(in));
    archive.all = std::move(messages);
    archive.deleted = readPlaces(in, archive.all);
    archive.filtered = readPlaces(in, archive.all);
    archive.unread = readPlaces(in, archive.all);
    return in.isGood() && in.atEnd() ? std::optional(std::move(archive)) : std::nullopt;
}

}  // namespace

std::string bytesOf(const StoreArchive& archive) {
    Writer out;
    out.text(archive.uidValidity);
    out.text(archive.uidNext);
    out.number(archive.totalSize);
    out.number(archive.deletedSize);
    out.number(archive.all.size());
    for (const auto& message : archive.all) writeMessage(out, static_cast<IMAPMessage&>(*message));
    for (const auto* const some : {&archive.deleted, &archive.filtered, &archive.unread})
        writePlaces(out, *some, archive.all);
    Writer header{std::string(kMagic)};
    header.number(kVersion);
    header.number(crc32(out.bytes));
    return header.bytes + out.bytes;
}

std::optional<StoreArchive> storeArchiveFromBytes(std::string_view bytes, std::string* whyNot) {
    std::string why;
    Reader header(bytes.substr(std::min(kMagic.size(), bytes.size())));
    const auto version = header.word(), checksum = header.word();
    if (!bytes.starts_with(kMagic) || !header.isGood())
        why = "it does not begin as a list of messages";
    else if (version != kVersion)
        why = formatText("its version is %d and not %d", version, kVersion);
    else if (const auto found = crc32(bytes.substr(kHeaderSize)); found != checksum)
        why = formatText("its checksum is %d and not %d", found, checksum);
    else if (auto archive = readContents(Reader(bytes.substr(kHeaderSize))))
        return archive;
    else
        why = "its parts do not fit together";
    if (whyNot != nullptr) *whyNot = why;
    return std::nullopt;
}

}  // namespace lorvale

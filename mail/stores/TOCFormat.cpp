#include "mail/stores/TOCFormat.h"

#include <algorithm>
#include <string>

#include "lorvale/platform/exception.h"
#include "lorvale/values/format.h"
#include "mail/stores/TOCMessage.h"

namespace lorvale {

namespace {

[[noreturn]] void throwBogus(std::string_view reason) {
    throw NamedException("Bogus table of contents", reason);
}

/// Of four bytes that are there.
std::uint32_t wordAt(std::string_view bytes, std::size_t offset) {
    const auto byte = [at = bytes.data() + offset](int i) {
        return std::uint32_t{static_cast<std::uint8_t>(at[i])};
    };
    return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
}

void appendWord(ByteBuffer& table, std::uint32_t word) {
    for (int shift = 24; shift >= 0; shift -= 8) table.append(static_cast<std::uint8_t>(word >> shift));
}

void appendText(ByteBuffer& table, std::string_view text) {
    table.append(text);
    table.append('\0');
}

/// Takes a text off the front of a record, with its end mark.
std::string_view takeText(std::string_view& rest) {
    const auto end = rest.find('\0');
    if (end == std::string_view::npos) throwBogus("Bogus TOC, a text without end");
    const auto text = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return text;
}

char normalised(char status) {
    return status == '>' ? ' ' : status == 'D' ? 'd' : status;
}

TOCRecord decodeRecord(std::string_view bytes) {
    constexpr std::size_t kTexts = 20;
    TOCRecord record;
    record.range = {wordAt(bytes, 4), wordAt(bytes, 8)};
    record.time.day = wordAt(bytes, 12);
    if (!isTocDay(record.time.day) || bytes.substr(18, 2) != "  ") throwBogus("Bogus TOC, bad date");
    record.status = normalised(bytes[16]);
    record.refState = bytes[17];
    auto rest = bytes.substr(kTexts);
    record.sender = takeText(rest);
    record.subject = takeText(rest);
    record.attachment = takeText(rest);
    if (rest.size() >= 16) record.time.posix = wordAt(rest, 12);
    return record;
}

}  // namespace

TOCTime TOCTime::of(const Date& date) {
    const auto seconds = date.secondsSince1970();
    const bool hasRoom = seconds > 0 && seconds <= 0xFFFF'FFFF;
    return {tocSillyDateInt(date), hasRoom ? static_cast<std::uint32_t>(seconds) : 0};
}

Date TOCTime::date() const {
    return posix != 0 ? Date(posix) : dateFromTocInt(day).value_or(Date());
}

void append(ByteBuffer& table, const TOCHeader& header) {
    for (const auto word : {header.version, header.count, header.timeStamp}) appendWord(table, word);
    for (const auto word : header.display) appendWord(table, word);
}

void append(ByteBuffer& table, const TOCRecord& record) {
    const auto length =
        TOCRecord::kFixedSize + record.sender.size() + record.subject.size() + record.attachment.size();
    for (const auto word :
         {static_cast<std::uint32_t>(length), record.range.location, record.range.length, record.time.day})
        appendWord(table, word);
    table.append(record.status);
    table.append(record.refState);
    table.append("  ");
    for (const auto text : {record.sender, record.subject, record.attachment}) appendText(table, text);
    for (int reserved = 0; reserved < 3; ++reserved) appendWord(table, 0);
    appendWord(table, record.time.posix);
}

KeptTOCRecord::KeptTOCRecord(const TOCRecord& record) {
    ByteBuffer bytes;
    append(bytes, record);
    const auto kept = std::make_shared_for_overwrite<char[]>(bytes.size());
    std::ranges::copy(bytes.data().view(), kept.get());
    _bytes = kept;
}

TOCRecord KeptTOCRecord::read() const {
    if (empty()) return {};
    const auto length = wordAt({_bytes.get(), sizeof(std::uint32_t)}, 0);
    return decodeRecord({_bytes.get(), length});
}

std::size_t decodeTable(std::string_view table, TOCHeader& header,
                        const std::function<void(const TOCRecord&, std::string_view)>& found) {
    constexpr std::size_t kLeast = 23;  // with three texts that are empty and no word behind them
    if (table.size() < TOCHeader::kSize) throwBogus("Bogus TOC, shorter than its header");
    header = {wordAt(table, 0), wordAt(table, 4), wordAt(table, 8), {}};
    for (std::size_t i = 0; i < header.display.size(); ++i) header.display[i] = wordAt(table, 12 + 4 * i);
    if (header.version != TOCHeader::kVersion && header.version != TOCHeader::kOldVersion)
        throw NamedException("Bad TOC", "Incompatible TOC versions");
    auto rest = table.substr(TOCHeader::kSize);
    for (std::uint32_t i = 0; i < header.count; ++i) {
        const auto length = rest.size() >= kLeast ? wordAt(rest, 0) : 0;
        if (length < kLeast || length > rest.size())
            throwBogus(formatText("Bogus TOC, record %d of %d does not fit", i + 1, header.count));
        const auto bytes = rest.substr(0, length);
        found(decodeRecord(bytes), bytes);
        rest.remove_prefix(length);
    }
    return rest.size();
}

}  // namespace lorvale

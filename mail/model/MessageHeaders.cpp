#include <algorithm>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/message/addresses.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/text.h"
#include "mail/model/DateUtils.h"
#include "mail/model/Envelope.h"
#include "mail/model/HeaderDecoding.h"
#include "mail/model/HeaderEncoding.h"
#include "mail/model/HeaderSummary.h"

namespace lorvale {

namespace {

bool isCachedKey(std::string_view key) {
    return std::ranges::find(MessageHeaders::cachedKeys(), key) != MessageHeaders::cachedKeys().end();
}

/// A date as a `Date:` line has it.
std::string textOfValue(const HeaderValue& value) {
    if (const auto* const date = std::get_if<Date>(&value)) {
        return date->descriptionWithCalendarFormat("%a, %e %b %Y %H:%M:%S %z");
    }
    return std::get<std::string>(value);
}

std::optional<std::string> firstValue(const HeaderDictionary& headers, std::string_view key) {
    const auto found = headers.find(key);
    if (found == headers.end() || found->second.empty()) return std::nullopt;
    return found->second.front();
}

/// An empty `Message-ID:` names nothing, so that message counts as one without.
std::string identifier(const std::optional<std::string>& id, const std::optional<std::string>& subject,
                       const std::optional<std::string>& date, const std::optional<std::string>& to) {
    if (id && !id->empty()) return *id;
    return formatText("%@_%@_%@", subject.value_or("BogusSubject"), date.value_or("BogusDate"),
                      to.value_or("BogusTo"));
}

/// By the envelope line, else by the text of `Date:`.
std::optional<Date> dateOfDelivery(std::string_view envelope, std::string_view written) {
    const auto inEnvelope = Envelope::parse(envelope).date;
    if (const auto date = dateInCommonFormatsWithString(inEnvelope)) return *date;
    if (!inEnvelope.empty()) log("Can't determine date: (%@), trying (%@)", inEnvelope, written);
    return dateInCommonFormatsWithString(written);
}

void appendAddresses(std::vector<std::string>& addresses, std::string_view list) {
    auto more = addressList(list);
    if (more) std::ranges::move(*more, std::back_inserter(addresses));
}

/// Of headers that are not among the cached ones.  Those that are not loaded are read and not kept: a listing
/// asks each message of a mailbox.
std::vector<std::optional<std::string>> firstValues(MessageHeaders& headers,
                                                    std::initializer_list<std::string_view> keys) {
    if (!headers.hasAllHeaders()) {
        const auto block = headers.encodedHeaders();
        return firstValuesInBlock(block ? block->view() : std::string_view(), {keys.begin(), keys.size()});
    }
    std::vector<std::optional<std::string>> values;
    for (const auto key : keys) {
        const auto value = headers.firstObjectForKey(key);
        values.push_back(value ? std::optional(textOfValue(*value)) : std::nullopt);
    }
    return values;
}

}  // namespace

HeaderSummary summaryOfHeaderBlock(std::string_view block) {
    enum { kFrom, kSubject, kTo, kCc, kDate, kID };
    constexpr std::string_view kWanted[] = {"from", "subject", "to", "cc", "date", "message-id"};
    auto values = firstValuesInBlock(block, kWanted);
    const auto envelope = envelopeInBlock(block).value_or(std::string());
    HeaderSummary summary;
    summary.messageID = identifier(values[kID], values[kSubject], values[kDate], values[kTo]);
    summary.dateReceived = dateOfDelivery(envelope, values[kDate].value_or(std::string()));
    summary.from = std::move(values[kFrom]).value_or(std::string());
    summary.subject = std::move(values[kSubject]).value_or(std::string());
    summary.to = std::move(values[kTo]).value_or(std::string());
    summary.cc = std::move(values[kCc]).value_or(std::string());
    return summary;
}

std::shared_ptr<MessageHeaders> MessageHeaders::headersForMessage(const std::shared_ptr<Message>& message) {
    return std::make_shared<MessageHeaders>(message);
}

MessageHeaders::MessageHeaders(std::weak_ptr<Message> message) : _message(std::move(message)) {}

MessageHeaders::MessageHeaders(const MessageHeaders& other) {
    const SmallMutexLock lock(other._mutex);
    _headersChanged = other._headersChanged;
    _hasCachedHeaders = other._hasCachedHeaders;
    _message = other._message;
    _cachedHeaders = other._cachedHeaders;
    if (other._tables) _tables = std::make_shared<Tables>(*other._tables);
}

void MessageHeaders::setMessage(std::weak_ptr<Message> message) {
    const SmallMutexLock lock(_mutex);
    _message.swap(message);
}

CachedHeaders MessageHeaders::cachedHeaders() {
    std::shared_ptr<Message> message;
    {
        const SmallMutexLock lock(_mutex);
        if (_hasCachedHeaders) return _cachedHeaders;
        message = _message.lock();
    }
    const auto source = message ? message->messageSource() : nullptr;
    if (!source) return {};
    const auto headers = source->cachedHeadersForMessage(*message).withLowerCaseKeys();
    const bool missing = message->bytesAreMissing() && headers.empty();
    const SmallMutexLock lock(_mutex);
    if (_hasCachedHeaders) return _cachedHeaders;
    if (!missing) {
        _cachedHeaders = headers;
        _hasCachedHeaders = true;
    }
    return headers;
}

void MessageHeaders::setCachedHeaders(const std::optional<CachedHeaders>& headers) {
    auto next = headers ? headers->withLowerCaseKeys() : CachedHeaders();
    const SmallMutexLock lock(_mutex);
    std::swap(_cachedHeaders, next);
    _hasCachedHeaders = headers.has_value();
}

std::optional<Data> MessageHeaders::headerDataOfSource() const {
    std::shared_ptr<Message> message;
    {
        const SmallMutexLock lock(_mutex);
        message = _message.lock();
    }
    if (!message) return std::nullopt;
    const auto source = message->messageSource();
    auto block = source ? source->allHeadersForMessage(*message) : std::nullopt;
    message->noteMissing(MessagePart::headers, !block);
    return block;
}

std::shared_ptr<const MessageHeaders::Tables> MessageHeaders::loadedTables() {
    {
        const SmallMutexLock lock(_mutex);
        if (_tables && _tables->headers) {
            _tablesAreShared = true;
            return _tables;
        }
    }
    return tablesOfBlock(headerDataOfSource());
}

void MessageHeaders::load() {
    if (!hasAllHeaders()) tablesOfBlock(headerDataOfSource());
}

/// Looks something up under the lock and answers a copy of it, so that looking up and changing in turn does not
/// copy all headers for each change.
template <class Look>
auto MessageHeaders::read(Look look) {
    {
        const SmallMutexLock lock(_mutex);
        if (_tables && _tables->headers) return look(std::as_const(*_tables));
    }
    return look(*tablesOfBlock(headerDataOfSource()));
}

std::shared_ptr<const MessageHeaders::Tables> MessageHeaders::tablesOfBlock(const std::optional<Data>& block) {
    auto tables = std::make_shared<Tables>();
    tables->order.emplace();
    decodeHeaderBlock(block ? block->view() : std::string_view(), tables->headers.emplace(), *tables->order,
                      tables->names);
    const SmallMutexLock lock(_mutex);
    if (!_tables || !_tables->headers) {
        if (_tables) tables->names.merge(_tables->names);
        // Without a block these are tables for the asker; perhaps there is one the next time.
        if (!block) return tables;
        _tables = std::move(tables);
        _headersChanged = false;
    }
    _tablesAreShared = true;
    return _tables;
}

MessageHeaders::Tables& MessageHeaders::tablesToChange() {
    if (!_tables) {
        _tables = std::make_shared<Tables>();
    } else if (_tablesAreShared) {
        _tables = std::make_shared<Tables>(*_tables);
    }
    _tablesAreShared = false;
    if (!_tables->headers) _tables->headers.emplace();
    if (!_tables->order) _tables->order.emplace();
    return *_tables;
}

Share<HeaderDictionary> MessageHeaders::allHeaders() {
    const auto tables = loadedTables();
    return Share(std::shared_ptr<const HeaderDictionary>(tables, &*tables->headers));
}

Share<HeaderOrder> MessageHeaders::allHeadersOrder() {
    const auto tables = loadedTables();
    if (!tables->order) return {};
    return Share(std::shared_ptr<const HeaderOrder>(tables, &*tables->order));
}

void MessageHeaders::setAllHeaders(std::optional<HeaderDictionary> headers,
                                   std::optional<HeaderOrder> withOrder) {
    auto next = std::make_shared<Tables>();
    next->headers = std::move(headers);
    next->order = std::move(withOrder);
    const SmallMutexLock lock(_mutex);
    if (_tables) next->names = _tables->names;
    _tables.swap(next);
    _tablesAreShared = false;
    _headersChanged = false;
}

HeaderDictionary MessageHeaders::decodeHeadersFromData(const Data& data, HeaderOrder& order) {
    HeaderDictionary headers;
    OriginalKeys names;
    order.clear();
    decodeHeaderBlock(data.view(), headers, order, names);
    const SmallMutexLock lock(_mutex);
    auto next = _tables ? std::make_shared<Tables>(*_tables) : std::make_shared<Tables>();
    for (auto& [key, name] : names) next->names.insert_or_assign(key, std::move(name));
    _tables = std::move(next);
    _tablesAreShared = false;
    return headers;
}

std::optional<std::vector<std::string>> MessageHeaders::objectsForKey(std::string_view key) {
    if (isCachedKey(key)) {
        std::vector<std::string> values;
        if (const auto value = cachedHeaders().find(key)) values.push_back(textOfValue(*value));
        return values;
    }
    return read([key](const Tables& tables) -> std::optional<std::vector<std::string>> {
        const auto found = tables.headers->find(key);
        if (found == tables.headers->end()) return std::nullopt;
        return found->second;
    });
}

std::optional<HeaderValue> MessageHeaders::firstObjectForKey(std::string_view key) {
    if (isCachedKey(key)) return cachedHeaders().find(key);
    return read([key](const Tables& tables) { return firstValue(*tables.headers, key); });
}

std::string MessageHeaders::firstTextForKey(std::string_view key) {
    return textForKey(key).value_or(std::string());
}

std::optional<std::string> MessageHeaders::originalKeyForKey(std::string_view key) const {
    const SmallMutexLock lock(_mutex);
    if (_tables) {
        const auto found = _tables->names.find(key);
        if (found != _tables->names.end()) return found->second;
    }
    const auto cached = _cachedHeaders.spellingOfKey(key);
    return cached ? std::optional<std::string>(*cached) : std::nullopt;
}

void MessageHeaders::setObject(std::optional<std::vector<std::string>> values, std::string_view forKey) {
    const auto key = lowercased(forKey);
    if (!values) {
        removeObjectForKey(key);
        return;
    }
    load();
    const SmallMutexLock lock(_mutex);
    auto& tables = tablesToChange();
    const auto [place, isNew] = tables.headers->insert_or_assign(key, std::move(*values));
    if (isNew) tables.order->push_back(place->first);
    tables.names.insert_or_assign(key, std::string(forKey));
    _headersChanged = true;
}

void MessageHeaders::setObject(std::initializer_list<std::string_view> values, std::string_view forKey) {
    setObject(std::vector<std::string>(values.begin(), values.end()), forKey);
}

void MessageHeaders::setObject(std::string_view value, std::string_view forKey) {
    setObject(std::vector{std::string(value)}, forKey);
}

void MessageHeaders::removeObjectForKey(std::string_view key) {
    load();
    const SmallMutexLock lock(_mutex);
    if (!_tables || !_tables->headers) return;
    const auto known = _tables->headers->find(key);
    if (known == _tables->headers->end()) return;
    if (known->second.size() > 1) throw GenericException("unsupported feature");
    auto& tables = tablesToChange();
    const auto found = tables.headers->find(key);
    std::erase(*tables.order, found->first);
    tables.headers->erase(found);
    _headersChanged = true;
}

bool MessageHeaders::headersChanged() const {
    const SmallMutexLock lock(_mutex);
    return _headersChanged;
}

bool MessageHeaders::hasAllHeaders() const {
    const SmallMutexLock lock(_mutex);
    return _tables && _tables->headers;
}

std::string MessageHeaders::messageID() {
    // A walk over a mailbox asks each message: that must not load all their headers.
    if (const auto block = blockForSummary()) {
        constexpr std::string_view kWanted[] = {"message-id", "subject", "date", "to"};
        const auto values = firstValuesInBlock(block->view(), kWanted);
        return identifier(values[0], values[1], values[2], values[3]);
    }
    const auto values = firstValues(*this, {"message-id", "to"});
    return identifier(values[0], textForKey("subject"), textForKey("date"), values[1]);
}

std::optional<std::string> MessageHeaders::textForKey(std::string_view key) {
    const auto value = firstObjectForKey(key);
    return value ? std::optional(textOfValue(*value)) : std::nullopt;
}

std::string MessageHeaders::envelopeText() {
    if (!hasAllHeaders()) {
        const auto block = headerDataOfSource();
        return envelopeInBlock(block ? block->view() : std::string_view()).value_or(std::string());
    }
    return firstTextForKey(kFromSpaceKey);
}

Date MessageHeaders::dateReceived() {
    return knownDateReceived().value_or(Date::now());
}

std::optional<Date> MessageHeaders::knownDateReceived() {
    if (const auto block = blockForSummary()) {
        constexpr std::string_view kWanted[] = {"date"};
        const auto written = firstValuesInBlock(block->view(), kWanted).front();
        return dateOfDelivery(envelopeInBlock(block->view()).value_or(std::string()),
                              written.value_or(std::string()));
    }
    const auto cached = cachedHeaders().find("date");
    if (const auto* const known = cached ? std::get_if<Date>(&*cached) : nullptr) return *known;
    const auto envelope = envelopeText();
    return dateOfDelivery(envelope, firstTextForKey("date"));
}

std::optional<Data> MessageHeaders::blockForSummary() {
    std::shared_ptr<Message> message;
    {
        const SmallMutexLock lock(_mutex);
        if (_hasCachedHeaders || (_tables && _tables->headers)) return std::nullopt;
        message = _message.lock();
    }
    const auto source = message ? message->messageSource() : nullptr;
    return source && source->readsCachedHeaders() ? headerDataOfSource() : std::nullopt;
}

HeaderSummary MessageHeaders::summary() {
    if (const auto block = blockForSummary()) return summaryOfHeaderBlock(block->view());
    const auto values = firstValues(*this, {"to", "cc", "message-id"});
    return {sender(),
            subject(),
            values[0].value_or(std::string()),
            values[1].value_or(std::string()),
            identifier(values[2], textForKey("subject"), textForKey("date"), values[0]),
            knownDateReceived()};
}

std::string MessageHeaders::sender() {
    return cachedHeaders().textForKey("from");
}

std::string MessageHeaders::subject() {
    return cachedHeaders().textForKey("subject");
}

std::vector<std::string> MessageHeaders::recipients() {
    std::vector<std::string> addresses;
    appendAddresses(addresses, firstTextForKey("to"));
    appendAddresses(addresses, firstTextForKey("cc"));
    return addresses;
}

void MessageHeaders::appendFromSpaceIfMissing() {
    load();
    if (!hasAllHeaders() || firstObjectForKey(kFromSpaceKey)) return;
    auto sender = uncommentedAddress(firstTextForKey("from"));
    if (sender.empty()) sender = loginName();
    setObject(Envelope::text(sender, dateReceived()), kFromSpaceKey);
}

std::optional<Data> MessageHeaders::encodedHeaders() {
    return _encodedHeadersIncludingFromSpace(true);
}

std::optional<Data> MessageHeaders::encodedHeadersForDelivery() {
    return _encodedHeadersIncludingFromSpace(false);
}

std::optional<Data> MessageHeaders::_encodedHeadersIncludingFromSpace(bool fromSpace) {
    if (!headersChanged()) return headerDataOfSource();
    const auto tables = loadedTables();
    return encodeHeaderBlock(*tables->headers, tables->order.value_or(HeaderOrder()), tables->names,
                             fromSpace ? EnvelopeLine::write : EnvelopeLine::leaveOut);
}

void MessageHeaders::flushCachedData() {
    std::shared_ptr<Tables> gone;  // freed without the lock
    const SmallMutexLock lock(_mutex);
    _tables.swap(gone);
}

std::size_t MessageHeaders::cachedDataSize() const {
    const SmallMutexLock lock(_mutex);
    return 10 * _cachedHeaders.size();
}

std::optional<CachedHeaders> MessageHeaders::remains() const {
    const SmallMutexLock lock(_mutex);
    return _headersChanged ? std::nullopt : std::optional(_cachedHeaders);
}

std::string MessageHeaders::description() const {
    const MessageHeaders now(*this);
    const SmallMutexLock lock(now._mutex);
    std::string text;
    for (const auto& [key, value] : now._cachedHeaders) {
        text += formatText("%@: %@\n", now._cachedHeaders.spellingOfKey(key).value_or(key), textOfValue(value));
    }
    text += now._tables && now._tables->headers
                ? formatText("%d headers in all%@\n", now._tables->headers->size(),
                             now._headersChanged ? ", changed" : "")
                : std::string("<other headers not yet loaded>\n");
    return text;
}

}  // namespace lorvale

#include <algorithm>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/message/addresses.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/text.h"
#include "mail/model/DateUtils.h"
#include "mail/model/HeaderDecoding.h"
#include "mail/model/HeaderEncoding.h"

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

/// "sender, blank, date" is what an envelope line holds.
std::string_view dateInEnvelope(std::string_view envelope) {
    const auto blank = envelope.find_first_of(" \t");
    return blank == std::string_view::npos ? std::string_view() : envelope.substr(blank + 1);
}

void appendAddresses(std::vector<std::string>& addresses, std::string_view list) {
    auto more = addressList(list);
    if (more) std::ranges::move(*more, std::back_inserter(addresses));
}

}  // namespace

std::shared_ptr<MessageHeaders> MessageHeaders::headersForMessage(const std::shared_ptr<Message>& message) {
    return std::make_shared<MessageHeaders>(message);
}

MessageHeaders::MessageHeaders(std::weak_ptr<Message> message) : _message(std::move(message)) {}

void MessageHeaders::setMessage(std::weak_ptr<Message> message) {
    _message = std::move(message);
}

const CachedHeaders& MessageHeaders::cachedHeaders() {
    static const CachedHeaders none;
    if (!_cachedHeaders) {
        const auto message = _message.lock();
        const auto source = message ? message->messageSource() : nullptr;
        if (!source) return none;
        setCachedHeaders(source->cachedHeadersForMessage(*message));
    }
    return *_cachedHeaders;
}

void MessageHeaders::setCachedHeaders(const std::optional<CachedHeaders>& headers) {
    if (!headers) {
        _cachedHeaders.reset();
        return;
    }
    CachedHeaders normal;
    for (const auto& [key, value] : *headers) {
        const auto lower = lowercased(key);
        normal.set(lower, value);
        _originalKeys.insert_or_assign(lower, std::string(key));
    }
    _cachedHeaders = std::move(normal);
}

std::optional<Data> MessageHeaders::headerDataOfSource() const {
    const auto message = _message.lock();
    if (!message) return std::nullopt;
    const auto source = message->messageSource();
    auto block = source ? source->allHeadersForMessage(*message) : std::nullopt;
    message->noteMissing(MessagePart::headers, !block);
    return block;
}

void MessageHeaders::loadAllHeaders() {
    if (!_allHeaders) loadAllHeaders(headerDataOfSource().value_or(Data()));
}

void MessageHeaders::loadAllHeaders(const Data& block) {
    HeaderOrder order;
    auto headers = decodeHeadersFromData(block, order);
    setAllHeaders(std::move(headers), std::move(order));
}

const HeaderDictionary& MessageHeaders::allHeaders() {
    loadAllHeaders();
    return *_allHeaders;
}

const HeaderOrder& MessageHeaders::allHeadersOrder() {
    loadAllHeaders();
    if (!_allHeadersOrder) _allHeadersOrder.emplace();
    return *_allHeadersOrder;
}

void MessageHeaders::setAllHeaders(std::optional<HeaderDictionary> headers,
                                   std::optional<HeaderOrder> withOrder) {
    _allHeaders = std::move(headers);
    _allHeadersOrder = std::move(withOrder);
    _headersChanged = false;
}

HeaderDictionary MessageHeaders::decodeHeadersFromData(const Data& data, HeaderOrder& order) {
    HeaderDictionary headers;
    order.clear();
    decodeHeaderBlock(data.view(), headers, order, _originalKeys);
    return headers;
}

std::optional<std::vector<std::string>> MessageHeaders::objectsForKey(std::string_view key) {
    if (isCachedKey(key)) {
        const auto* const value = cachedHeaders().find(key);
        std::vector<std::string> values;
        if (value != nullptr) values.push_back(textOfValue(*value));
        return values;
    }
    const auto& headers = allHeaders();
    const auto found = headers.find(key);
    if (found == headers.end()) return std::nullopt;
    return found->second;
}

std::optional<HeaderValue> MessageHeaders::firstObjectForKey(std::string_view key) {
    if (isCachedKey(key)) {
        const auto* const value = cachedHeaders().find(key);
        return value != nullptr ? std::optional(*value) : std::nullopt;
    }
    const auto& headers = allHeaders();
    const auto found = headers.find(key);
    if (found == headers.end() || found->second.empty()) return std::nullopt;
    return found->second.front();
}

std::string MessageHeaders::firstTextForKey(std::string_view key) {
    auto value = firstObjectForKey(key);
    auto* const text = value ? std::get_if<std::string>(&*value) : nullptr;
    return text != nullptr ? std::move(*text) : std::string();
}

std::optional<std::string_view> MessageHeaders::originalKeyForKey(std::string_view key) const {
    const auto found = _originalKeys.find(key);
    if (found == _originalKeys.end()) return std::nullopt;
    return found->second;
}

void MessageHeaders::setObject(std::optional<std::vector<std::string>> values, std::string_view forKey) {
    const auto key = lowercased(forKey);
    if (!values) {
        removeObjectForKey(key);
        return;
    }
    loadAllHeaders();
    if (!_allHeadersOrder) _allHeadersOrder.emplace();
    const auto [place, isNew] = _allHeaders->insert_or_assign(key, std::move(*values));
    if (isNew) _allHeadersOrder->push_back(place->first);
    _originalKeys.insert_or_assign(key, std::string(forKey));
    _headersChanged = true;
}

void MessageHeaders::setObject(std::string_view value, std::string_view forKey) {
    setObject(std::vector{std::string(value)}, forKey);
}

void MessageHeaders::removeObjectForKey(std::string_view key) {
    loadAllHeaders();
    const auto found = _allHeaders->find(key);
    if (found == _allHeaders->end()) return;
    if (found->second.size() > 1) throw GenericException("unsupported feature");
    if (_allHeadersOrder) std::erase(*_allHeadersOrder, found->first);
    _allHeaders->erase(found);
    _headersChanged = true;
}

std::string MessageHeaders::messageID() {
    auto id = firstTextForKey("message-id");
    // An empty `Message-ID:` names nothing, so that message counts as one without.
    if (!id.empty()) return id;
    const auto textOr = [this](std::string_view key, std::string_view bogus) {
        const auto value = firstObjectForKey(key);
        return value ? textOfValue(*value) : std::string(bogus);
    };
    return formatText("%@_%@_%@", textOr("subject", "BogusSubject"), textOr("date", "BogusDate"),
                      textOr("to", "BogusTo"));
}

std::string MessageHeaders::envelopeText() {
    // A listing asks each message of a mailbox for its date: that must not load all their headers.
    if (!_allHeaders) {
        const auto block = headerDataOfSource().value_or(Data());
        if (auto envelope = envelopeInBlock(block.view())) return std::move(*envelope);
        loadAllHeaders(block);
    }
    return firstTextForKey(kFromSpaceKey);
}

Date MessageHeaders::dateReceived() {
    return knownDateReceived().value_or(Date::now());
}

std::optional<Date> MessageHeaders::knownDateReceived() {
    const auto* const cached = cachedHeaders().find("date");
    const auto* const known = cached != nullptr ? std::get_if<Date>(cached) : nullptr;
    if (known != nullptr) return *known;
    const auto envelope = envelopeText();
    const auto inEnvelope = dateInEnvelope(envelope);
    if (const auto date = dateInCommonFormatsWithString(inEnvelope)) return *date;
    const auto written = firstTextForKey("date");
    if (!inEnvelope.empty()) log("Can't determine date: (%@), trying (%@)", inEnvelope, written);
    return dateInCommonFormatsWithString(written);
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
    if (firstObjectForKey(kFromSpaceKey)) return;
    auto sender = uncommentedAddress(firstTextForKey("from"));
    if (sender.empty()) sender = loginName();
    const auto when = dateReceived().inLocalZone().descriptionWithCalendarFormat("%a %b %e %H:%M:%S %Y");
    setObject(formatText("%@ %@", sender, when), kFromSpaceKey);
}

std::optional<Data> MessageHeaders::encodedHeaders() {
    return _encodedHeadersIncludingFromSpace(true);
}

std::optional<Data> MessageHeaders::encodedHeadersForDelivery() {
    return _encodedHeadersIncludingFromSpace(false);
}

std::optional<Data> MessageHeaders::_encodedHeadersIncludingFromSpace(bool fromSpace) {
    if (!_headersChanged) return headerDataOfSource();
    return encodeHeaderBlock(allHeaders(), allHeadersOrder(), _originalKeys,
                             fromSpace ? EnvelopeLine::write : EnvelopeLine::leaveOut);
}

void MessageHeaders::flushCachedData() {
    _allHeaders.reset();
    _allHeadersOrder.reset();
}

std::size_t MessageHeaders::cachedDataSize() const {
    return _cachedHeaders ? 10 * _cachedHeaders->size() : 0;
}

std::string MessageHeaders::description() const {
    std::string text;
    if (_cachedHeaders) {
        for (const auto& [key, value] : *_cachedHeaders) {
            text += formatText("%@: %@\n", originalKeyForKey(key).value_or(key), textOfValue(value));
        }
    }
    text += _allHeaders
                ? formatText("%d headers in all%@\n", _allHeaders->size(), _headersChanged ? ", changed" : "")
                : std::string("<other headers not yet loaded>\n");
    return text;
}

}  // namespace lorvale

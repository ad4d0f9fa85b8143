#include "MessageFilter.h"

#include <algorithm>

#include "Summary.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

std::optional<std::string> folded(const std::optional<std::string>& text) {
    return text ? std::optional(lorvale::foldCase(*text)) : std::nullopt;
}

bool contains(std::string_view text, const std::string& foldedPart) {
    return lorvale::foldCase(text).find(foldedPart) != std::string::npos;
}

}  // namespace

MessageFilter::MessageFilter(const Arguments& arguments)
    : _from(folded(arguments.value(kFrom))),
      _to(folded(arguments.value(kTo))),
      _subject(folded(arguments.value(kSubject))),
      _since(arguments.value(kSince)),
      _until(arguments.value(kUntil)),
      _larger(arguments.value(kLarger)),
      _unreadOnly(arguments.has(kUnread)) {}

bool MessageFilter::accepts(lorvale::Message& message) const {
    if (_larger && message.messageSize() <= *_larger) return false;
    if (_unreadOnly && (message.messageFlags()->isRead() || message.messageFlags()->isDeleted())) return false;
    return !readsHeaders() || acceptsHeaders(*message.headers()) || message.bytesAreMissing();
}

bool MessageFilter::acceptsHeaders(lorvale::MessageHeaders& headers) const {
    if (_from && !contains(headers.sender(), *_from)) return false;
    if (_subject && !contains(headers.subject(), *_subject)) return false;
    if ((_since || _until) && !acceptsDate(headers)) return false;
    return !_to || std::ranges::any_of(recipientsOf(headers.summary()),
                                       [&](const std::string& recipient) { return contains(recipient, *_to); });
}

bool MessageFilter::acceptsDate(lorvale::MessageHeaders& headers) const {
    const auto date = headers.knownDateReceived();
    return date && (!_since || *date >= _since->begin) && (!_until || *date < _until->end);
}

}  // namespace mailhost

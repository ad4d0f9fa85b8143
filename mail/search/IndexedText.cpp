#include "mail/search/IndexedText.h"

#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/store/message_store.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

/// Gives the bytes of a message to a second one, which is taken apart in its place and then thrown away.
class SameBytes : public MessageSource {
public:
    SameBytes(Message& original, std::shared_ptr<MessageSource> source)
        : _original(original), _source(std::move(source)) {}

    std::shared_ptr<MessageFlags> flagsForMessage(Message&) override {
        return _source->flagsForMessage(_original);
    }
    CachedHeaders cachedHeadersForMessage(Message&) override {
        return _source->cachedHeadersForMessage(_original);
    }
    std::optional<Data> allHeadersForMessage(Message&) override {
        if (!_headers) _headers = _source->allHeadersForMessage(_original);
        return _headers;
    }
    std::optional<Data> bodyForMessage(Message&) override { return _source->bodyForMessage(_original); }
    std::string storePath() const override { return _source->storePath(); }
    bool isReadOnly() const override { return _source->isReadOnly(); }

private:
    Message& _original;  // borrowed for the time of the indexing
    const std::shared_ptr<MessageSource> _source;
    std::optional<Data> _headers;
};

/// "name: value" in a line each, with encoded words undone.
std::string decodedHeaders(Message& message) {
    std::string text;
    const auto all = message.headers()->allHeaders();
    for (const auto& [name, values] : *all)
        for (const auto& value : values) text.append(name).append(": ").append(value).append("\n");
    return text;
}

/// The body as it is shown first, without laying out its attachments anywhere.
std::optional<AttributedText> shownText(Message& message) {
    const auto body = message.messageBody();
    if (body == nullptr) return std::nullopt;
    if (auto* const mime = dynamic_cast<MimeBody*>(body.get())) {
        const auto root = mime->bodyPart();
        const auto part = root != nullptr ? root->alternativeAtIndex(-1) : nullptr;
        return part != nullptr ? std::optional(part->decodeBodyPartInDirectory(std::nullopt)) : std::nullopt;
    }
    const auto text = body->decodedBody();
    return text != nullptr ? std::optional(*text) : std::nullopt;
}

}  // namespace

std::optional<std::string> indexedText(Message& message, IndexedForm form) {
    const auto source = message.messageSource();
    if (source == nullptr) return std::nullopt;
    const auto bytes = std::make_shared<SameBytes>(message, source);
    const auto copy = Message::messageInStore(bytes);
    const auto block = copy->headers()->encodedHeaders();
    if (!block) return std::nullopt;
    const auto shown = shownText(*copy);
    if (copy->bytesAreMissing()) return std::nullopt;
    const auto bodyText = shown ? std::string_view(shown->string()) : std::string_view();
    if (form == IndexedForm::utf8) return decodedHeaders(*copy).append(bodyText);
    auto text =
        isAscii(block->view()) ? block->toString() : encodeCString(decodeCString(block->view())).toString();
    return text.append(isAscii(bodyText) ? bodyText : encodeCString(bodyText).view());
}

}  // namespace lorvale

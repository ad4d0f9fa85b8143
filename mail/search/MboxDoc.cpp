#include "mail/search/MboxDoc.h"

#include <cstring>

#include "lorvale/message.h"
#include "lorvale/toolkit/storage/block.h"
#include "lorvale/values/encoding.h"

namespace lorvale {

using brindle::IAStorable;
using brindle::StorageInvalid;

namespace {

std::string_view takeText(std::span<const std::uint8_t>& from) {
    const auto length = brindle::VInt32Read(from);
    IAAssertion(length <= from.size(), "message ID longer than its record", StorageInvalid);
    const std::string_view text(reinterpret_cast<const char*>(from.data()), length);
    from = from.subspan(length);
    return text;
}

const MboxDoc& asDoc(const IAStorable* object) {
    return static_cast<const MboxDoc&>(*object);
}

}  // namespace

MboxDoc::MboxDoc(std::shared_ptr<Message> message)
    : _messageID(message->messageID()), _message(std::move(message)) {}

MboxDoc::~MboxDoc() = default;

std::unique_ptr<IAStorable> MboxDoc::DeepCopy() const {
    auto copy = std::make_unique<MboxDoc>();
    copy->DeepCopying(this);
    return copy;
}

void MboxDoc::DeepCopying(const IAStorable* source) {
    IADoc::DeepCopying(source);
    // The ID alone: the copies that an index keeps must not keep messages.
    _messageID = asDoc(source)._messageID;
}

std::uint32_t MboxDoc::StoreSize() const {
    const auto length = static_cast<std::uint32_t>(_messageID ? _messageID->size() : 0);
    return brindle::VInt32Size(length) + length;
}

void MboxDoc::Store(brindle::IAOutputBlock* output) const {
    const std::string_view id = _messageID ? std::string_view(*_messageID) : std::string_view();
    const auto length = static_cast<std::uint32_t>(id.size());
    brindle::VInt32Write(length, output);
    output->WriteBuffer(id.data(), length);
}

std::unique_ptr<IAStorable> MboxDoc::Restore(brindle::IAInputBlock* input) const {
    auto restored = std::make_unique<MboxDoc>();
    restored->Restoring(input, this);
    return restored;
}

void MboxDoc::Restoring(brindle::IAInputBlock* input, const IAStorable* prototype) {
    IADoc::Restoring(input, prototype);
    const auto length = brindle::VInt32Read(input);
    IAAssertion(length <= input->Remaining(), "message ID longer than its block", StorageInvalid);
    _messageID.emplace(length, '\0');
    input->ReadBuffer(_messageID->data(), length);
}

bool MboxDoc::LessThan(const brindle::IAOrderedStorable* other) const {
    const auto& id = asDoc(other)._messageID;
    return _messageID && id && *_messageID < *id;
}

bool MboxDoc::Equal(const brindle::IAOrderedStorable* other) const {
    const auto& id = asDoc(other)._messageID;
    return _messageID && id && *_messageID == *id;
}

std::string MboxDoc::GetName() const {
    return encodeCString(_messageID.value_or(std::string())).toString();
}

int MboxDoc::CompareStored(std::span<const std::uint8_t> stored, const brindle::IAOrderedStorable* key) const {
    const auto& id = asDoc(key)._messageID;
    return id ? takeText(stored).compare(*id) : 1;
}

std::uint32_t MboxDoc::StoredSize(std::span<const std::uint8_t> stored) const {
    auto rest = stored;
    takeText(rest);
    return static_cast<std::uint32_t>(stored.size() - rest.size());
}

MboxDocText::~MboxDocText() = default;

std::uint32_t MboxDocText::GetNextBuffer(std::uint8_t* buffer, std::uint32_t size) {
    const auto part = std::string_view(*_text).substr(_position, size);
    if (!part.empty()) std::memcpy(buffer, part.data(), part.size());
    _position += part.size();
    return static_cast<std::uint32_t>(part.size());
}

std::unique_ptr<brindle::IADocText> MboxDocText::DeepCopy() const {
    return std::make_unique<MboxDocText>(_text);
}

}  // namespace lorvale

#pragma once
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/toolkit/corpus/doc.h"

namespace lorvale {

class Message;

/// A message as a document of an index: named, and ordered, by its message ID.  One without an ID is neither
/// less than another nor equal to it.
///
/// Stored form: the length as a VInt32, then the bytes of the ID.  "a_b_1":  05 61 5F 62 5F 31
class MboxDoc : public brindle::IADoc {
public:
    MboxDoc() = default;
    explicit MboxDoc(std::string messageID) : _messageID(std::move(messageID)) {}
    /// A document that is about to be indexed has its message with it, so that nobody has to look for that.
    explicit MboxDoc(std::shared_ptr<Message> message);
    MboxDoc(std::string messageID, std::shared_ptr<Message> message)
        : _messageID(std::move(messageID)), _message(std::move(message)) {}
    ~MboxDoc() override;

    const std::optional<std::string>& messageID() const { return _messageID; }
    /// Null for a document that was stored.
    const std::shared_ptr<Message>& message() const { return _message; }
    /// The text under which the message is to be found, made in advance; taken by who indexes it.
    const std::shared_ptr<const std::string>& text() const { return _text; }
    void setText(std::string text) { _text = std::make_shared<const std::string>(std::move(text)); }

    std::unique_ptr<brindle::IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(brindle::IAOutputBlock* output) const override;
    /// Raises StorageInvalid for a length that the block cannot hold.
    std::unique_ptr<brindle::IAStorable> Restore(brindle::IAInputBlock* input) const override;
    void DeepCopying(const IAStorable* source) override;
    void Restoring(brindle::IAInputBlock* input, const IAStorable* prototype) override;
    bool LessThan(const IAOrderedStorable* other) const override;
    bool Equal(const IAOrderedStorable* other) const override;
    /// The message ID in the default C string encoding, with "?" for what that lacks.
    std::string GetName() const override;
    int CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const override;
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override;

private:
    std::optional<std::string> _messageID;
    std::shared_ptr<Message> _message;         // not stored
    std::shared_ptr<const std::string> _text;  // not stored
};

/// The text of a message.
class MboxDocText : public brindle::IADocText {
public:
    explicit MboxDocText(std::shared_ptr<const std::string> text) : _text(std::move(text)) {}
    ~MboxDocText() override;

    std::uint32_t GetNextBuffer(std::uint8_t* buffer, std::uint32_t size) override;
    std::unique_ptr<IADocText> DeepCopy() const override;

private:
    const std::shared_ptr<const std::string> _text;  // never null, never changes
    std::size_t _position = 0;
};

}  // namespace lorvale

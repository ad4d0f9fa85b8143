#pragma once
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/storable.h"

namespace brindle::testing {

/// A member of a set for tests: a key, by which it is ordered, and a value, both of any bytes.
/// Stored as the length of each in a variable-length integer, and its bytes.
class Entry : public IAOrderedStorable {
public:
    Entry() = default;
    explicit Entry(std::string_view entryKey, std::string_view entryValue = "")
        : key(entryKey), value(entryValue) {}

    std::unique_ptr<IAStorable> DeepCopy() const override { return std::make_unique<Entry>(key, value); }
    std::uint32_t StoreSize() const override { return StoredTextSize(key) + StoredTextSize(value); }
    void Store(IAOutputBlock* output) const override {
        for (const std::string* text : {&key, &value}) {
            VInt32Write(static_cast<std::uint32_t>(text->size()), output);
            output->WriteBuffer(text->data(), static_cast<std::uint32_t>(text->size()));
        }
    }
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override {
        auto made = std::make_unique<Entry>();
        for (std::string* text : {&made->key, &made->value}) {
            const std::uint32_t size = VInt32Read(input);
            IAAssertion(size <= input->Remaining(), "text past the end of its block", StorePastBlockEnd);
            text->resize(size);
            input->ReadBuffer(text->data(), size);
        }
        return made;
    }
    bool LessThan(const IAOrderedStorable* other) const override { return key < KeyOf(other); }
    bool Equal(const IAOrderedStorable* other) const override { return key == KeyOf(other); }

    static const std::string& KeyOf(const IAOrderedStorable* object) {
        return static_cast<const Entry*>(object)->key;
    }

    std::string key;
    std::string value;

private:
    static std::uint32_t StoredTextSize(const std::string& text) {
        const auto size = static_cast<std::uint32_t>(text.size());
        return VInt32Size(size) + size;
    }
};

/// A prototype that finds entries in their stored form without restoring them.
class StoredEntry final : public Entry {
public:
    int CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* other) const override {
        return TakeText(stored).compare(KeyOf(other));
    }
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override {
        const std::size_t whole = stored.size();
        TakeText(stored);
        TakeText(stored);
        return static_cast<std::uint32_t>(whole - stored.size());
    }

private:
    static std::string_view TakeText(std::span<const std::uint8_t>& from) {
        const std::uint32_t size = VInt32Read(from);
        IAAssertion(size <= from.size(), "text past the end of its block", StorePastBlockEnd);
        const std::string_view text(reinterpret_cast<const char*>(from.data()), size);
        from = from.subspan(size);
        return text;
    }
};

}  // namespace brindle::testing

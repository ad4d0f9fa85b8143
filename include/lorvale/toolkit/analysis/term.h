#pragma once
#include <cstdint>
#include <memory>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/storable.h"

namespace brindle {

/// The unit of retrieval: any string of bytes.
///
/// Terms are ordered by their bytes, unsigned; of two that begin alike the shorter one comes first.
/// Stored form: the length as a VInt32, then the bytes.  "ab":  02 61 62
class LORVALE_EXPORT IATerm : public IAOrderedStorable {
public:
    /// The memory of a term's bytes is always a multiple of four and ends in at least one zero byte, so that a
    /// term that is text can be read as a terminated string.
    static constexpr std::uint32_t AllocatedSize(std::uint32_t length) { return ((length >> 2) + 1) * 4; }
    struct FreeBytes {
        std::uint32_t length = 0;
        void operator()(std::uint8_t* bytes) const noexcept;
    };
    using Bytes = std::unique_ptr<std::uint8_t[], FreeBytes>;
    /// Room for `length` bytes, with the zero bytes behind them set.
    static Bytes Allocate(std::uint32_t length);

    IATerm() : IATerm(std::string_view()) {}
    explicit IATerm(std::string_view bytes);
    /// Takes over what Allocate() gave.
    explicit IATerm(Bytes bytes);
    IATerm(const IATerm&) = delete;
    IATerm& operator=(const IATerm&) = delete;
    ~IATerm() override;

    const std::uint8_t* GetData() const { return data.get(); }
    std::uint8_t* GetData() { return data.get(); }
    std::uint32_t GetLength() const { return data.get_deleter().length; }
    /// The bytes; views compare in the order of terms.
    std::string_view View() const { return {reinterpret_cast<const char*>(data.get()), GetLength()}; }

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    /// Raises "term longer than its block" (StorageInvalid) for a length that the block cannot hold.
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    bool LessThan(const IAOrderedStorable* other) const override;
    bool Equal(const IAOrderedStorable* other) const override;

protected:
    static Bytes RestoreBytes(IAInputBlock* input);

private:
    Bytes data;  // never null
};

/// A term that is known to be text; its copies are, too.
class LORVALE_EXPORT StringTerm : public IATerm {
public:
    using IATerm::IATerm;
    StringTerm() = default;
    ~StringTerm() override;

    /// Terminated.
    const char* Text() const { return reinterpret_cast<const char*>(GetData()); }
    std::uint32_t TextLen() const { return GetLength(); }

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
};

}  // namespace brindle

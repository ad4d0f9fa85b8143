#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/index_base.h"

namespace brindle {

/// The block in which an accessor's tables are kept, unless another is named.
inline constexpr const char* IADefaultAccessorName = "IADefaultAccessor";

/// The search side of a set of indexes.  It owns tables that are costly to compute, and can keep them in a
/// storage: by default that of the first index, in the block IADefaultAccessorName.
///
/// Exactly one of StoreInitialization(), Initialize(), InitializeAnew() and Update() comes first, once.
/// IsInitializationValid() tells whether Initialize() will find stored tables that fit.  One thread at a time.
class LORVALE_EXPORT IAAccessor : public IAObject {
public:
    IAAccessor(const IAAccessor&) = delete;
    IAAccessor& operator=(const IAAccessor&) = delete;
    ~IAAccessor() override;

    /// Computes the tables and stores them.
    void StoreInitialization(IAStorage* storage = nullptr, std::uint32_t block = 0);
    /// Reads the stored tables, or computes them where there are none.  Raises "invalid initialization"
    /// (IAAccessorInitInvalid) when the indexes have changed since.
    void Initialize(IAStorage* storage = nullptr, std::uint32_t block = 0);
    /// Computes the tables, whether or not there are stored ones.
    void InitializeAnew();
    bool IsInitializationValid(IAStorage* storage = nullptr, std::uint32_t block = 0);
    /// Reads tables that were stored before the indexes grew, and computes what the new documents add.  Raises
    /// "invalid update operation" (IAAccessorUpdateInvalid) for tables of other indexes.
    void Update(IAStorage* storage = nullptr, std::uint32_t block = 0);
    /// Stores the tables again.
    void Store(IAStorage* storage = nullptr, std::uint32_t block = 0);

    std::uint32_t GetAccessorType() const { return accessorType; }
    void SetAccessorType(std::uint32_t type) { accessorType = type; }
    std::uint32_t GetIndexCount() const { return static_cast<std::uint32_t>(indices.size()); }
    std::span<IAIndex* const> GetIndices() const { return indices; }
    bool IsInitialized() const { return isInitialized; }

protected:
    IAAccessor() = default;
    /// Does nothing the second time, so that every class with a shared base may call it.  Borrows the indexes.
    void Constructing(std::span<IAIndex* const> ofIndices, std::uint32_t type);
    void CheckInitialized() const;
    /// For a subclass that computed its tables when it was made.
    void SetInitialized() { isInitialized = true; }

    /// Computes the tables.
    virtual void Initializing() = 0;
    /// Bytes that StoringInits() writes.
    virtual std::uint32_t InitsSize() = 0;
    virtual void StoringInits(IAOutputBlock* output) = 0;
    /// Raises "accessor init invalid" (IAAccessorInitInvalid) for what does not fit the indexes.
    virtual void RestoringInits(IAInputBlock* input) = 0;
    /// Reads tables with room for more, and then computes that.
    virtual void UpdatingInits(IAInputBlock* input) = 0;
    virtual void ExtendingInits() = 0;

private:
    struct Place {
        IAStorage* storage;
        std::uint32_t block;  // 0 if there is none
    };
    Place FindPlace(IAStorage* storage, std::uint32_t block) const;
    Place MakePlace(IAStorage* storage, std::uint32_t block) const;
    void StoreAt(Place place);
    std::uint32_t InitValidationSize() const { return 8 + 4 * GetIndexCount(); }
    std::vector<std::uint32_t> IndexTimes() const;
    void StoreInitValidation(IAOutputBlock* output, std::span<const std::uint32_t> times) const;
    bool RestoreInitValidation(IAInputBlock* input, std::span<const std::uint32_t> times) const;

    bool isConstructed = false;
    bool isInitialized = false;
    std::vector<IAIndex*> indices;  // borrowed
    std::uint32_t accessorType = 0;
};

}  // namespace brindle

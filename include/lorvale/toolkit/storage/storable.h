#pragma once
#include <cstdint>
#include <memory>
#include <span>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/mutex.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

class IAInputBlock;
class IAOutputBlock;
class IAStorage;

/// An object with a stored form.
///
/// The usual subclass makes an empty object of its class in DeepCopy() and calls DeepCopying(this) on it, and
/// likewise Restoring(block, this) in Restore(); its DeepCopying() and Restoring() first call their base's.
class LORVALE_EXPORT IAStorable : public IAObject {
public:
    ~IAStorable() override;
    /// A new object that shares nothing with this one.
    virtual std::unique_ptr<IAStorable> DeepCopy() const = 0;
    /// The exact number of bytes that Store() writes.
    virtual std::uint32_t StoreSize() const = 0;
    virtual void Store(IAOutputBlock* output) const = 0;
    /// Called on a prototype: reads one stored form into a new object.
    virtual std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const = 0;
    /// Fills this object from another one.  The base does nothing.
    virtual void DeepCopying(const IAStorable* source);
    /// Fills this object from a block, with the prototype at hand for its parts.  The base does nothing.
    virtual void Restoring(IAInputBlock* input, const IAStorable* prototype);
};

/// A stored object with an order.  Equal() looks at the key alone, so a record that holds nothing but its key
/// serves for every lookup.  Over one set LessThan() is a strict total order in step with Equal().
class LORVALE_EXPORT IAOrderedStorable : public IAStorable {
public:
    ~IAOrderedStorable() override;
    virtual bool LessThan(const IAOrderedStorable* other) const = 0;
    virtual bool Equal(const IAOrderedStorable* other) const = 0;

    // How a set finds its members in their stored form, called on its prototype.  The base restores an object
    // for each question; a class whose sets are searched a lot answers from the bytes.  They may come from a
    // damaged file: an answer never reads beyond them, and raises what Restore() would where they end too
    // early.

    /// Below 0 if the object that all of `stored` is the stored form of is LessThan(key), 0 if it is
    /// Equal(key), above 0 otherwise.
    virtual int CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const;
    /// How many bytes the object takes whose stored form begins with `stored`; others may follow it.
    virtual std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const;
};

/// DeepCopy() and Restore() under the class they really return.
template <class T>
std::unique_ptr<T> IADeepCopyOf(const T& source) {
    return std::unique_ptr<T>(static_cast<T*>(source.DeepCopy().release()));
}
template <class T>
std::unique_ptr<T> IARestoreFrom(const T& prototype, IAInputBlock* input) {
    return std::unique_ptr<T>(static_cast<T*>(prototype.Restore(input).release()));
}

class LORVALE_EXPORT IAOrderedStorableIterator : public IAObject {
public:
    ~IAOrderedStorableIterator() override;
    /// A copy of the next member; null at the end.
    virtual std::unique_ptr<IAOrderedStorable> Next() = 0;
};

/// A persistent ordered set of objects of one class.  Locks its own mutex in every operation.
class LORVALE_EXPORT IAOrderedStorableSet : public IAObject {
public:
    IAOrderedStorableSet() = default;
    IAOrderedStorableSet(const IAOrderedStorableSet&) = delete;
    IAOrderedStorableSet& operator=(const IAOrderedStorableSet&) = delete;
    ~IAOrderedStorableSet() override;

    /// Makes a new, empty set whose header is in the block.  The storage is borrowed for life.
    virtual void Initialize(IAStorage* storage, std::uint32_t headerBlock, bool cloneStream) = 0;
    /// Writes what was changed into the storage; a commit of the storage then makes it durable.
    virtual void Flush() = 0;
    /// Drops what is only kept for speed, writing it first if need be.
    virtual void Purge() = 0;
    virtual void Open(IAStorage* storage, std::uint32_t headerBlock, bool writable, bool cloneStream) = 0;
    /// Deallocates everything, the header block too.
    virtual void Destroy() = 0;
    /// True if it replaced an equal member.
    virtual bool Put(std::unique_ptr<IAOrderedStorable> object) = 0;
    /// A copy of the member equal to the key, or null.
    virtual std::unique_ptr<IAOrderedStorable> Get(const IAOrderedStorable* key) = 0;
    /// True if a member was removed.
    virtual bool Remove(const IAOrderedStorable* key) = 0;
    virtual std::uint32_t Count() = 0;
    virtual std::uint32_t TotalSize() = 0;
    /// From the first member.  The set must outlive its iterators; it may change in the meantime.
    virtual std::unique_ptr<IAOrderedStorableIterator> MakeIterator() = 0;
    /// From the first member not less than the key.
    virtual std::unique_ptr<IAOrderedStorableIterator> MakeIterator(const IAOrderedStorable* from) = 0;
    /// About how far through the order a key lies: between 0 and 1, both excluded.
    virtual float PositionEstimate(const IAOrderedStorable* key) = 0;
    /// Does nothing.
    virtual void ReportStats() = 0;
    virtual IAMutex* GetMutex() = 0;
};

/// The one kind of set there is, with pages of IADiskBlockSize.  It restores its members through the prototype.
LORVALE_EXPORT std::unique_ptr<IAOrderedStorableSet> IAMakeOrderedStorableSet(
    std::unique_ptr<IAOrderedStorable> prototype);

inline constexpr std::uint32_t OrderedStorableSetType = IATag("BTr0");

/// What every index passes as `cloneStream`.
extern LORVALE_EXPORT bool IACloneOSSetStoreStreams;

}  // namespace brindle

// The roots, the scope guards, the mutexes and the bases of stored objects: what has a place but no behaviour.
#include "lorvale/toolkit/storage/mutex.h"
#include "lorvale/toolkit/storage/object.h"
#include "lorvale/toolkit/storage/skip_list.h"
#include "lorvale/toolkit/storage/storable.h"
#include "toolkit/storage/MemoryBlock.h"

namespace brindle {

IAStruct::~IAStruct() = default;
IAObject::~IAObject() = default;

IADeleteOnUnwind::~IADeleteOnUnwind() {
    delete object;
}

IADeleteArrayOnUnwind::~IADeleteArrayOnUnwind() {
    IAFree(array);
}

IADeletePointerArrayOnUnwind::~IADeletePointerArrayOnUnwind() {
    if (array == nullptr) return;
    for (std::size_t i = 0; i < count; ++i) delete array[i];
    IAFreeSized(array, count * BytesPerPointer);
}

IAMutex::~IAMutex() = default;
void IADefaultMutex::Lock() {}
void IADefaultMutex::Unlock() {}

std::unique_ptr<IAMutex> IADefaultMutexConstructor() {
    return std::make_unique<IADefaultMutex>();
}
std::unique_ptr<IAMutex> (*IANewMutex)() = &IADefaultMutexConstructor;

UInt32Set::~UInt32Set() = default;
UInt32VoidMap::~UInt32VoidMap() = default;
StringSet::~StringSet() = default;
StringUInt32Map::~StringUInt32Map() = default;

IAStorable::~IAStorable() = default;
void IAStorable::DeepCopying(const IAStorable*) {}
void IAStorable::Restoring(IAInputBlock*, const IAStorable*) {}
IAOrderedStorable::~IAOrderedStorable() = default;

int IAOrderedStorable::CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const {
    MemoryStream memory(stored, static_cast<std::uint32_t>(stored.size()));
    IAInputBlock input(&memory);
    const auto object = IARestoreFrom(*this, &input);
    return object->LessThan(key) ? -1 : object->Equal(key) ? 0 : 1;
}

std::uint32_t IAOrderedStorable::StoredSize(std::span<const std::uint8_t> stored) const {
    MemoryStream memory(stored, static_cast<std::uint32_t>(stored.size()));
    IAInputBlock input(&memory);
    Restore(&input);
    return input.GetPosition();
}

IAOrderedStorableIterator::~IAOrderedStorableIterator() = default;
IAOrderedStorableSet::~IAOrderedStorableSet() = default;
bool IACloneOSSetStoreStreams = false;

}  // namespace brindle

#include "lorvale/toolkit/retrieval/accessor.h"

#include <algorithm>

#include "lorvale/toolkit/storage/block.h"

namespace brindle {

// The block of an accessor, big-endian 32-bit fields:
//   offset
//        0  accessor type
//        4  the number of indexes
//        8  when each index was written last, in seconds since 1970; then the tables

IAAccessor::~IAAccessor() = default;

void IAAccessor::Constructing(std::span<IAIndex* const> ofIndices, std::uint32_t type) {
    if (isConstructed) return;
    IAAssertion(!ofIndices.empty(), "accessor without an index", IAAssertionFailure);
    isConstructed = true;
    indices.assign(ofIndices.begin(), ofIndices.end());
    accessorType = type;
}

void IAAccessor::CheckInitialized() const {
    IAAssertion(isInitialized, "accessor not initialized", IAAccessorNotInitialized);
}

IAAccessor::Place IAAccessor::FindPlace(IAStorage* storage, std::uint32_t block) const {
    if (storage == nullptr) storage = indices.front()->GetStorage();
    return {storage, block != 0 ? block : storage->TOC_Get(IADefaultAccessorName)};
}

IAAccessor::Place IAAccessor::MakePlace(IAStorage* storage, std::uint32_t block) const {
    if (storage == nullptr) storage = indices.front()->GetStorage();
    return {storage, block != 0 ? block : storage->GetNamedBlock(IADefaultAccessorName)};
}

/// Asked for before a block is open: an index's mutex comes before those of its storage.
std::vector<std::uint32_t> IAAccessor::IndexTimes() const {
    std::vector<std::uint32_t> times(indices.size());
    std::ranges::transform(indices, times.begin(), &IAIndex::UpdateTime);
    return times;
}

void IAAccessor::StoreInitValidation(IAOutputBlock* output, std::span<const std::uint32_t> times) const {
    output->WriteUInt32(accessorType);
    output->WriteUInt32(GetIndexCount());
    for (const std::uint32_t time : times) output->WriteUInt32(time);
}

/// Whether the tables are of these indexes, as they were at these times or, without any, at some time.
bool IAAccessor::RestoreInitValidation(IAInputBlock* input, std::span<const std::uint32_t> times) const {
    if (input->ReadUInt32() != accessorType || input->ReadUInt32() != GetIndexCount()) return false;
    std::vector<std::uint32_t> stored(indices.size());
    for (std::uint32_t& time : stored) time = input->ReadUInt32();
    return times.empty() || std::ranges::equal(stored, times);
}

void IAAccessor::StoreAt(Place place) {
    const auto times = IndexTimes();
    IAOutputBlock output(place.storage, place.block, InitValidationSize() + InitsSize());
    StoreInitValidation(&output, times);
    StoringInits(&output);
}

void IAAccessor::StoreInitialization(IAStorage* storage, std::uint32_t block) {
    IAAssertion(!isInitialized, "accessor already initialized", IAAccessorAlreadyInitialized);
    const Place place = MakePlace(storage, block);
    Initializing();
    isInitialized = true;
    StoreAt(place);
}

void IAAccessor::Initialize(IAStorage* storage, std::uint32_t block) {
    IAAssertion(!isInitialized, "accessor already initialized!", IAAccessorAlreadyInitialized);
    const Place place = FindPlace(storage, block);
    if (place.block == 0) {
        Initializing();
    } else {
        const auto times = IndexTimes();
        IAInputBlock input(place.storage, place.block);
        IAAssertion(RestoreInitValidation(&input, times), "invalid initialization", IAAccessorInitInvalid);
        RestoringInits(&input);
    }
    isInitialized = true;
}

void IAAccessor::InitializeAnew() {
    IAAssertion(!isInitialized, "accessor already initialized!", IAAccessorAlreadyInitialized);
    Initializing();
    isInitialized = true;
}

bool IAAccessor::IsInitializationValid(IAStorage* storage, std::uint32_t block) {
    const Place place = FindPlace(storage, block);
    if (place.block == 0) return false;
    const auto times = IndexTimes();
    IAInputBlock input(place.storage, place.block);
    return RestoreInitValidation(&input, times);
}

void IAAccessor::Update(IAStorage* storage, std::uint32_t block) {
    IAAssertion(!isInitialized, "accessor already initialized!", IAAccessorAlreadyInitialized);
    const Place place = FindPlace(storage, block);
    if (place.block == 0) {
        Initializing();
    } else {
        {
            IAInputBlock input(place.storage, place.block);
            IAAssertion(RestoreInitValidation(&input, {}), "invalid update operation", IAAccessorUpdateInvalid);
            UpdatingInits(&input);
        }
        ExtendingInits();
    }
    isInitialized = true;
}

void IAAccessor::Store(IAStorage* storage, std::uint32_t block) {
    CheckInitialized();
    StoreAt(MakePlace(storage, block));
}

}  // namespace brindle

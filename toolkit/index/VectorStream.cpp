#include "toolkit/index/VectorStream.h"

#include <algorithm>

#include "lorvale/toolkit/storage/block.h"
#include "toolkit/index/PostingCoding.h"
#include "toolkit/index/Probes.h"
#include "toolkit/index/RecordLimits.h"

namespace brindle {

std::span<const TFComponent> VectorBuffer::Read(IAStorage* storage, std::uint32_t block) {
    IAInputBlock input(storage, block);
    const std::uint32_t count = VInt32Read(&input);
    return Read(count, &input);
}

std::span<const TFComponent> VectorBuffer::Read(std::uint32_t count, IAInputBlock* input) {
    const std::uint32_t left = input->Remaining();
    IAAssertion(count <= left, "term vector damaged", IndexInvalid);
    const auto most =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(left, std::uint64_t{count} * kMaxPostingSize));
    if (bytes.size() < most) bytes.resize(most);
    if (components.size() < count) components.resize(count);
    input->ReadBuffer(bytes.data(), most);

    const std::uint8_t* from = bytes.data();
    const std::uint8_t* const end = from + most;
    std::uint32_t id = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        std::uint32_t delta = 0, freq = 0;
        from = TakePair(from, end, delta, freq);
        IAAssertion(from != nullptr && delta < kDocIDLimit - id, "term vector damaged", IndexInvalid);
        id += delta;
        components[i] = {id, freq};
    }
    bytesRead += static_cast<std::uint64_t>(from - bytes.data()) + VInt32Size(count);
    return std::span(components).first(count);
}

bool VectorStream::Next() {
    for (;;) {
        const std::uint64_t stamp = index.vectorsGone;
        info = RecordOf<VectorDocInfo>(infos->Next());
        if (info == nullptr) return false;
        if (ReadVector(stamp)) return true;
    }
}

/// False if the document has been deleted since its record was read.
bool VectorStream::ReadVector(std::uint64_t stamp) {
    const IALock lock(index.vectorMutex.get());
    if (index.vectorsGone != stamp) {
        info = RecordOf<VectorDocInfo>(index.GetDocInfo(info->GetDocument(), true));
        if (info == nullptr) return false;
    }
    components = buffer.Read(index.GetStorage(), info->GetVectorBlockID());
    return true;
}

}  // namespace brindle

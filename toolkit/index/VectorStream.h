#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "lorvale/toolkit/index/vector_index.h"

namespace brindle {

/// The memory into which vectors are read, one after the other.
class VectorBuffer {
public:
    /// Reads the vector in a block; the components are good until the next call.  Raises "term vector damaged"
    /// (IndexInvalid).  IDs may repeat, but do not fall.
    std::span<const TFComponent> Read(IAStorage* storage, std::uint32_t block);
    /// The same for components alone, where the input stands.
    std::span<const TFComponent> Read(std::uint32_t count, IAInputBlock* input);
    std::uint64_t BytesRead() const { return bytesRead; }

private:
    std::vector<std::uint8_t> bytes;
    std::vector<TFComponent> components;
    std::uint64_t bytesRead = 0;
};

/// All documents of an index with their vectors, in the order of documents.  It goes on when the index changes
/// meanwhile, and passes over what was deleted.  One thread.
class VectorStream {
public:
    explicit VectorStream(VectorIndex& ofIndex) : index(ofIndex), infos(index.GetDocInfoIterator()) {}

    /// False at the end.
    bool Next();
    const IADoc& Document() const { return *info->GetDocument(); }
    std::span<const TFComponent> Components() const { return components; }

private:
    bool ReadVector(std::uint64_t stamp);

    VectorIndex& index;
    const std::unique_ptr<IAOrderedStorableIterator> infos;
    std::unique_ptr<VectorDocInfo> info;
    VectorBuffer buffer;
    std::span<const TFComponent> components;
};

}  // namespace brindle

#include "toolkit/storage/BTreeHeader.h"

#include "lorvale/toolkit/storage/block.h"

namespace brindle {

void BTreeHeader::Write(IAStorage* storage, std::uint32_t block, IAStoreStream* stream) const {
    IAOutputBlock output(storage, block, StoreSize, stream);
    output.WriteUInt32(rootId);
    output.WriteUInt32(depth);
    output.WriteUInt32(count);
    output.WriteUInt32(pageCount);
    output.WriteUInt32(pageSize);
}

BTreeHeader BTreeHeader::Read(IAStorage* storage, std::uint32_t block, IAStoreStream* stream) {
    IAInputBlock input(storage, block, stream);
    BTreeHeader header;
    header.rootId = input.ReadUInt32();
    header.depth = input.ReadUInt32();
    header.count = input.ReadUInt32();
    header.pageCount = input.ReadUInt32();
    header.pageSize = input.ReadUInt32();
    return header;
}

}  // namespace brindle

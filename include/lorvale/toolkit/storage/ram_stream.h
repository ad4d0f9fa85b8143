#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/stream.h"

namespace brindle {

/// A store stream over memory, for a storage that goes with the program: a temporary index.
///
/// Clones share the memory, which goes with the last of them; while one writes nobody else reads or writes.
/// What a new block holds before it is written is zero.
class LORVALE_EXPORT RAMStoreStream : public IAStoreStream {
public:
    RAMStoreStream() : memory(std::make_shared<std::vector<std::uint8_t>>()) {}
    ~RAMStoreStream() override;

    std::unique_ptr<IAStoreStream> Clone() override;
    bool IsOpen() override { return isOpen; }
    bool IsWritable() override { return isOpen && isWritable; }
    void Initialize() override;
    void Open(bool writable) override;
    void Flush() override;
    std::uint32_t GetEOF() override { return static_cast<std::uint32_t>(memory->size()); }
    void SetEOF(std::uint32_t length) override;
    void Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) override;
    std::uint32_t Read(std::uint32_t address, std::uint8_t* bytes, std::uint32_t count) override;

private:
    explicit RAMStoreStream(std::shared_ptr<std::vector<std::uint8_t>> shared) : memory(std::move(shared)) {}

    std::shared_ptr<std::vector<std::uint8_t>> memory;
    bool isOpen = false;
    bool isWritable = false;
};

}  // namespace brindle

#include "lorvale/toolkit/analysis/term.h"

#include <cassert>
#include <cstring>

#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/memory.h"

namespace brindle {

void IATerm::FreeBytes::operator()(std::uint8_t* bytes) const noexcept {
    IAFreeSized(bytes, AllocatedSize(length));
}

IATerm::Bytes IATerm::Allocate(std::uint32_t length) {
    const std::uint32_t size = AllocatedSize(length);
    auto* const bytes = static_cast<std::uint8_t*>(IAMallocSized(size));
    std::memset(bytes + size - 4, 0, 4);
    return Bytes(bytes, FreeBytes{length});
}

IATerm::IATerm(std::string_view bytes) : data(Allocate(static_cast<std::uint32_t>(bytes.size()))) {
    if (!bytes.empty()) std::memcpy(data.get(), bytes.data(), bytes.size());
}

IATerm::IATerm(Bytes bytes) : data(std::move(bytes)) {
    assert(data != nullptr);
}

IATerm::~IATerm() = default;

std::unique_ptr<IAStorable> IATerm::DeepCopy() const {
    return std::make_unique<IATerm>(View());
}

std::uint32_t IATerm::StoreSize() const {
    return VInt32Size(GetLength()) + GetLength();
}

void IATerm::Store(IAOutputBlock* output) const {
    VInt32Write(GetLength(), output);
    output->WriteBuffer(GetData(), GetLength());
}

IATerm::Bytes IATerm::RestoreBytes(IAInputBlock* input) {
    const std::uint32_t length = VInt32Read(input);
    IAAssertion(length <= input->Remaining(), "term longer than its block", StorageInvalid);
    Bytes bytes = Allocate(length);
    input->ReadBuffer(bytes.get(), length);
    return bytes;
}

std::unique_ptr<IAStorable> IATerm::Restore(IAInputBlock* input) const {
    return std::make_unique<IATerm>(RestoreBytes(input));
}

bool IATerm::LessThan(const IAOrderedStorable* other) const {
    return View() < static_cast<const IATerm*>(other)->View();
}

bool IATerm::Equal(const IAOrderedStorable* other) const {
    return View() == static_cast<const IATerm*>(other)->View();
}

StringTerm::~StringTerm() = default;

std::unique_ptr<IAStorable> StringTerm::DeepCopy() const {
    return std::make_unique<StringTerm>(View());
}

std::unique_ptr<IAStorable> StringTerm::Restore(IAInputBlock* input) const {
    return std::make_unique<StringTerm>(RestoreBytes(input));
}

}  // namespace brindle

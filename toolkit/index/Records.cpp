#include "lorvale/toolkit/index/records.h"

#include <numeric>
#include <type_traits>

#include "lorvale/toolkit/storage/block.h"
#include "toolkit/index/StoredReader.h"

namespace brindle {

TFVector::TFVector(std::vector<TFComponent> ascending)
    : components(std::move(ascending)),
      total(std::accumulate(components.begin(), components.end(), std::uint32_t{0},
                            [](std::uint32_t sum, TFComponent each) { return sum + each.freq; })) {}

TFVector::~TFVector() = default;

// Terms are asked by IATerm's own operations: a subclass of it does not change the order of a table.
TermInfo::~TermInfo() = default;

std::unique_ptr<IAStorable> TermInfo::DeepCopy() const {
    auto copy = std::make_unique<TermInfo>();
    copy->DeepCopying(this);
    return copy;
}

std::uint32_t TermInfo::StoreSize() const {
    return term->StoreSize() + VInt32Size(termID) + VInt32Size(documentCount);
}

void TermInfo::Store(IAOutputBlock* output) const {
    term->Store(output);
    VInt32Write(termID, output);
    VInt32Write(documentCount, output);
}

std::unique_ptr<IAStorable> TermInfo::Restore(IAInputBlock* input) const {
    auto restored = std::make_unique<TermInfo>();
    restored->Restoring(input, this);
    return restored;
}

void TermInfo::DeepCopying(const IAStorable* source) {
    IAOrderedStorable::DeepCopying(source);
    const auto* const from = static_cast<const TermInfo*>(source);
    term = IADeepCopyOf(*from->term);
    termID = from->termID;
    documentCount = from->documentCount;
}

void TermInfo::Restoring(IAInputBlock* input, const IAStorable* prototype) {
    IAOrderedStorable::Restoring(input, prototype);
    term = IARestoreFrom(*static_cast<const TermInfo*>(prototype)->term, input);
    termID = VInt32Read(input);
    documentCount = VInt32Read(input);
}

bool TermInfo::LessThan(const IAOrderedStorable* other) const {
    return term->IATerm::LessThan(static_cast<const TermInfo*>(other)->term.get());
}

bool TermInfo::Equal(const IAOrderedStorable* other) const {
    return term->IATerm::Equal(static_cast<const TermInfo*>(other)->term.get());
}

int TermInfo::CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const {
    StoredReader reader(stored);
    const std::string_view found = reader.Text(reader.VInt32());
    return found.compare(static_cast<const TermInfo*>(key)->term->View());
}

std::uint32_t TermInfo::StoredSize(std::span<const std::uint8_t> stored) const {
    StoredReader reader(stored);
    reader.Skip(reader.VInt32());
    reader.VInt32();
    reader.VInt32();
    return reader.Taken();
}

DocInfo::~DocInfo() = default;

std::unique_ptr<IAStorable> DocInfo::DeepCopy() const {
    auto copy = std::make_unique<DocInfo>();
    copy->DeepCopying(this);
    return copy;
}

std::uint32_t DocInfo::StoreSize() const {
    return document->StoreSize() + VInt32Size(docID) + VInt32Size(documentLength);
}

void DocInfo::Store(IAOutputBlock* output) const {
    document->Store(output);
    VInt32Write(docID, output);
    VInt32Write(documentLength, output);
}

std::unique_ptr<IAStorable> DocInfo::Restore(IAInputBlock* input) const {
    auto restored = std::make_unique<DocInfo>();
    restored->Restoring(input, this);
    return restored;
}

void DocInfo::DeepCopying(const IAStorable* source) {
    IAOrderedStorable::DeepCopying(source);
    const auto* const from = static_cast<const DocInfo*>(source);
    document = IADeepCopyOf(*from->document);
    docID = from->docID;
    documentLength = from->documentLength;
}

void DocInfo::Restoring(IAInputBlock* input, const IAStorable* prototype) {
    IAOrderedStorable::Restoring(input, prototype);
    document = IARestoreFrom(*static_cast<const DocInfo*>(prototype)->document, input);
    docID = VInt32Read(input);
    documentLength = VInt32Read(input);
}

bool DocInfo::LessThan(const IAOrderedStorable* other) const {
    return document->LessThan(static_cast<const DocInfo*>(other)->document.get());
}

bool DocInfo::Equal(const IAOrderedStorable* other) const {
    return document->Equal(static_cast<const DocInfo*>(other)->document.get());
}

int DocInfo::CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const {
    const auto name = stored.first(document->StoredSize(stored));
    return document->CompareStored(name, static_cast<const DocInfo*>(key)->document.get());
}

std::uint32_t DocInfo::StoredSize(std::span<const std::uint8_t> stored) const {
    StoredReader reader(stored);
    reader.Skip(document->StoredSize(stored));
    reader.VInt32();
    reader.VInt32();
    return reader.Taken();
}

template <class Named>
int IDRecord<Named>::CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const {
    const std::uint32_t found = StoredReader(stored).VInt32();
    const std::uint32_t wanted = static_cast<const IDRecord*>(key)->id;
    return found > wanted ? -1 : found < wanted ? 1 : 0;
}

template <class Named>
std::uint32_t IDRecord<Named>::StoredSize(std::span<const std::uint8_t> stored) const {
    StoredReader reader(stored);
    reader.VInt32();
    if constexpr (std::is_same_v<Named, IATerm>) {
        reader.Skip(reader.VInt32());  // as all terms are stored
        return reader.Taken();
    }
    return reader.Taken() + value->StoredSize(stored.subspan(reader.Taken()));
}

template <class Named>
std::unique_ptr<IAStorable> IDRecord<Named>::DeepCopy() const {
    return std::make_unique<IDRecord>(id, IADeepCopyOf(*value));
}

template <class Named>
std::uint32_t IDRecord<Named>::StoreSize() const {
    return VInt32Size(id) + value->StoreSize();
}

template <class Named>
void IDRecord<Named>::Store(IAOutputBlock* output) const {
    VInt32Write(id, output);
    value->Store(output);
}

template <class Named>
std::unique_ptr<IAStorable> IDRecord<Named>::Restore(IAInputBlock* input) const {
    const std::uint32_t storedID = VInt32Read(input);
    return std::make_unique<IDRecord>(storedID, IARestoreFrom(*value, input));
}

template class IDRecord<IATerm>;
template class IDRecord<IADoc>;

TIDRename::~TIDRename() = default;

std::unique_ptr<IAStorable> TIDRename::DeepCopy() const {
    return std::make_unique<TIDRename>(newID, oldID);
}

std::uint32_t TIDRename::StoreSize() const {
    return VInt32Size(newID) + VInt32Size(oldID);
}

void TIDRename::Store(IAOutputBlock* output) const {
    VInt32Write(newID, output);
    VInt32Write(oldID, output);
}

std::unique_ptr<IAStorable> TIDRename::Restore(IAInputBlock* input) const {
    const std::uint32_t storedNewID = VInt32Read(input);
    return std::make_unique<TIDRename>(storedNewID, VInt32Read(input));
}

bool TIDRename::LessThan(const IAOrderedStorable* other) const {
    return newID < static_cast<const TIDRename*>(other)->newID;
}

bool TIDRename::Equal(const IAOrderedStorable* other) const {
    return newID == static_cast<const TIDRename*>(other)->newID;
}

}  // namespace brindle

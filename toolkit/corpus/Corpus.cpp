#include "lorvale/toolkit/corpus/corpus.h"

#include "lorvale/toolkit/storage/block.h"

namespace brindle {

namespace {

class CorpusDocIterator : public IADocIterator {
public:
    std::unique_ptr<IADoc> GetNextDoc() override { return nullptr; }
};

}  // namespace

IADoc::~IADoc() = default;
std::string IADoc::GetName() const {
    return {};
}

IADocText::~IADocText() = default;
IADocIterator::~IADocIterator() = default;
IACorpus::~IACorpus() = default;

std::unique_ptr<IADocIterator> IACorpus::GetDocIterator() const {
    return std::make_unique<CorpusDocIterator>();
}

std::uint32_t IACorpus::InitialSize() const {
    return 0;
}
IACorpus* IACorpus::Initializing(IAOutputBlock*) {
    return this;
}
IACorpus* IACorpus::Opening(IAInputBlock*) {
    return this;
}
std::uint32_t IACorpus::UpdateSize() const {
    return 0;
}
IACorpus* IACorpus::Updating(IAOutputBlock*) {
    return this;
}

IACorpus* IACorpus::Initialize(IAStorage* storage, std::uint32_t block) {
    IAOutputBlock output(storage, block, InitialSize());
    return Initializing(&output);
}

IACorpus* IACorpus::Open(IAStorage* storage, std::uint32_t block) {
    IAInputBlock input(storage, block);
    return Opening(&input);
}

IACorpus* IACorpus::Update(IAStorage* storage, std::uint32_t block) {
    IAOutputBlock output(storage, block, UpdateSize());
    return Updating(&output);
}

}  // namespace brindle

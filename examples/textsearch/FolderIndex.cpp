#include "FolderIndex.h"

#include <filesystem>
#include <stdexcept>

#include "IndexFile.h"
#include "TextIndex.h"

namespace fs = std::filesystem;

namespace {

/// Files may come and go while they are indexed: then what is left is looked at again.
constexpr int kMostAttempts = 20;

}  // namespace

FolderIndex::FolderIndex(const std::string& path, const std::string& words, const std::string& folder)
    : _path(path), _storage(makeIndexFile(path)) {
    attach(words, fs::canonical(folder).string());
    _index->Initialize();
}

FolderIndex::FolderIndex(const std::string& path, const std::string& words, bool forWriting)
    : _path(path), _storage(openIndexFile(path, forWriting)) {
    if (!isIn(path)) throw std::runtime_error(path + ": is not the index of a folder");
    attach(words, "");
    withIndexFile(path, [&] { _index->Open(); });
}

void FolderIndex::attach(const std::string& words, const std::string& folder) {
    brindle::UFSUnopenedPathReport = nullptr;  // standard output is for answers
    auto corpus = std::make_unique<brindle::UFSDirectoryCorpus>(folder);
    _corpus = corpus.get();
    // The index may lie in its folder; it is no text.
    const auto self = fs::absolute(_path).lexically_normal();
    _corpus->SetCriteriaFunction([self](const char* directory, const char* name) {
        return (fs::path(directory) / name).lexically_normal() != self;
    });
    _index = std::make_unique<brindle::InVecIndex>(_storage.get(), std::move(corpus), analysisWith(words));
    _index->SetBytesForUpdate(16'000'000);
}

bool FolderIndex::isIn(const std::string& path) {
    const auto storage = openIndexFile(path, false);
    const auto root = storage->TOC_Get(brindle::IADefaultIndexName);
    if (root == 0) return false;
    brindle::IAIndexTypes types;
    brindle::IAReadIndexTypes(storage.get(), root, &types);
    return types.indexType == brindle::InVecIndexType && types.corpusType == brindle::UFSDirectoryCorpus::Type;
}

void FolderIndex::update() {
    if (!fs::is_directory(_corpus->GetFullPath()))
        throw std::runtime_error(_corpus->GetFullPath() + ": the folder of this index is gone");
    for (int attempt = 1;; ++attempt) {
        try {
            _index->Update();
            break;
        } catch (const brindle::IAException& failure) {
            if (failure.GetCode() != brindle::InvalidDocument || attempt == kMostAttempts) throw;
        }
    }
    _index->Compact();
    _storage->Compact();
    _storage->Commit();
}

std::unique_ptr<brindle::IADoc> FolderIndex::documentOf(const std::string& file) {
    const fs::path path = fs::weakly_canonical(file);
    const auto directory = path.parent_path().string();
    for (std::uint32_t id = 0; id < _corpus->GetDirectoryCount(); ++id) {
        if (_corpus->GetDirectory(id) != directory + "/") continue;
        const brindle::UFSDirectoryDoc from(id, path.filename().string(), INT32_MIN);
        auto found = _index->GetDocIterator(&from)->GetNextDoc();
        if (found != nullptr && pathOf(*found) == path.string()) return found;
    }
    throw std::runtime_error(file + ": is not in the index");
}

std::string FolderIndex::pathOf(const brindle::IADoc& document) const {
    const auto& file = static_cast<const brindle::UFSDirectoryDoc&>(document);
    return _corpus->GetDirectory(file.GetDirectoryID()) + file.GetFileName();
}

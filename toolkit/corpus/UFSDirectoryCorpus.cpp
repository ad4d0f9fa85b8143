#include "lorvale/toolkit/corpus/ufs_directory_corpus.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <tuple>

#include "lorvale/toolkit/corpus/ufs_iterator.h"
#include "toolkit/corpus/StoredText.h"
#include "toolkit/corpus/UFSText.h"

namespace brindle {

namespace {

/// The documents of a corpus in their order, which is not that of the system's listings: directory by directory
/// as these are numbered, and in each one by name.
class UFSDirectoryCorpusIterator : public IADocIterator {
public:
    explicit UFSDirectoryCorpusIterator(const UFSDirectoryCorpus& ofCorpus)
        : corpus(ofCorpus), files(corpus.GetFullPath().c_str()) {
        for (const std::string& directory : files.GetDirInfos()) corpus.GetDirectoryID(directory);
        files.SortDirectories([this](const std::string& a, const std::string& b) {
            return corpus.GetDirectoryID(a) < corpus.GetDirectoryID(b);
        });
        more = files.Increment();
    }

    std::unique_ptr<IADoc> GetNextDoc() override {
        while (next == docs.size() && more) ReadDirectory();
        return next < docs.size() ? std::move(docs[next++]) : nullptr;
    }

private:
    void ReadDirectory() {
        docs.clear();
        next = 0;
        const std::uint32_t directory = files.GetDir();
        for (; more && files.GetDir() == directory; more = files.Increment()) {
            const auto& fits = corpus.GetCriteriaFunction();
            if (fits != nullptr && !fits(files.GetPath().c_str(), files.GetFileName().c_str())) continue;
            docs.push_back(std::make_unique<UFSDirectoryDoc>(
                corpus, files.GetPath(), files.GetFileName(),
                static_cast<std::int32_t>(
                    files.GetFileInfo().modificationTime)));  // seconds beyond 2038 wrap round
        }
        std::ranges::sort(docs, [](const auto& a, const auto& b) { return a->LessThan(b.get()); });
    }

    const UFSDirectoryCorpus& corpus;
    UFSIterator files;
    bool more = false;                                   // `files` stands on a file
    std::vector<std::unique_ptr<UFSDirectoryDoc>> docs;  // of one directory
    std::size_t next = 0;
};

}  // namespace

UFSDirectoryInfo::~UFSDirectoryInfo() = default;

bool UFSDirectoryInfo::FindDirectory(const char* path, std::uint32_t* date) {
    struct stat info {};
    if (::lstat(path, &info) != 0 || !S_ISDIR(info.st_mode) || ::access(path, X_OK) != 0) return false;
    if (date != nullptr) *date = static_cast<std::uint32_t>(info.st_ctime);
    return true;
}

std::unique_ptr<IAStorable> UFSDirectoryInfo::DeepCopy() const {
    return std::make_unique<UFSDirectoryInfo>(*this);
}

std::uint32_t UFSDirectoryInfo::StoreSize() const {
    return 8 + static_cast<std::uint32_t>(name.size());
}

void UFSDirectoryInfo::Store(IAOutputBlock* output) const {
    const auto length = static_cast<std::uint32_t>(name.size());
    output->WriteUInt32(creationDate);
    output->WriteUInt32(length);
    output->WriteBuffer(name.data(), length);
}

std::unique_ptr<IAStorable> UFSDirectoryInfo::Restore(IAInputBlock* input) const {
    const std::uint32_t date = input->ReadUInt32();
    const std::uint32_t length = input->ReadUInt32();
    return std::make_unique<UFSDirectoryInfo>(RestoreBytes(length, input), date);
}

UFSDirectoryDoc::UFSDirectoryDoc(const UFSDirectoryCorpus& corpus, std::string_view directory,
                                 std::string_view name, std::int32_t date)
    : UFSDirectoryDoc(corpus.GetDirectoryID(directory), name, date) {}

UFSDirectoryDoc::~UFSDirectoryDoc() = default;

std::string UFSDirectoryDoc::GetName() const {
    return fileName;
}

std::unique_ptr<IAStorable> UFSDirectoryDoc::DeepCopy() const {
    return std::make_unique<UFSDirectoryDoc>(directoryID, fileName, modDate);
}

std::uint32_t UFSDirectoryDoc::StoreSize() const {
    return VInt32Size(directoryID) + 4 + StoredTextSize(fileName);
}

void UFSDirectoryDoc::Store(IAOutputBlock* output) const {
    VInt32Write(directoryID, output);
    output->WriteUInt32(static_cast<std::uint32_t>(modDate));
    StoreText(fileName, output);
}

std::unique_ptr<IAStorable> UFSDirectoryDoc::Restore(IAInputBlock* input) const {
    const std::uint32_t id = VInt32Read(input);
    const auto date = static_cast<std::int32_t>(input->ReadUInt32());
    return std::make_unique<UFSDirectoryDoc>(id, RestoreText(input), date);
}

bool UFSDirectoryDoc::LessThan(const IAOrderedStorable* other) const {
    const auto& that = *static_cast<const UFSDirectoryDoc*>(other);
    return std::tie(directoryID, fileName, modDate) < std::tie(that.directoryID, that.fileName, that.modDate);
}

bool UFSDirectoryDoc::Equal(const IAOrderedStorable* other) const {
    const auto& that = *static_cast<const UFSDirectoryDoc*>(other);
    return directoryID == that.directoryID && modDate == that.modDate && fileName == that.fileName;
}

std::uint32_t UFSDirectoryDoc::StoredSize(std::span<const std::uint8_t> stored) const {
    auto rest = stored;
    VInt32Read(rest);
    IAAssertion(rest.size() >= 4, "document longer than its block", StorageInvalid);
    rest = rest.subspan(4);
    TakeText(rest);
    return static_cast<std::uint32_t>(stored.size() - rest.size());
}

UFSDirectoryCorpus::UFSDirectoryCorpus(std::string_view root, std::uint32_t typeTag)
    : IACorpus(typeTag), mutex(IANewMutex()), fullPath(root) {}

UFSDirectoryCorpus::UFSDirectoryCorpus(const UFSDirectoryCorpus& other)
    : IACorpus(Type),
      mutex(IANewMutex()),
      fullPath(other.GetFullPath()),
      criteriaFunction(other.criteriaFunction) {
    for (UFSDirectoryInfo& info : other.GetDirectoryInfos()) EnterDirectory(std::move(info));
}

UFSDirectoryCorpus::~UFSDirectoryCorpus() = default;

std::unique_ptr<IADoc> UFSDirectoryCorpus::GetProtoDoc() const {
    return std::make_unique<UFSDirectoryDoc>();
}

std::unique_ptr<IADocText> UFSDirectoryCorpus::GetDocText(const IADoc* doc) const {
    const auto& file = *static_cast<const UFSDirectoryDoc*>(doc);
    return OpenDocText((GetDirectory(file.GetDirectoryID()) + file.GetFileName()).c_str());
}

std::unique_ptr<IADocIterator> UFSDirectoryCorpus::GetDocIterator() const {
    return std::make_unique<UFSDirectoryCorpusIterator>(*this);
}

std::uint32_t UFSDirectoryCorpus::GetDirectoryID(std::string_view directory) const {
    const IALock lock(mutex.get());
    if (const auto known = directoryIDs.find(directory); known != directoryIDs.end()) return known->second;
    UFSDirectoryInfo info{std::string(directory)};
    std::uint32_t date = 0;
    if (UFSDirectoryInfo::FindDirectory(info.GetDirectoryName().c_str(), &date)) info.SetCreationDate(date);
    EnterDirectory(std::move(info));
    return static_cast<std::uint32_t>(directoryInfos.size() - 1);
}

/// Under the mutex.  Of two of one name the first one is found by it.
void UFSDirectoryCorpus::EnterDirectory(UFSDirectoryInfo info) const {
    directoryIDs.try_emplace(info.GetDirectoryName(), static_cast<std::uint32_t>(directoryInfos.size()));
    directoryInfos.push_back(std::move(info));
}

std::string UFSDirectoryCorpus::GetDirectory(std::uint32_t directoryID) const {
    const IALock lock(mutex.get());
    IAAssertion(directoryID < directoryInfos.size(), "cannot get directory info", InvalidDocument);
    return directoryInfos[directoryID].GetDirectoryName() + "/";
}

std::uint32_t UFSDirectoryCorpus::GetDirectoryCount() const {
    const IALock lock(mutex.get());
    return static_cast<std::uint32_t>(directoryInfos.size());
}

std::vector<UFSDirectoryInfo> UFSDirectoryCorpus::GetDirectoryInfos() const {
    const IALock lock(mutex.get());
    return directoryInfos;
}

std::string UFSDirectoryCorpus::GetFullPath() const {
    const IALock lock(mutex.get());
    return fullPath;
}

std::uint32_t UFSDirectoryCorpus::InitialSize() const {
    const IALock lock(mutex.get());
    std::uint32_t size =
        VInt32Size(static_cast<std::uint32_t>(directoryInfos.size())) + StoredTextSize(fullPath);
    for (const UFSDirectoryInfo& info : directoryInfos) size += info.StoreSize();
    return size;
}

IACorpus* UFSDirectoryCorpus::Initializing(IAOutputBlock* output) {
    const IALock lock(mutex.get());
    VInt32Write(static_cast<std::uint32_t>(directoryInfos.size()), output);
    for (const UFSDirectoryInfo& info : directoryInfos) info.Store(output);
    StoreText(fullPath, output);
    return this;
}

IACorpus* UFSDirectoryCorpus::Opening(IAInputBlock* input) {
    const IALock lock(mutex.get());
    directoryInfos.clear();
    directoryIDs.clear();
    const UFSDirectoryInfo prototype;
    for (std::uint32_t left = VInt32Read(input); left > 0; --left)
        EnterDirectory(std::move(*IARestoreFrom(prototype, input)));
    fullPath = RestoreText(input);
    return this;
}

std::uint32_t UFSDirectoryCorpus::UpdateSize() const {
    return InitialSize();
}

IACorpus* UFSDirectoryCorpus::Updating(IAOutputBlock* output) {
    return Initializing(output);
}

}  // namespace brindle

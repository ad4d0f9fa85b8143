#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/corpus/corpus.h"
#include "lorvale/toolkit/storage/mutex.h"

namespace brindle {

class UFSDirectoryCorpus;

/// A directory in the table of a corpus.  Stored form: creationDate and the length of the name, 32 bits each,
/// then the name's bytes.
class LORVALE_EXPORT UFSDirectoryInfo : public IAStorable {
public:
    explicit UFSDirectoryInfo(std::string directory = {}, std::uint32_t date = 0)
        : name(std::move(directory)), creationDate(date) {}
    ~UFSDirectoryInfo() override;

    /// Whether there is a directory of that path that may be searched; `date` is set to when it was last
    /// changed, in seconds since 1970.
    static bool FindDirectory(const char* path, std::uint32_t* date = nullptr);

    void SetCreationDate(std::uint32_t date) { creationDate = date; }
    std::uint32_t GetCreationDate() const { return creationDate; }
    void SetDirectoryName(std::string directory) { name = std::move(directory); }
    const std::string& GetDirectoryName() const { return name; }

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;

private:
    std::string name;
    std::uint32_t creationDate;
};

/// A file in one of the corpus's directories, as it was at some time: a file that was changed since is another
/// document.
///
/// Stored form: directoryID as a VInt32, modDate in 32 bits, the length of the name as a VInt32, its bytes.
/// Ordered by directoryID, then by the bytes of the name, then by modDate.
class LORVALE_EXPORT UFSDirectoryDoc : public IADoc {
public:
    UFSDirectoryDoc() = default;
    /// The directory gets an ID if it has none yet.  The date is in seconds since 1970.
    UFSDirectoryDoc(const UFSDirectoryCorpus& corpus, std::string_view directory, std::string_view name,
                    std::int32_t date);
    UFSDirectoryDoc(std::uint32_t ofDirectory, std::string_view name, std::int32_t date)
        : directoryID(ofDirectory), modDate(date), fileName(name.substr(0, name.find('\0'))) {}
    ~UFSDirectoryDoc() override;

    std::uint32_t GetDirectoryID() const { return directoryID; }
    std::int32_t GetModDate() const { return modDate; }
    /// Terminated.
    const char* GetFileName() const { return fileName.c_str(); }
    /// The file's name, without its directory.
    std::string GetName() const override;

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    bool LessThan(const IAOrderedStorable* other) const override;
    bool Equal(const IAOrderedStorable* other) const override;
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override;

private:
    std::uint32_t directoryID = 0;
    std::int32_t modDate = 0;
    std::string fileName;
};

/// The corpus of all files below one directory.  IAIndex::Update() brings an index in line with it: what was
/// changed, or has come or gone, is indexed again, added or deleted.
///
/// The table of its directories is stored with the index, so that their IDs stay the same.  A directory that is
/// gone keeps its ID.  Any number of threads may ask it for texts while one iterates.
class LORVALE_EXPORT UFSDirectoryCorpus : public IACorpus {
public:
    static constexpr std::uint32_t Type = IATag("UFD0");
    /// Whether the file of that name in the directory of that path is a document.
    using CriteriaFunction = std::function<bool(const char* path, const char* name)>;

    explicit UFSDirectoryCorpus(std::string_view root = {}, std::uint32_t typeTag = Type);
    /// Like all corpora that are made by copying it is of that Type.
    UFSDirectoryCorpus(const UFSDirectoryCorpus& other);
    UFSDirectoryCorpus& operator=(const UFSDirectoryCorpus&) = delete;
    ~UFSDirectoryCorpus() override;

    std::unique_ptr<IADoc> GetProtoDoc() const override;
    /// Raises "Cannot open UFSDoc for read" (InvalidDocument), and "cannot get directory info" for a document
    /// of a directory that is not in the table.
    std::unique_ptr<IADocText> GetDocText(const IADoc* doc) const override;
    /// Raises UFSError when the root cannot be walked.
    std::unique_ptr<IADocIterator> GetDocIterator() const override;

    /// Every directory that is walked has an entry, whether it holds documents or not.
    std::uint32_t GetDirectoryID(std::string_view directory) const;
    /// The directory's path and "/".  Raises "cannot get directory info" (InvalidDocument).
    std::string GetDirectory(std::uint32_t directoryID) const;
    std::uint32_t GetDirectoryCount() const;
    /// A copy of the table.
    std::vector<UFSDirectoryInfo> GetDirectoryInfos() const;
    /// The root.
    std::string GetFullPath() const;
    /// Null for all files.
    void SetCriteriaFunction(CriteriaFunction function) { criteriaFunction = std::move(function); }
    const CriteriaFunction& GetCriteriaFunction() const { return criteriaFunction; }

    // Stored form: the number of directories as a VInt32, each UFSDirectoryInfo, the length of fullPath as a
    // VInt32, its bytes.
    std::uint32_t InitialSize() const override;
    IACorpus* Initializing(IAOutputBlock* output) override;
    IACorpus* Opening(IAInputBlock* input) override;
    std::uint32_t UpdateSize() const override;
    IACorpus* Updating(IAOutputBlock* output) override;

private:
    void EnterDirectory(UFSDirectoryInfo info) const;

    const std::unique_ptr<IAMutex> mutex;  // guards the table and the path
    std::string fullPath;
    mutable std::vector<UFSDirectoryInfo> directoryInfos;                    // by ID
    mutable std::map<std::string, std::uint32_t, std::less<>> directoryIDs;  // by name
    CriteriaFunction criteriaFunction;
};

}  // namespace brindle

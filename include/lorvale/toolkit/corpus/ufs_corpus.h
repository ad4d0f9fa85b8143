#pragma once
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/toolkit/corpus/corpus.h"

namespace brindle {

/// A document that is a file, named by its path.
///
/// Stored form: the length as a VInt32, then the bytes of the path.  Ordered by bytes (unsigned), a prefix
/// first.
class LORVALE_EXPORT UFSDoc : public IADoc {
public:
    /// A path ends at its first zero byte.
    explicit UFSDoc(std::string_view filePath = {}) { SetName(filePath); }
    ~UFSDoc() override;

    /// Terminated.
    const char* GetPath() const { return path.c_str(); }
    void SetName(std::string_view filePath) { path = filePath.substr(0, filePath.find('\0')); }
    /// The path.
    std::string GetName() const override;

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    /// Raises StorageInvalid for a length that the block cannot hold.
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    bool LessThan(const IAOrderedStorable* other) const override;
    bool Equal(const IAOrderedStorable* other) const override;
    int CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const override;
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override;

private:
    std::string path;
};

/// The bytes of a file.
class LORVALE_EXPORT UFSDocText : public IADocText {
public:
    /// Opens the file; IsOpen() tells whether that went well.  A text without a file has no bytes.
    explicit UFSDocText(const char* path);
    ~UFSDocText() override;

    bool IsOpen() const { return file != nullptr; }
    /// A failure of the disk ends the text like its end does.
    std::uint32_t GetNextBuffer(std::uint8_t* buffer, std::uint32_t size) override;
    /// Unlike that of other texts a copy is not independent: both read on from one position in the one open
    /// file.  To read a file from its start again, make another UFSDocText.
    std::unique_ptr<IADocText> DeepCopy() const override;

private:
    explicit UFSDocText(std::shared_ptr<std::FILE> shared) : file(std::move(shared)) {}

    std::shared_ptr<std::FILE> file;  // null if it could not be opened
};

/// Is told the path of a document that cannot be opened, right before InvalidDocument is raised.  At the start
/// it prints the path on standard output, which programs read there; a host that has other use for that, or a
/// better place for messages, sets its own, or null for none.
extern LORVALE_EXPORT void (*UFSUnopenedPathReport)(const char* path);

/// The corpus of files anywhere in the file system.  Its documents are given to the index one by one.
class LORVALE_EXPORT UFSCorpus : public IACorpus {
public:
    UFSCorpus() : IACorpus(IATag("UFS0")) {}
    ~UFSCorpus() override;

    std::unique_ptr<IADoc> GetProtoDoc() const override;
    /// Raises "Cannot open UFSDoc for read" (InvalidDocument).
    std::unique_ptr<IADocText> GetDocText(const IADoc* doc) const override;
};

}  // namespace brindle

#include "lorvale/toolkit/corpus/ufs_corpus.h"

#include <sys/stat.h>

#include "lorvale/toolkit/storage/exception.h"
#include "toolkit/corpus/StoredText.h"
#include "toolkit/corpus/UFSText.h"

namespace brindle {

namespace {

void printPath(const char* path) {
    std::printf("%s\n", path);
}

/// A folder can be opened like a file, and then not be read.
std::shared_ptr<std::FILE> openFile(const char* path) {
    std::FILE* const opened = std::fopen(path, "rbe");
    if (opened == nullptr) return nullptr;
    std::shared_ptr<std::FILE> file(opened, [](std::FILE* each) { std::fclose(each); });
    struct stat info {};
    return ::fstat(::fileno(opened), &info) == 0 && !S_ISDIR(info.st_mode) ? file : nullptr;
}

}  // namespace

void (*UFSUnopenedPathReport)(const char* path) = printPath;

UFSDoc::~UFSDoc() = default;

std::string UFSDoc::GetName() const {
    return path;
}

std::unique_ptr<IAStorable> UFSDoc::DeepCopy() const {
    return std::make_unique<UFSDoc>(path);
}

std::uint32_t UFSDoc::StoreSize() const {
    return StoredTextSize(path);
}

void UFSDoc::Store(IAOutputBlock* output) const {
    StoreText(path, output);
}

std::unique_ptr<IAStorable> UFSDoc::Restore(IAInputBlock* input) const {
    return std::make_unique<UFSDoc>(RestoreText(input));
}

bool UFSDoc::LessThan(const IAOrderedStorable* other) const {
    return path < static_cast<const UFSDoc*>(other)->path;
}

bool UFSDoc::Equal(const IAOrderedStorable* other) const {
    return path == static_cast<const UFSDoc*>(other)->path;
}

std::uint32_t UFSDoc::StoredSize(std::span<const std::uint8_t> stored) const {
    auto rest = stored;
    TakeText(rest);
    return static_cast<std::uint32_t>(stored.size() - rest.size());
}

int UFSDoc::CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const {
    const std::string_view found = TakeText(stored);
    return found.substr(0, found.find('\0')).compare(static_cast<const UFSDoc*>(key)->path);
}

UFSDocText::UFSDocText(const char* path) : file(openFile(path)) {}

UFSDocText::~UFSDocText() = default;

std::uint32_t UFSDocText::GetNextBuffer(std::uint8_t* buffer, std::uint32_t size) {
    return file != nullptr ? static_cast<std::uint32_t>(std::fread(buffer, 1, size, file.get())) : 0;
}

std::unique_ptr<IADocText> UFSDocText::DeepCopy() const {
    return std::unique_ptr<IADocText>(new UFSDocText(file));
}

std::unique_ptr<IADocText> OpenDocText(const char* path) {
    auto text = std::make_unique<UFSDocText>(path);
    if (!text->IsOpen()) {
        if (UFSUnopenedPathReport != nullptr) UFSUnopenedPathReport(path);
        IAFail("Cannot open UFSDoc for read", InvalidDocument);
    }
    return text;
}

UFSCorpus::~UFSCorpus() = default;

std::unique_ptr<IADoc> UFSCorpus::GetProtoDoc() const {
    return std::make_unique<UFSDoc>();
}

std::unique_ptr<IADocText> UFSCorpus::GetDocText(const IADoc* doc) const {
    return OpenDocText(static_cast<const UFSDoc*>(doc)->GetPath());
}

}  // namespace brindle

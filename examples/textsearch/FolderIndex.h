#pragma once
#include <lorvale/toolkit.h>

#include <memory>
#include <string>

/// An index file of a folder of text files, with lists and vectors.  The folder is remembered in it.
class FolderIndex {
public:
    /// A new one for the folder, which replaces a file of that name.
    FolderIndex(const std::string& path, const std::string& words, const std::string& folder);
    /// Opens one.
    FolderIndex(const std::string& path, const std::string& words, bool forWriting);

    /// Whether a file holds such an index.
    static bool isIn(const std::string& path);

    /// Brings the index in line with the folder, and makes all durable.
    void update();
    brindle::InVecIndex& index() { return *_index; }
    /// The document of a file, as it was when it was indexed; throws std::runtime_error for one that is not
    /// indexed.
    std::unique_ptr<brindle::IADoc> documentOf(const std::string& file);
    /// The path of a document.
    std::string pathOf(const brindle::IADoc& document) const;

private:
    void attach(const std::string& words, const std::string& folder);

    const std::string _path;
    std::unique_ptr<brindle::IAStorage> _storage;
    brindle::UFSDirectoryCorpus* _corpus = nullptr;  // the index's
    std::unique_ptr<brindle::InVecIndex> _index;
};

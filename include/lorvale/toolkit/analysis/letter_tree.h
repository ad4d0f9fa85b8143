#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/storable.h"

namespace brindle {

class IACharStream;
class WordIndex;

/// A set of words, stored as a tree of letters: stopwords, abbreviations.
///
/// A word begins with a lower-case letter from a to z and has at most 255 bytes, up to its first zero byte; one
/// that does not fit is ignored.  A list of words is text in which they stand between blanks and line ends;
/// they are lower-cased and cut to 129 bytes.
///
/// Stored form: the number of bytes that follow, 32 bits, big-endian; then all words, each followed by one
/// blank. They stand in the order of a walk: by first letter, then at each further letter as these first came
/// along. "be", "an", "bad" and "bet":  00 00 00 0E  "an be bet bad "
class LORVALE_EXPORT LetterTree : public IAStorable {
public:
    static constexpr std::size_t MaxWordLength = 255;

    LetterTree();
    /// Reads the stored form; raises "letter tree longer than its block" (StorageInvalid).
    explicit LetterTree(IAInputBlock* input);
    ~LetterTree() override;

    void Add(std::string_view word);
    bool Contains(std::string_view word) const;
    void EmptyTree();
    /// Adds the words of a file; raises "file not opened successfully".
    void LoadFromFile(const char* path);
    void LoadFromStream(std::unique_ptr<IACharStream> characters);

    /// Null: trees are not copied.
    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;

private:
    static constexpr std::uint32_t None = 0;  // the root is nobody's child or sibling
    struct Node {
        char letter;  // 0 ends a word
        std::uint32_t child = None;
        std::uint32_t sibling = None;
    };

    std::uint32_t ChildFor(std::uint32_t parent, char letter);
    void AppendWordsBelow(std::uint32_t parent, std::string& word, std::string& words) const;
    std::string AllWords() const;

    std::vector<Node> nodes;           // the first is the root; for the stored order alone
    std::unique_ptr<WordIndex> index;  // the same words, for finding
};

}  // namespace brindle

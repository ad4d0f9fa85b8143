#include "lorvale/toolkit/analysis/letter_tree.h"

#include "lorvale/toolkit/storage/block.h"
#include "toolkit/analysis/ByteClasses.h"
#include "toolkit/analysis/ListReader.h"
#include "toolkit/analysis/WordIndex.h"

namespace brindle {

namespace {

constexpr std::uint32_t kRoot = 0;

bool fits(std::string_view word) {
    return !word.empty() && IsLower(word[0]) && word.size() <= LetterTree::MaxWordLength &&
           word.find('\0') == word.npos;
}

}  // namespace

LetterTree::LetterTree() {
    EmptyTree();
}

LetterTree::LetterTree(IAInputBlock* input) : LetterTree() {
    const std::uint32_t length = input->ReadUInt32();
    IAAssertion(length <= input->Remaining(), "letter tree longer than its block", StorageInvalid);
    auto words = std::make_unique_for_overwrite<char[]>(length);
    input->ReadBuffer(words.get(), length);
    LoadFromStream(std::make_unique<StringCharStream>(std::move(words), length));
}

LetterTree::~LetterTree() = default;

void LetterTree::EmptyTree() {
    nodes.assign(1, Node{});
    // The walk that stores the words takes these letters first, in their order.
    for (char letter = 'a'; letter <= 'z'; ++letter) ChildFor(kRoot, letter);
    index = std::make_unique<WordIndex>();
}

/// The child of that letter; it is appended to the others if it is not there yet.
std::uint32_t LetterTree::ChildFor(std::uint32_t parent, char letter) {
    std::uint32_t last = None;
    for (std::uint32_t child = nodes[parent].child; child != None; child = nodes[child].sibling) {
        if (nodes[child].letter == letter) return child;
        last = child;
    }
    const auto added = static_cast<std::uint32_t>(nodes.size());
    nodes.push_back({letter});
    (last == None ? nodes[parent].child : nodes[last].sibling) = added;
    return added;
}

void LetterTree::Add(std::string_view word) {
    if (!fits(word)) return;
    const std::uint32_t before = index->Count();
    if (index->Add(word) != before) return;
    std::uint32_t at = kRoot;
    for (const char letter : word) at = ChildFor(at, letter);
    ChildFor(at, '\0');
}

bool LetterTree::Contains(std::string_view word) const {
    return index->Find(word) != WordIndex::None;
}

void LetterTree::LoadFromFile(const char* path) {
    LoadFromStream(OpenList(path));
}

void LetterTree::LoadFromStream(std::unique_ptr<IACharStream> characters) {
    ReadList(std::move(characters), [this](std::string_view word) { Add(word); });
}

/// No deeper than the longest word.
void LetterTree::AppendWordsBelow(std::uint32_t parent, std::string& word, std::string& words) const {
    for (std::uint32_t child = nodes[parent].child; child != None; child = nodes[child].sibling) {
        if (nodes[child].letter == '\0') {
            (words += word) += ' ';
            continue;
        }
        word += nodes[child].letter;
        AppendWordsBelow(child, word, words);
        word.pop_back();
    }
}

std::string LetterTree::AllWords() const {
    std::string word, words;
    AppendWordsBelow(kRoot, word, words);
    return words;
}

std::unique_ptr<IAStorable> LetterTree::DeepCopy() const {
    return nullptr;
}

std::uint32_t LetterTree::StoreSize() const {
    return 4 + static_cast<std::uint32_t>(AllWords().size());
}

void LetterTree::Store(IAOutputBlock* output) const {
    const std::string words = AllWords();
    output->WriteUInt32(static_cast<std::uint32_t>(words.size()));
    output->WriteBuffer(words.data(), static_cast<std::uint32_t>(words.size()));
}

std::unique_ptr<IAStorable> LetterTree::Restore(IAInputBlock* input) const {
    return std::make_unique<LetterTree>(input);
}

}  // namespace brindle

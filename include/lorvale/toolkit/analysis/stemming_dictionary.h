#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

class IACharStream;
class WordIndex;

/// Stems of words that no rule about endings brings together: "went" and "gone" are "go".
///
/// A list is text in tokens between blanks and line ends, each lower-cased and cut to 129 bytes.  One that
/// begins with the byte 0xA5 names a stem (at most 63 bytes count); all others are words of the stem before
/// them.  A word before the first stem has none and is passed over; of a word named twice the last stem counts.
class LORVALE_EXPORT StemmingDictionary : public IAObject {
public:
    static constexpr char StemMark = '\xA5';
    static constexpr std::size_t MaxStemLength = 63;

    StemmingDictionary();
    ~StemmingDictionary() override;

    /// The stem of a word, good until the dictionary changes; nullopt if it is not there.
    std::optional<std::string_view> Stem(std::string_view word) const;

    /// One token of a list.
    void Add(std::string_view token);
    void AddStem(std::string_view stem);
    /// A word of the stem that was added last.
    void AddWord(std::string_view word);
    /// Raises "file not opened successfully".
    void LoadFromFile(const char* path);
    void LoadFromStream(std::unique_ptr<IACharStream> characters);

private:
    std::vector<std::string> stems;
    std::vector<std::uint32_t> stemOfWord;  // by the word's number in the index
    std::unique_ptr<WordIndex> words;
};

}  // namespace brindle

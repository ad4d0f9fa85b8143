#include "lorvale/toolkit/analysis/analysis.h"

#include "lorvale/toolkit/analysis/char_stream.h"
#include "lorvale/toolkit/analysis/filters.h"
#include "lorvale/toolkit/analysis/stemmers.h"
#include "lorvale/toolkit/analysis/tokenizers.h"

namespace brindle {

namespace {

constexpr std::uint32_t kShortestWord = 3;

// Comma, full stop, and the apostrophe in the forms that it has in typewriter text and in the one-byte text
// encodings of mail, the backquote among them.
constexpr std::string_view kEnglishExtraChars = ",.'\xD5\xAB`";

std::unique_ptr<IACharStream> charactersOf(std::unique_ptr<IADocText> text) {
    return std::make_unique<DocTextCharStream>(std::move(text));
}

template <class List>
std::unique_ptr<const List> listFrom(std::unique_ptr<IADocText> text) {
    if (text == nullptr) return nullptr;
    auto list = std::make_unique<List>();
    list->LoadFromStream(charactersOf(std::move(text)));
    return list;
}

template <class List>
std::unique_ptr<const List> listFrom(const char* path) {
    if (path == nullptr || *path == '\0') return nullptr;
    auto list = std::make_unique<List>();
    list->LoadFromFile(path);
    return list;
}

}  // namespace

IAAnalysis::~IAAnalysis() = default;

IAAnalysis* IAAnalysis::Initialize(IAStorage*, std::uint32_t) {
    return this;
}

IAAnalysis* IAAnalysis::Open(IAStorage*, std::uint32_t) {
    return this;
}

SimpleAnalysis::~SimpleAnalysis() = default;

std::unique_ptr<IATokenStream> SimpleAnalysis::MakeTokenStream(std::unique_ptr<IADocText> text) const {
    auto letters = std::make_unique<AlphaTokenizer>(charactersOf(std::move(text)));
    auto words = std::make_unique<ShortWordFilter>(std::move(letters), kShortestWord);
    return std::make_unique<DowncaseFilter>(std::move(words));
}

std::unique_ptr<IATerm> SimpleAnalysis::GetProtoTerm() const {
    return std::make_unique<StringTerm>();
}

OneByteAnalysis::~OneByteAnalysis() = default;

std::unique_ptr<IATokenStream> OneByteAnalysis::MakeTokenStream(std::unique_ptr<IADocText> text) const {
    return std::make_unique<OneByteASCIITokenizer>(charactersOf(std::move(text)), ".,");
}

std::unique_ptr<IATerm> OneByteAnalysis::GetProtoTerm() const {
    return std::make_unique<StringTerm>();
}

EnglishAnalysis::EnglishAnalysis() : IAAnalysis(IATag("Eng1")) {}

EnglishAnalysis::EnglishAnalysis(std::unique_ptr<IADocText> stopwordList,
                                 std::unique_ptr<IADocText> substitutionList)
    : IAAnalysis(IATag("Eng1")),
      stopwords(listFrom<LetterTree>(std::move(stopwordList))),
      dictionary(listFrom<StemmingDictionary>(std::move(substitutionList))) {}

EnglishAnalysis::EnglishAnalysis(const char* stopwordPath, const char* substitutionPath)
    : IAAnalysis(IATag("Eng1")),
      stopwords(listFrom<LetterTree>(stopwordPath)),
      dictionary(listFrom<StemmingDictionary>(substitutionPath)) {}

EnglishAnalysis::~EnglishAnalysis() = default;

std::unique_ptr<IATokenStream> EnglishAnalysis::MakeTokenStream(std::unique_ptr<IADocText> text) const {
    return FilterWords(
        std::make_unique<OneByteASCIITokenizer>(charactersOf(std::move(text)), kEnglishExtraChars));
}

std::unique_ptr<IATokenStream> EnglishAnalysis::FilterWords(std::unique_ptr<IATokenStream> words) const {
    if (stopwords != nullptr) words = std::make_unique<StopwordFilter>(std::move(words), stopwords.get());
    if (dictionary != nullptr) words = std::make_unique<DictionaryStemmer>(std::move(words), dictionary.get());
    return std::make_unique<EnglishStemmer>(std::move(words));
}

std::unique_ptr<IATerm> EnglishAnalysis::GetProtoTerm() const {
    return std::make_unique<StringTerm>();
}

}  // namespace brindle

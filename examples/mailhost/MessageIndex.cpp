#include "MessageIndex.h"

#include <cstdio>

#include "BodyText.h"
#include "OwnText.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/platform/paths.h"

namespace mailhost {

/// Lends the index the one text that is being added.
class MessageIndex::Corpus : public brindle::IACorpus {
public:
    Corpus() : IACorpus(brindle::IATag("Msg0")) {}
    std::unique_ptr<brindle::IADoc> GetProtoDoc() const override {
        return std::make_unique<brindle::StringDoc>();
    }
    std::unique_ptr<brindle::IADocText> GetDocText(const brindle::IADoc*) const override {
        return std::make_unique<brindle::StringDocText>(text);
    }
    std::string text;
};

std::unique_ptr<brindle::EnglishAnalysis> englishAnalysis() {
    const auto stopwords = lorvale::pathForResource("EnglishStopwords", "");
    const auto substitutions = lorvale::pathForResource("EnglishSubstitutions", "");
    return std::make_unique<brindle::EnglishAnalysis>(stopwords ? stopwords->c_str() : "",
                                                      substitutions ? substitutions->c_str() : "");
}

std::string wordsOf(lorvale::Message& message) {
    const auto text = decodedText(message);
    std::string words;
    for (const auto& run : text.runs()) words += run.attributes.attachment ? "\n" : run.text;
    return words;
}

std::string textAbout(lorvale::Message& message, Extent extent) {
    const auto summary = message.headers()->summary();
    const auto body = wordsOf(message);
    return summary.subject + "\n" + summary.from + "\n" + (extent == Extent::own ? ownText(body) : body);
}

MessageIndex::MessageIndex() : _storage(brindle::IAMakeStorage(std::make_unique<brindle::RAMStoreStream>())) {
    auto corpus = std::make_unique<Corpus>();
    _corpus = corpus.get();
    _storage->Initialize();
    _index = std::make_unique<brindle::InVecIndex>(_storage.get(), std::move(corpus), englishAnalysis());
    _index->SetBytesForUpdate(32'000'000);
    _index->Initialize();
}

std::size_t MessageIndex::add(Mailbox& mailbox, Extent extent) {
    std::size_t unreadable = 0;
    ProgressBar progress("Reading", mailbox.count());
    std::size_t number = 0;
    for (const auto& message : mailbox.store().allMessages()) {
        workOn(nameOfMessage(++number), message->messageSize(), [&] {
            try {
                _corpus->text = textAbout(*message, extent);
            } catch (const Failure&) {
                _corpus->text.clear();
                ++unreadable;
            }
            _index->AddDoc(documentOf(_count++));
        });
        forget(*message);
        progress.advance();
    }
    _index->Flush();
    return unreadable;
}

// Names of one length compare as their numbers do.
std::unique_ptr<brindle::StringDoc> MessageIndex::documentOf(std::size_t number) {
    char name[24];
    std::snprintf(name, sizeof name, "%012zu", number);
    return std::make_unique<brindle::StringDoc>(name);
}

std::size_t MessageIndex::numberOf(const brindle::IADoc& document) {
    return std::stoul(std::string(static_cast<const brindle::StringDoc&>(document).View()));
}

std::string scoreText(float score) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4f", static_cast<double>(score));
    return text;
}

}  // namespace mailhost

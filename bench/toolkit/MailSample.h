#pragma once
#include <cctype>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "bench/toolkit/MailboxBodies.h"
#include "lorvale/toolkit/corpus.h"

namespace brindle {

struct Sample {
    std::vector<std::string> texts;
    std::size_t bytes = 0;
    std::vector<std::string> queries[4];  // by the number of words
};

inline std::vector<std::string> wordsIn(const std::string& text) {
    std::vector<std::string> words(1);
    for (const char c : text) {
        if (std::isalpha(static_cast<unsigned char>(c)) != 0)
            words.back() += static_cast<char>(std::tolower(c));
        else if (!words.back().empty())
            words.emplace_back();
    }
    return words;
}

/// The bodies of the flat mailbox that LORVALE_MAILBOX names, repeated up to 10,000 documents, or as many as
/// LORVALE_DOCUMENTS says; and queries of words in them.  Empty without a mailbox.
inline const Sample& sample() {
    static const Sample made = [] {
        Sample s;
        const char* const mailbox = std::getenv("LORVALE_MAILBOX");
        const auto bodies = mailbox != nullptr ? bodiesOf(mailbox) : std::vector<std::string>();
        if (bodies.empty()) return s;
        const char* const count = std::getenv("LORVALE_DOCUMENTS");
        const std::size_t wanted = count != nullptr ? std::stoul(count) : 10'000;
        std::map<std::string, std::size_t> documents;  // with each word
        for (std::size_t i = 0; i < wanted; ++i) {
            s.texts.push_back(bodies[i % bodies.size()]);
            s.bytes += s.texts.back().size();
            if (i >= bodies.size()) continue;
            const auto words = wordsIn(s.texts.back());
            for (const auto& word : std::set<std::string>(words.begin(), words.end())) ++documents[word];
        }
        // Words that people would search for: neither in every third message nor in hardly any.
        std::vector<std::string> words;
        for (const auto& [word, with] : documents)
            if (word.size() >= 4 && word.size() <= 10 && with * 100 >= bodies.size() &&
                with * 3 <= bodies.size())
                words.push_back(word);
        std::mt19937 random(1);
        for (std::size_t n = 1; n <= 3; ++n) {
            for (int i = 0; i < 100; ++i) {
                std::string& query = s.queries[n].emplace_back();
                for (std::size_t k = 0; k < n; ++k)
                    query += (k > 0 ? " " : "") + words[random() % words.size()];
            }
        }
        return s;
    }();
    return made;
}

/// The corpus of the sample; a document is named by its number.
class SampleCorpus : public IACorpus {
public:
    SampleCorpus() : IACorpus(IATag("Smpl")) {}
    std::unique_ptr<IADoc> GetProtoDoc() const override { return std::make_unique<StringDoc>(); }
    std::unique_ptr<IADocText> GetDocText(const IADoc* doc) const override {
        return std::make_unique<StringDocText>(
            sample().texts[std::stoul(static_cast<const StringDoc*>(doc)->GetText())]);
    }
};

}  // namespace brindle

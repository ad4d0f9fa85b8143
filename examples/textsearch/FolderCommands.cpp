#include "FolderCommands.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "FolderIndex.h"
#include "TextIndex.h"

namespace {

void printHits(const FolderIndex& folder, const brindle::RankedHits& hits) {
    for (const auto& hit : hits) {
        std::printf("%6.4f  %s ", static_cast<double>(hit->GetScore()),
                    folder.pathOf(*hit->GetDocument()).c_str());
        for (const auto& term : hit->GetMatchingTerms()) std::printf(" %s", std::string(term->View()).c_str());
        std::printf("\n");
    }
    if (hits.empty()) std::printf("nothing found\n");
}

void printTermList(const brindle::RankedHit::Terms& terms) {
    for (const auto& term : terms) std::printf("%s\n", std::string(term->View()).c_str());
    if (terms.empty()) std::printf("nothing found\n");
}

void tellSize(FolderIndex& folder) {
    std::printf("%u documents, %u terms\n", folder.index().GetDocCount(), folder.index().GetTermCount());
}

/// As the index knows it: "opened" is "open" there.
std::string stemOf(const std::string& word, const brindle::IAIndex& index) {
    const auto stream = index.GetAnalysis()->MakeTokenStream(std::make_unique<brindle::StringDocText>(word));
    brindle::IATermView term;
    return stream->NextTerm(term) ? std::string(term.View()) : word;
}

}  // namespace

void indexFolder(const std::string& file, const std::string& words, const std::string& folder) {
    FolderIndex made(file, words, folder);
    made.update();
    tellSize(made);
}

void updateFolder(const std::string& file, const std::string& words) {
    FolderIndex folder(file, words, true);
    folder.update();
    tellSize(folder);
}

void searchFolder(const std::string& file, const std::string& words, const std::string& query,
                  std::uint32_t hits) {
    FolderIndex folder(file, words, false);
    brindle::InVecAccessor accessor(&folder.index());
    accessor.InitializeAnew();
    printHits(folder, accessor.RankedSearch(query, {}, hits, 5));
}

void printLike(const std::string& file, const std::string& words, const std::string& example,
               std::uint32_t hits) {
    FolderIndex folder(file, words, false);
    brindle::InVecAccessor accessor(&folder.index());
    accessor.InitializeAnew();
    const auto document = folder.documentOf(example);
    const brindle::RankedQueryDoc query{document.get(), &folder.index()};
    auto found = accessor.RankedSearch("", std::span(&query, 1), hits + 1, 5);
    std::erase_if(found, [&](const auto& hit) { return hit->GetDocument()->Equal(document.get()); });
    if (found.size() > hits) found.resize(hits);
    printHits(folder, found);
}

void printTerms(const std::string& file, const std::string& words, const std::string& word,
                std::uint32_t most) {
    FolderIndex folder(file, words, false);
    brindle::InVecAccessor accessor(&folder.index());
    accessor.InitializeAnew();
    printTermList(accessor.GetTermsRelated(stemOf(word, folder.index()), most));
}

void printTopics(const std::string& file, const std::string& words, const std::string& document,
                 std::uint32_t most) {
    FolderIndex folder(file, words, false);
    brindle::InVecAccessor accessor(&folder.index());
    accessor.InitializeAnew();
    const auto found = folder.documentOf(document);
    printTermList(accessor.GetDocTopic({found.get(), &folder.index()}, most));
}

void printAbstract(const std::string& words, const std::string& document, std::uint32_t sentences) {
    std::ifstream in(document, std::ios::binary);
    if (!in || !std::filesystem::is_regular_file(document))
        throw std::runtime_error(document + ": cannot be read");
    std::string text{std::istreambuf_iterator<char>(in), {}};
    const std::string list = words.empty() ? words : words + "/EnglishAbbreviations";
    brindle::IAANSISentenceParser parser(text, list.c_str());
    const auto storage = brindle::IAMakeStorage(std::make_unique<brindle::RAMStoreStream>());
    const auto analysis = analysisWith(words);
    brindle::IADocumentAbstractor abstractor(storage.get(), analysis.get(), &parser);
    abstractor.Summarize();
    for (const auto* const extent : BestExtents(abstractor, sentences))
        std::printf("%s\n", extent->GetExtent().c_str());
}

void route(const std::string& words, const std::vector<std::string>& files,
           const std::vector<std::string>& folders) {
    for (const std::string& folder : folders)
        if (!std::filesystem::is_directory(folder)) throw std::runtime_error(folder + ": is no folder");
    for (const std::string& file : files)
        if (!std::filesystem::is_regular_file(file)) throw std::runtime_error(file + ": cannot be read");
    brindle::UFSUnopenedPathReport = nullptr;
    const auto storage = brindle::IAMakeStorage(std::make_unique<brindle::RAMStoreStream>());
    storage->Initialize();
    brindle::VectorIndex index(storage.get(), std::make_unique<brindle::UFSCorpus>(), analysisWith(words));
    index.Initialize();
    std::vector<std::unique_ptr<brindle::UFSCluster>> clusters;
    std::vector<brindle::IACluster*> all;
    for (const std::string& folder : folders) {
        clusters.push_back(std::make_unique<brindle::UFSCluster>(&index, folder));
        all.push_back(clusters.back().get());
    }
    brindle::IARouter router(&index);
    router.InitializeClusters(all);
    for (const std::string& file : files) {
        const brindle::UFSDoc document(file);
        const auto number = router.WhichCluster(&document, false);
        std::printf("%6.4f  %s  %s\n", static_cast<double>(router.LastSimilarity()), file.c_str(),
                    folders[static_cast<std::size_t>(number)].c_str());
    }
}

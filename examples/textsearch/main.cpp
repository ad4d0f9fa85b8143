// Indexes text files and test collections, and searches them.  A host that needs the toolkit alone.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "FolderCommands.h"
#include "FolderIndex.h"
#include "IndexFile.h"
#include "TextIndex.h"

namespace {

constexpr const char* kUse =
    R"(use: textsearch [OPTION...] index FILE FOLDER      make an index of a folder of text files
       textsearch [OPTION...] update FILE            bring it in line with its folder
       textsearch [OPTION...] like FILE DOCUMENT     files like one of them
       textsearch [OPTION...] terms FILE WORD        terms that stand where a word does
       textsearch [OPTION...] topics FILE DOCUMENT   the terms that weigh most in a file
       textsearch [OPTION...] abstract DOCUMENT      the most telling sentences of any file (-n: 3)
       textsearch [OPTION...] route DOCUMENT... --into FOLDER...
                                                     to which folder each file belongs
       textsearch [OPTION...] index FILE SOURCE...   add collections, or several folders, to an index
       textsearch [OPTION...] search FILE [WORD...]  search; without words, the lines of standard input
       textsearch [OPTION...] run FILE TOPICS         search each topic and print a run of six columns
       textsearch [OPTION...] check FILE              name what is wrong with an index

  -n, --hits N     at most so many hits (10; for a run 1000)
  -b, --boolean    queries are boolean: mail & (box | post) ! junk
      --bm25       weigh by BM25 instead
      --tag NAME   the last column of a run
      --words DIR  the folder with EnglishStopwords and EnglishSubstitutions; "" for none
)";

struct WrongUse : std::runtime_error {
    using runtime_error::runtime_error;
};

struct Options {
    std::uint32_t hits = 0;
    bool boolean = false;
    bool bm25 = false;
    std::string tag = "textsearch";
    std::string words = TEXTSEARCH_WORDS;
    std::vector<std::string> arguments;  // the command first
    std::vector<std::string> folders;    // behind --into
};

std::uint32_t numberOf(const std::string& text) {
    std::size_t end = 0;
    const unsigned long number = text.empty() || text[0] == '-' ? 0 : std::stoul(text, &end);
    if (number == 0 || end != text.size() || number > 1'000'000)
        throw WrongUse("not a number of hits: " + text);
    return static_cast<std::uint32_t>(number);
}

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view name = argv[i];
        const auto value = [&] {
            if (++i == argc) throw WrongUse(std::string(name) + " needs a value");
            return std::string(argv[i]);
        };
        if (name == "-n" || name == "--hits")
            options.hits = numberOf(value());
        else if (name == "-b" || name == "--boolean")
            options.boolean = true;
        else if (name == "--bm25")
            options.bm25 = true;
        else if (name == "--tag")
            options.tag = value();
        else if (name == "--words")
            options.words = value();
        else if (name == "--into")
            while (i + 1 < argc && argv[i + 1][0] != '-') options.folders.emplace_back(argv[++i]);
        else if (name.size() > 1 && name[0] == '-')
            throw WrongUse("unknown option " + std::string(name));
        else
            options.arguments.emplace_back(name);
    }
    if (options.arguments.size() < 2) throw WrongUse("a command and an index are needed");
    return options;
}

int indexSources(const Options& options) {
    if (options.arguments.size() == 2) throw WrongUse("index needs a folder or collections");
    // Nothing is made for a name that was mistyped, or without the word lists.
    for (std::size_t i = 2; i < options.arguments.size(); ++i)
        if (!std::filesystem::exists(options.arguments[i]))
            throw std::runtime_error(options.arguments[i] + ": there is no such file or folder");
    analysisWith(options.words);
    if (options.arguments.size() == 3 && std::filesystem::is_directory(options.arguments[2]))
        return indexFolder(options.arguments[1], options.words, options.arguments[2]), 0;
    TextIndex target(options.arguments[1], options.words, true);
    std::uint32_t added = 0, known = 0;
    for (std::size_t i = 2; i < options.arguments.size(); ++i) {
        try {
            readSource(options.arguments[i],
                       [&](Item item) { ++(target.add(std::move(item)) ? added : known); });
        } catch (const std::runtime_error& failure) {
            throw std::runtime_error(options.arguments[i] + ": " + failure.what());
        }
    }
    target.finish();
    std::printf("%u documents added, %u were there; %u documents, %u terms, %u bytes\n", added, known,
                target.index().GetDocCount(), target.index().GetTermCount(), target.storage().TotalSpace());
    return 0;
}

brindle::RankedHits search(brindle::InvertedAccessor& accessor, const Options& options,
                           const std::string& query, std::uint32_t hits, std::uint32_t terms) {
    if (options.boolean) return accessor.RankedSearchBoolean(query, hits);
    return accessor.RankedSearch(query, {}, hits, terms);
}

void printHits(const brindle::RankedHits& hits) {
    for (const auto& hit : hits) {
        std::printf("%6.4f  %s ", static_cast<double>(hit->GetScore()), nameOf(*hit).c_str());
        for (const auto& term : hit->GetMatchingTerms()) {
            const auto text = term->View();
            std::printf(" %.*s", static_cast<int>(text.size()), text.data());
        }
        std::printf("\n");
    }
    if (hits.empty()) std::printf("nothing found\n");
}

void searchAndPrint(brindle::InvertedAccessor& accessor, const Options& options, const std::string& query) {
    try {
        printHits(search(accessor, options, query, options.hits != 0 ? options.hits : 10, 5));
    } catch (const brindle::IAException& failure) {
        if (failure.GetCode() != brindle::IAAccessorInvalidQuery) throw;
        std::printf("%s\n", failure.What());
    }
    std::fflush(stdout);
}

int runOnFolder(const Options& options) {
    const auto& arguments = options.arguments;
    const auto& file = arguments[1];
    const std::uint32_t most = options.hits != 0 ? options.hits : 10;
    if (arguments.size() != (arguments[0] == "update" ? 2u : 3u)) throw WrongUse("wrong number of words");
    if (arguments[0] == "update")
        updateFolder(file, options.words);
    else if (arguments[0] == "like")
        printLike(file, options.words, arguments[2], most);
    else if (arguments[0] == "terms")
        printTerms(file, options.words, arguments[2], most);
    else
        printTopics(file, options.words, arguments[2], most);
    return 0;
}

int routeFiles(const Options& options) {
    if (options.folders.empty()) throw WrongUse("route needs folders behind --into");
    route(options.words, {options.arguments.begin() + 1, options.arguments.end()}, options.folders);
    return 0;
}

int searchIndex(const Options& options) {
    std::string wanted;
    for (std::size_t i = 2; i < options.arguments.size(); ++i) wanted += options.arguments[i] + " ";
    if (!wanted.empty() && FolderIndex::isIn(options.arguments[1]))
        return searchFolder(options.arguments[1], options.words, wanted, options.hits != 0 ? options.hits : 10),
               0;
    TextIndex source(options.arguments[1], options.words, false);
    brindle::InvertedAccessor accessor(&source.index());
    accessor.Initialize();
    if (options.bm25) accessor.SetWeighting(brindle::RankedWeighting::bm25);
    std::string query;
    for (std::size_t i = 2; i < options.arguments.size(); ++i) query += options.arguments[i] + " ";
    if (!query.empty()) return searchAndPrint(accessor, options, query), 0;
    const bool isAsked = isatty(STDIN_FILENO) != 0;
    while ((!isAsked || std::printf("> ") > 0) && std::fflush(stdout) == 0 && std::getline(std::cin, query))
        if (!query.empty()) searchAndPrint(accessor, options, query);
    return 0;
}

int writeRun(const Options& options) {
    if (options.arguments.size() != 3) throw WrongUse("run needs an index and a file of topics");
    TextIndex source(options.arguments[1], options.words, false);
    brindle::InvertedAccessor accessor(&source.index());
    accessor.Initialize();
    if (options.bm25) accessor.SetWeighting(brindle::RankedWeighting::bm25);
    readSource(options.arguments[2], [&](const Item& topic) {
        std::uint32_t rank = 0;
        for (const auto& hit :
             search(accessor, options, topic.text, options.hits != 0 ? options.hits : 1000, 0))
            std::printf("%s Q0 %s %u %.6f %s\n", topic.id.c_str(), nameOf(*hit).c_str(), ++rank,
                        static_cast<double>(hit->GetScore()), options.tag.c_str());
    });
    return 0;
}

int checkIndex(const Options& options) {
    requireIndexFile(options.arguments[1]);
    const auto storage = brindle::VerifyStorageFile(options.arguments[1].c_str());
    for (const auto& finding : storage.violations) std::printf("broken: %s\n", finding.c_str());
    if (!storage.Sound()) return 1;
    const bool isFolder = FolderIndex::isIn(options.arguments[1]);
    std::unique_ptr<FolderIndex> folder;
    std::unique_ptr<TextIndex> texts;
    if (isFolder)
        folder = std::make_unique<FolderIndex>(options.arguments[1], options.words, false);
    else
        texts = std::make_unique<TextIndex>(options.arguments[1], options.words, false);
    const auto report = isFolder ? brindle::VerifyIndex(folder->index()) : brindle::VerifyIndex(texts->index());
    for (const auto& finding : report.violations) std::printf("broken: %s\n", finding.c_str());
    std::printf("%u terms, %u documents, %llu postings in %llu blocks and the records\n", report.terms,
                report.documents, static_cast<unsigned long long>(report.postings),
                static_cast<unsigned long long>(report.postingBlocks));
    return report.Sound() ? 0 : 1;
}

int runCommand(const Options& options) {
    const std::string& command = options.arguments[0];
    if (command == "index") return indexSources(options);
    if (command == "search") return searchIndex(options);
    if (command == "run") return writeRun(options);
    if (command == "check") return checkIndex(options);
    if (command == "update" || command == "like" || command == "terms" || command == "topics")
        return runOnFolder(options);
    if (command == "abstract")
        return printAbstract(options.words, options.arguments[1], options.hits != 0 ? options.hits : 3), 0;
    if (command == "route") return routeFiles(options);
    throw WrongUse("unknown command " + command);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return runCommand(parse(argc, argv));
    } catch (const WrongUse& wrong) {
        std::fprintf(stderr, "textsearch: %s\n%s", wrong.what(), kUse);
        return 2;
    } catch (const brindle::IAException& failure) {
        std::fprintf(stderr, "textsearch: %s\n", failure.What());
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "textsearch: %s\n", failure.what());
    }
    return 1;
}

#pragma once
#include <cstdint>
#include <string>
#include <vector>

// The commands that work on folders of files.  Each prints its answer; what keeps it from its work is thrown.

void indexFolder(const std::string& file, const std::string& words, const std::string& folder);
void updateFolder(const std::string& file, const std::string& words);
void searchFolder(const std::string& file, const std::string& words, const std::string& query,
                  std::uint32_t hits);
/// Files like one of those that are indexed.
void printLike(const std::string& file, const std::string& words, const std::string& example,
               std::uint32_t hits);
/// Terms that stand where a word does.
void printTerms(const std::string& file, const std::string& words, const std::string& word, std::uint32_t most);
/// The terms that weigh most in an indexed file.
void printTopics(const std::string& file, const std::string& words, const std::string& document,
                 std::uint32_t most);
/// The most telling sentences of any file.
void printAbstract(const std::string& words, const std::string& document, std::uint32_t sentences);
/// To which of the folders each file belongs, by what lies in them.
void route(const std::string& words, const std::vector<std::string>& files,
           const std::vector<std::string>& folders);

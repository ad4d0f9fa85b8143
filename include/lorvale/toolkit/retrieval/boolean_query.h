#pragma once
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/inverted_index.h"
#include "lorvale/toolkit/retrieval/query.h"
#include "lorvale/toolkit/retrieval/query_parser.h"

namespace brindle {

class WordPostings;

enum class IAOperator : std::uint8_t { Unset = 0, And = 1, Or = 2, Not = 3, Term = 4 };

/// A word of a boolean query: the small ranked query that the analysis makes of it, and its postings in the
/// index that is searched now.
class LORVALE_EXPORT IABooleanQueryTermNode : public IAStruct {
public:
    explicit IABooleanQueryTermNode(std::string_view ofWord);
    ~IABooleanQueryTermNode() override;

    const std::string& GetWord() const { return word; }
    /// Null before IABooleanQuery::SetUpQuery().
    const IARankedQuery* GetRankedQuery() const { return rankedQuery.get(); }
    /// What the word weighs among the others of its query: that of its term in a ranked query of all words.
    /// Scores are made of the word's own ranked query; this is for those who want to show it.
    float GetWeight() const { return weight; }

private:
    friend class IABooleanQuery;
    friend class IAQueryTree;

    bool Evaluate(std::uint32_t document, float& score, std::uint32_t& matchCount);

    const std::string word;
    std::unique_ptr<IARankedQuery> rankedQuery;
    std::unique_ptr<WordPostings> postings;
    bool alreadyTrue = false;  // of the document that is looked at
    float weight = 0;
};

/// The words of a query, each once, from left to right.
class LORVALE_EXPORT IABooleanQueryTermNodeList : public IAStruct {
public:
    static constexpr std::size_t MaxCount = 100;
    ~IABooleanQueryTermNodeList() override;

    /// The node of a word.  A word that begins with an earlier one shares that one's node: in "mail & mailbox"
    /// both are "mail".  Programs have come to rely on it, so this stays.  Null if the list is full.
    IABooleanQueryTermNode* AddNode(std::string_view word);
    bool IsFull() const { return count == MaxCount; }
    std::uint32_t Count() const { return count; }
    IABooleanQueryTermNode& operator[](std::uint32_t i) { return *nodes[i]; }

private:
    std::array<std::unique_ptr<IABooleanQueryTermNode>, MaxCount> nodes;
    std::uint32_t count = 0;
};

/// A boolean query as a tree, which finds the documents that fulfil it in ascending order of their numbers.  No
/// deeper than IAParser::MaxStack.
class LORVALE_EXPORT IAQueryTree : public IAStruct {
public:
    static constexpr std::uint32_t NoMore = 0xFFFFFFFF;

    IAQueryTree();
    explicit IAQueryTree(std::string_view ofWord);
    IAQueryTree(IAOperator ofBoth, std::unique_ptr<IAQueryTree> leftSide,
                std::unique_ptr<IAQueryTree> rightSide);
    ~IAQueryTree() override;

    IAOperator GetOperator() const { return op; }
    /// Raises "invalid query" (IAAccessorInvalidQuery) if an operand is missing.
    void Validate() const;
    /// Gives each word its node, from left to right.
    void SetTerms(IABooleanQueryTermNodeList& termNodes);
    /// The query with all its parentheses, "(mail&(box|post))", and each word as its node has it.  Being
    /// parsed, that gives the same tree.
    std::string Describe() const;

    /// The lowest number that the next document to fulfil the query can have; NoMore if there is none.
    std::uint32_t GetMin();
    void ResetMins();
    /// Whether the document fulfils the query.  Adds the weights of the words that stand in it to `score` and
    /// counts them in `matchCount`.  Documents are asked for in ascending order.
    bool Evaluate(std::uint32_t document, float& score, std::uint32_t& matchCount);

private:
    std::uint32_t ComputeMin() const;

    IAOperator op = IAOperator::Unset;
    std::uint32_t min = 0;                   // 0: not computed
    std::string word;                        // of a term that has no node yet
    IABooleanQueryTermNode* node = nullptr;  // of a term; borrowed from the list
    std::unique_ptr<IAQueryTree> left, right;
};

/// A boolean query from its text to the documents that fulfil it.  One thread at a time.
class LORVALE_EXPORT IABooleanQuery : public IAObject {
public:
    IABooleanQuery();
    ~IABooleanQuery() override;

    IAParser& GetParser() { return parser; }
    /// Whether words are those of an analysis with HasUnicodeWords(); false at the start.
    void SetUnicodeWords(bool unicode) { parser.SetUnicodeWords(unicode); }
    /// Parses and validates the text; false if it is empty.  Raises what IAParser::Parse() and
    /// IAQueryTree::Validate() raise.
    bool Initialize(std::string_view text);
    /// Null before Initialize() has answered true.
    const IAQueryTree* GetTree() const { return tree.get(); }
    /// The number of different words.
    std::uint32_t Count() const { return termNodes->Count(); }
    /// The i-th of them.
    const IABooleanQueryTermNode& GetNode(std::uint32_t i) const { return (*termNodes)[i]; }

    /// Makes and trims the ranked query of each word.  All is borrowed until the next call; `progress` may be
    /// null. False if it was cancelled.
    bool SetUpQuery(std::span<InvertedIndex* const> indices, const Similarity& similarity, Progress* progress,
                    const std::function<void(IARankedQuery&)>& trim);
    /// Goes to the start of the index, which is the i-th of them.
    void InitializeQuery(InvertedIndex& index, std::uint32_t i);
    /// IAQueryTree::GetMin(), for the next document.
    std::uint32_t GetMin();
    bool Evaluate(std::uint32_t document, float& score, std::uint32_t& matchCount) {
        return tree->Evaluate(document, score, matchCount);
    }
    /// Whether a document may come several times in this index: for each term of a word that stands in it.
    bool MayRepeatDocuments() const;
    void ResetMins() { tree->ResetMins(); }

private:
    void WeighNodes(std::span<TermIndex* const> indices);

    IAParser parser;
    std::unique_ptr<IABooleanQueryTermNodeList> termNodes;
    std::unique_ptr<IAQueryTree> tree;
    const Similarity* similarity = nullptr;  // borrowed
};

}  // namespace brindle

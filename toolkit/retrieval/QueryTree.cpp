#include <algorithm>

#include "lorvale/toolkit/retrieval/boolean_query.h"
#include "lorvale/toolkit/storage/exception.h"
#include "toolkit/retrieval/WordPostings.h"

namespace brindle {

IABooleanQueryTermNode::IABooleanQueryTermNode(std::string_view ofWord) : word(ofWord) {}
IABooleanQueryTermNode::~IABooleanQueryTermNode() = default;
IABooleanQueryTermNodeList::~IABooleanQueryTermNodeList() = default;

IABooleanQueryTermNode* IABooleanQueryTermNodeList::AddNode(std::string_view word) {
    for (std::uint32_t i = 0; i < count; ++i)
        if (word.starts_with(nodes[i]->GetWord())) return nodes[i].get();
    if (IsFull()) return nullptr;
    nodes[count] = std::make_unique<IABooleanQueryTermNode>(word);
    return nodes[count++].get();
}

IAQueryTree::IAQueryTree() = default;
IAQueryTree::IAQueryTree(std::string_view ofWord) : op(IAOperator::Term), word(ofWord) {}
IAQueryTree::IAQueryTree(IAOperator ofBoth, std::unique_ptr<IAQueryTree> leftSide,
                         std::unique_ptr<IAQueryTree> rightSide)
    : op(ofBoth), left(std::move(leftSide)), right(std::move(rightSide)) {}
IAQueryTree::~IAQueryTree() = default;

void IAQueryTree::Validate() const {
    IAAssertion(op != IAOperator::Unset, "invalid query", IAAccessorInvalidQuery);
    if (op == IAOperator::Term) return;
    left->Validate();
    right->Validate();
}

void IAQueryTree::SetTerms(IABooleanQueryTermNodeList& termNodes) {
    if (op == IAOperator::Term) {
        node = termNodes.AddNode(word);
        IAAssertion(node != nullptr, "attempt to push a new item into full stack", IAAssertionFailure);
    }
    if (left != nullptr) left->SetTerms(termNodes);
    if (right != nullptr) right->SetTerms(termNodes);
}

std::string IAQueryTree::Describe() const {
    if (op == IAOperator::Term) return node->GetWord();
    if (op == IAOperator::Unset) return "?";
    const char sign = op == IAOperator::And ? '&' : op == IAOperator::Or ? '|' : '!';
    return "(" + left->Describe() + sign + right->Describe() + ")";
}

std::uint32_t IAQueryTree::GetMin() {
    if (min == 0) min = ComputeMin();
    return min;
}

std::uint32_t IAQueryTree::ComputeMin() const {
    switch (op) {
        case IAOperator::Term:
            return node->postings->Next();
        case IAOperator::Not:
            return left->GetMin();
        case IAOperator::Or:
            return std::min(left->GetMin(), right->GetMin());
        case IAOperator::And:
            return std::max(left->GetMin(), right->GetMin());  // NoMore is the largest number
        case IAOperator::Unset:
            break;
    }
    return NoMore;
}

void IAQueryTree::ResetMins() {
    min = 0;
    if (left != nullptr) left->ResetMins();
    if (right != nullptr) right->ResetMins();
}

bool IAQueryTree::Evaluate(std::uint32_t document, float& score, std::uint32_t& matchCount) {
    if (document < min || min == NoMore) return false;
    if (op == IAOperator::Term) {
        const bool found = node->Evaluate(document, score, matchCount);
        min = node->postings->Next();
        return found;
    }
    min = 0;
    // Both sides are always looked at: both have to move on, and each word that matches counts.
    const bool inLeft = left->Evaluate(document, score, matchCount);
    const bool inRight = right->Evaluate(document, score, matchCount);
    if (op == IAOperator::And) return inLeft && inRight;
    if (op == IAOperator::Or) return inLeft || inRight;
    return inLeft && !inRight;
}

/// A word that stands twice in a query counts once.  A word of which the analysis makes two terms gives a
/// document that holds both of them twice, once for each; so these are put away twice, and "!" may let the
/// second one through. What programs have stored of such searches depends on it, so this stays.
bool IABooleanQueryTermNode::Evaluate(std::uint32_t document, float& score, std::uint32_t& matchCount) {
    if (alreadyTrue) return true;
    postings->SkipTo(document);
    if (postings->Next() != document) return false;
    score = static_cast<float>(score + postings->Take());
    ++matchCount;
    alreadyTrue = true;
    return true;
}

}  // namespace brindle

#include "lorvale/toolkit/retrieval/tw_vector.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>

#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

namespace {

/// Walks both vectors in the order of terms and calls `use` with each term and its weight in each, 0 where it
/// is absent.
template <class Use>
void merge(const std::vector<TWComponent>& a, const std::vector<TWComponent>& b, Use use) {
    auto atA = a.begin();
    auto atB = b.begin();
    while (atA != a.end() || atB != b.end()) {
        if (atB == b.end() || (atA != a.end() && atA->termID < atB->termID)) {
            use(atA->termID, atA->weight, 0.0f);
            ++atA;
        } else if (atA == a.end() || atB->termID < atA->termID) {
            use(atB->termID, 0.0f, atB->weight);
            ++atB;
        } else {
            use(atA->termID, atA->weight, atB->weight);
            ++atA;
            ++atB;
        }
    }
}

/// The normalized vector of what `weigh` makes of both weights.
template <class Weigh>
TWVector merged(const TWVector& a, const TWVector& b, Weigh weigh) {
    std::vector<TWComponent> sum;
    sum.reserve(a.GetComponents().size() + b.GetComponents().size());
    merge(a.GetComponents(), b.GetComponents(), [&](std::uint32_t termID, float inA, float inB) {
        sum.push_back({termID, weigh(inA, inB)});
    });
    TWVector result(std::move(sum));
    result.Normalize();
    return result;
}

template <class Weight>
void sortDescending(std::vector<TWComponent>& components, Weight weightOf) {
    std::ranges::sort(components, [&](const TWComponent& a, const TWComponent& b) {
        const float weightA = weightOf(a), weightB = weightOf(b);
        return weightA != weightB ? weightA > weightB : a.termID < b.termID;
    });
}

float weightOf(const TWComponent& component) {
    return component.weight;
}
float magnitudeOf(const TWComponent& component) {
    return std::fabs(component.weight);
}

}  // namespace

TWVector::~TWVector() = default;

float TWVector::Similarity(const TWVector& other) const {
    double dot = 0;
    auto atA = components.begin();
    auto atB = other.components.begin();
    while (atA != components.end() && atB != other.components.end()) {
        if (atA->termID < atB->termID) {
            ++atA;
        } else if (atB->termID < atA->termID) {
            ++atB;
        } else {
            dot += double{atA->weight} * atB->weight;
            ++atA;
            ++atB;
        }
    }
    return static_cast<float>(dot);
}

TWVector TWVector::Sum(const TWVector& other) const {
    return merged(*this, other, std::plus());
}

TWVector TWVector::AddIntoAverage(const TWVector& other, std::uint32_t n, bool subtract) const {
    const auto count = static_cast<float>(n);
    const float a = (count - 1) / count, b = (subtract ? -1 : 1) / count;
    TWVector average = merged(*this, other, [a, b](float inA, float inB) {
        return inB == 0 ? a * inA : std::max(a * inA + b * inB, 0.0f);
    });
    IAAssertion(!average.HasNegativeComponents(), "vector has at least one negative component",
                IAAssertionFailure);
    return average;
}

TWVector TWVector::AddWeighted(const TWVector& other, float a, float b) const {
    return merged(*this, other, [a, b](float inA, float inB) { return std::max(a * inA + b * inB, 0.0f); });
}

TWVector TWVector::AddWeightedAllowNegatives(const TWVector& other, float a, float b) const {
    return merged(*this, other, [a, b](float inA, float inB) { return a * inA + b * inB; });
}

void TWVector::Normalize() {
    double squares = 0;
    for (const TWComponent& component : components) squares += double{component.weight} * component.weight;
    if (squares == 0) return;
    const double length = std::sqrt(squares);
    for (TWComponent& component : components) component.weight = static_cast<float>(component.weight / length);
}

void TWVector::Truncate(std::uint32_t n) {
    if (n >= components.size()) return;
    SortByWeight();
    components.resize(n);
    SortByTerm();
}

void TWVector::TruncateByAbsoluteValue(std::uint32_t n) {
    if (n >= components.size()) return;
    SortByAbsoluteWeight();
    components.resize(n);
    SortByTerm();
}

void TWVector::SortByTerm() {
    std::ranges::sort(components, {}, &TWComponent::termID);
}

void TWVector::SortByWeight() {
    sortDescending(components, weightOf);
}

void TWVector::SortByAbsoluteWeight() {
    sortDescending(components, magnitudeOf);
}

bool TWVector::HasNegativeComponents() const {
    return std::ranges::any_of(components, [](const TWComponent& each) { return each.weight < 0; });
}

std::uint32_t TWVector::StoreSize() const {
    std::uint32_t size = VInt32Size(GetDocumentLength());
    for (const TWComponent& component : components) size += VInt32Size(component.termID) + 4;
    return size;
}

void TWVector::Store(IAOutputBlock* output) const {
    VInt32Write(GetDocumentLength(), output);
    for (const auto& [termID, weight] : components) {
        VInt32Write(termID, output);
        output->WriteUInt32(std::bit_cast<std::uint32_t>(weight));
    }
}

void TWVector::Restore(IAInputBlock* input) {
    const std::uint32_t count = VInt32Read(input);
    IAAssertion(count <= input->Remaining() / 5, "term weight vector damaged", IndexInvalid);
    components.resize(count);
    for (auto& [termID, weight] : components) {
        termID = VInt32Read(input);
        weight = std::bit_cast<float>(input->ReadUInt32());
        IAAssertion(std::isfinite(weight), "term weight vector damaged", IndexInvalid);
    }
}

TWVectorAdder::~TWVectorAdder() = default;

void TWVectorAdder::Add(std::unique_ptr<TWVector> vector) {
    if (vector->GetDocumentLength() > 0) vectors.push_back(std::move(vector));
}

TWVector TWVectorAdder::Sum() {
    // All components by term: sorting them costs what a queue of cursors would.
    std::vector<TWComponent> all;
    for (const auto& vector : vectors)
        all.insert(all.end(), vector->GetComponents().begin(), vector->GetComponents().end());
    vectors.clear();
    std::ranges::stable_sort(all, {}, &TWComponent::termID);
    std::vector<TWComponent> sum;
    for (const TWComponent& component : all) {
        if (!sum.empty() && sum.back().termID == component.termID)
            sum.back().weight += component.weight;
        else
            sum.push_back(component);
    }
    if (sum.empty()) sum.push_back({});
    TWVector result(std::move(sum));
    result.Normalize();
    return result;
}

}  // namespace brindle

#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

struct TWComponent {
    std::uint32_t termID = 0;
    float weight = 0;
    bool operator==(const TWComponent&) const = default;
};

/// What terms weigh in a document, or in several: a sparse vector.  Its components normally stand in the order
/// of term IDs; where that matters the operations say so.
///
/// Stored form: the number of components as a VInt32, then of each the ID as a VInt32 and the bits of the
/// weight in 32 bits.  Term 3 weighing 1:  01 03 3F 80 00 00
class LORVALE_EXPORT TWVector : public IAObject {
public:
    TWVector() = default;
    explicit TWVector(std::vector<TWComponent> byTerm) : components(std::move(byTerm)) {}
    ~TWVector() override;

    /// The number of components.
    std::uint32_t GetDocumentLength() const { return static_cast<std::uint32_t>(components.size()); }
    const std::vector<TWComponent>& GetComponents() const { return components; }
    void SetComponents(std::vector<TWComponent> newComponents) { components = std::move(newComponents); }

    // Of vectors in the order of terms.

    /// The dot product: of vectors of length 1 the cosine of their angle.
    float Similarity(const TWVector& other) const;
    /// The sum, as a vector of length 1.
    TWVector Sum(const TWVector& other) const;
    /// (n - 1) / n of this one and 1 / n of the other, which counts negatively with `subtract`; weights below 0
    /// become 0; as a vector of length 1.  `n` is at least 1.  Raises "vector has at least one negative
    /// component" (IAAssertionFailure) for one of this vector that the other leaves as it is.
    TWVector AddIntoAverage(const TWVector& other, std::uint32_t n, bool subtract) const;
    /// `a` times this one and `b` times the other; weights below 0 become 0; as a vector of length 1.
    TWVector AddWeighted(const TWVector& other, float a, float b) const;
    TWVector AddWeightedAllowNegatives(const TWVector& other, float a, float b) const;

    /// To length 1; a vector of zeros stays as it is.
    void Normalize();
    /// Keeps the n greatest weights, in the order of terms.  Of equal ones the lower terms stay.
    void Truncate(std::uint32_t n);
    void TruncateByAbsoluteValue(std::uint32_t n);
    void SortByTerm();
    // The greatest first; of equal ones the lower term.
    void SortByWeight();
    void SortByAbsoluteWeight();
    bool HasNegativeComponents() const;

    std::uint32_t StoreSize() const;
    void Store(IAOutputBlock* output) const;
    /// In place of what there is.  Raises "term weight vector damaged" (IndexInvalid).
    void Restore(IAInputBlock* input);

private:
    std::vector<TWComponent> components;
};

/// Sums many vectors at once.
class LORVALE_EXPORT TWVectorAdder : public IAStruct {
public:
    ~TWVectorAdder() override;
    /// An empty vector counts for nothing.
    void Add(std::unique_ptr<TWVector> vector);
    /// The sum as a vector of length 1, in the order of terms; the adder is empty then.  The sum of nothing is
    /// one component of term 0 and weight 0, which no index has.
    TWVector Sum();

private:
    std::vector<std::unique_ptr<TWVector>> vectors;
};

}  // namespace brindle

#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/storable.h"

namespace brindle {

/// The storable name of a document.  Its order and equality decide what counts as one document for an index,
/// and order hits of equal score.
class LORVALE_EXPORT IADoc : public IAOrderedStorable {
public:
    ~IADoc() override;
    /// What to call the document before people; empty by default.
    virtual std::string GetName() const;
};

/// The bytes of one document, read from front to back.  Not locked.
class LORVALE_EXPORT IADocText : public IAObject {
public:
    ~IADocText() override;
    /// Fills `buffer` with up to `size` bytes from where the last call stopped and answers how many: 0 at the
    /// end, and at every further call.
    virtual std::uint32_t GetNextBuffer(std::uint8_t* buffer, std::uint32_t size) = 0;
    /// An independent text, which starts at the beginning.
    virtual std::unique_ptr<IADocText> DeepCopy() const = 0;
};

class LORVALE_EXPORT IADocIterator : public IAObject {
public:
    ~IADocIterator() override;
    /// The next document; null at the end.
    virtual std::unique_ptr<IADoc> GetNextDoc() = 0;
};

}  // namespace brindle

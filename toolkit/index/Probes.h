#pragma once
#include <memory>

#include "lorvale/toolkit/index/records.h"

namespace brindle {

/// A key for looking a caller's term up in a table: borrows it.
class TermProbe : public TermInfo {
public:
    explicit TermProbe(const IATerm* borrowed)
        : TermInfo(std::unique_ptr<IATerm>(const_cast<IATerm*>(borrowed)), 0) {}
    ~TermProbe() override { static_cast<void>(term.release()); }
};

/// The same for a document.
class DocProbe : public DocInfo {
public:
    explicit DocProbe(const IADoc* borrowed)
        : DocInfo(std::unique_ptr<IADoc>(const_cast<IADoc*>(borrowed)), 0) {}
    ~DocProbe() override { static_cast<void>(document.release()); }
};

/// What a table's operations answer, as the class that the table holds.
template <class Record>
std::unique_ptr<Record> RecordOf(std::unique_ptr<IAOrderedStorable> object) {
    return std::unique_ptr<Record>(static_cast<Record*>(object.release()));
}

}  // namespace brindle

#pragma once
#include <cstdint>
#include <functional>

namespace brindle {

class TermIndex;

/// Shows the number and the length of each document, in the order of documents: quicker than whole records.
void ForEachDocLength(TermIndex& index,
                      const std::function<void(std::uint32_t docID, std::uint32_t length)>& use);

}  // namespace brindle

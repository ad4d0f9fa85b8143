// Arbitrary bytes as a text of sentences.  The extents ascend, and hold all but white bytes; nothing changes
// but line breaks into blanks, and none is left inside; kept line breaks give the same extents.
#include <cctype>

#include "fuzz/FuzzTarget.h"
#include "lorvale/toolkit/retrieval/sentence_parser.h"

namespace {

using lorvale::fuzz::require;
bool isWhite(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

LORVALE_FUZZ_TARGET(input) {
    using namespace brindle;
    const std::string text(input);
    std::string changed = text, kept = text;
    IAANSISentenceParser removing(changed), keeping(kept, nullptr, false);
    for (IAANSISentenceParser* const parser : {&removing, &keeping}) {
        for (const char* const word : {"dr.", "e.g.", "prof."}) parser->Abbreviations().Add(word);
        parser->SetRequiredUpper(text.size() % 3 != 0);
    }
    std::uint32_t end = 0, number = 0;
    while (const auto extent = removing.GetNextExtent()) {
        const auto same = keeping.GetNextExtent();
        require(same != nullptr && same->GetOffset() == extent->GetOffset() &&
                same->GetLength() == extent->GetLength() && same->GetGroupNumber() == extent->GetGroupNumber());
        require(extent->GetExtentNumber() == ++number && extent->GetOffset() >= end && extent->GetLength() > 0);
        require(std::all_of(text.begin() + end, text.begin() + extent->GetOffset(), isWhite));
        require(extent->View().find_first_of("\n\r\f") == std::string_view::npos);
        end = extent->GetOffset() + extent->GetLength();
    }
    require(keeping.GetNextExtent() == nullptr && removing.IsFinished() && kept == text);
    require(std::all_of(text.begin() + end, text.end(), isWhite));
    for (std::size_t i = 0; i < text.size(); ++i)
        require(changed[i] == text[i] || (isWhite(text[i]) && changed[i] == ' '));
}

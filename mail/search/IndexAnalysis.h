#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "lorvale/toolkit/analysis/analysis.h"

namespace lorvale {

/// The user default that names the analysis of indexes, by its tag; "Eng1" where it is not set.
inline constexpr std::string_view kIndexAnalysisKey = "IndexAnalysis";

/// How a message becomes the bytes that an analysis reads.
enum class IndexedForm {
    cString,  ///< raw header block and body, in the default C string encoding
    utf8,     ///< headers with their encoded words undone and body, in UTF-8
};

/// An analysis that indexes of mailboxes may be made with.
struct IndexAnalysis {
    std::string_view tag;  ///< four characters, which the index remembers
    IndexedForm form;
    std::unique_ptr<brindle::IAAnalysis> (*make)();
};

/// That of the user default.  An unknown tag is logged and stands for "Eng1".
const IndexAnalysis& chosenIndexAnalysis();
/// Null for a tag that no analysis here has.
const IndexAnalysis* indexAnalysisWithTag(std::uint32_t tag);

}  // namespace lorvale

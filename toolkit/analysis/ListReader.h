#pragma once
#include <memory>

#include "lorvale/toolkit/analysis/char_stream.h"
#include "lorvale/toolkit/analysis/tokenizers.h"

namespace brindle {

/// The tokens of a word list, one by one.  Besides the graphic bytes a list may hold the mark of a stem and the
/// two other forms of the apostrophe.
template <class Take>
void ReadList(std::unique_ptr<IACharStream> characters, Take take) {
    WhiteSpaceTokenizer tokens(std::move(characters), "\xA5\xAB\xD5");
    for (IATermView token; tokens.NextTerm(token);) take(token.View());
}

inline std::unique_ptr<IACharStream> OpenList(const char* path) {
    auto file = std::make_unique<FileCharStream>();
    file->FileFromPath(path);
    return file;
}

}  // namespace brindle

#pragma once
#include <cstdint>
#include <memory>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/toolkit/analysis/letter_tree.h"
#include "lorvale/toolkit/analysis/token_stream.h"

namespace brindle {

class IADocText;

/// A filter that lets tokens through or drops them, and changes none.
class LORVALE_EXPORT IASieve : public IATokenFilter {
public:
    using IATokenFilter::IATokenFilter;
    ~IASieve() override;

    std::unique_ptr<IAToken> GetNextToken() final;
    bool NextTerm(IATermView& next) final;

protected:
    virtual bool Passes(std::string_view term) const = 0;
};

/// Drops empty terms, and terms shorter than the minimum that are made of letters alone: of three, "of" goes,
/// while "of1", "42" and "a1" stay.
class LORVALE_EXPORT ShortWordFilter : public IASieve {
public:
    ShortWordFilter(std::unique_ptr<IATokenStream> input, std::uint32_t minimum);
    ~ShortWordFilter() override;

protected:
    bool Passes(std::string_view term) const override;

private:
    const std::uint32_t minimumLength;
};

/// Drops the words of a list.  It looks at them as they come, so it stands behind whatever folds their case and
/// before whatever cuts their suffixes.
class LORVALE_EXPORT StopwordFilter : public IASieve {
public:
    /// Reads the list from a text; null stands for an empty list.
    StopwordFilter(std::unique_ptr<IATokenStream> input, std::unique_ptr<IADocText> list);
    /// Reads the list from a file; a null or empty path stands for an empty list.
    StopwordFilter(std::unique_ptr<IATokenStream> input, const char* path);
    /// Borrows the list for life.
    StopwordFilter(std::unique_ptr<IATokenStream> input, const LetterTree* list);
    ~StopwordFilter() override;

protected:
    bool Passes(std::string_view term) const override;

private:
    LetterTree ownList;  // empty where the list is borrowed
    const LetterTree* const stopwords;
};

/// Rewrites the ASCII letters of a term in lower case.
class LORVALE_EXPORT DowncaseFilter : public IATokenFilter {
public:
    explicit DowncaseFilter(std::unique_ptr<IATokenStream> input);
    ~DowncaseFilter() override;

    std::unique_ptr<IAToken> GetNextToken() override;
    bool NextTerm(IATermView& next) override;
};

}  // namespace brindle

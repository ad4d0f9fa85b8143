#pragma once
#include <cassert>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "lorvale/export.h"
#include "lorvale/toolkit/analysis/term.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

class IACharStream;

/// A term and where it stood: byte offsets into the character stream.
class LORVALE_EXPORT IAToken : public IAObject {
public:
    IAToken(std::unique_ptr<IATerm> ownTerm, std::uint32_t start, std::uint32_t end)
        : term(std::move(ownTerm)), startPosition(start), endPosition(end) {
        assert(term != nullptr);
    }
    ~IAToken() override;

    const IATerm* GetTerm() const { return term.get(); }
    IATerm* GetTerm() { return term.get(); }
    std::uint32_t GetStartPosition() const { return startPosition; }
    std::uint32_t GetEndPosition() const { return endPosition; }

private:
    const std::unique_ptr<IATerm> term;
    const std::uint32_t startPosition;
    const std::uint32_t endPosition;
};

/// A token without an object of its own, for those who look at many.  The bytes are the stream's and good until
/// its next call; whoever asked for them may overwrite them meanwhile.
struct IATermView {
    char* text = nullptr;  // not terminated
    std::uint32_t length = 0;
    std::uint32_t startPosition = 0;
    std::uint32_t endPosition = 0;

    std::string_view View() const { return {text, length}; }
};

/// Terms of one text, pulled one by one.  Positions are 32 bits wide; in a text of 4 GB and more they begin
/// again at 0.  One thread at a time.
class LORVALE_EXPORT IATokenStream : public IAObject {
public:
    IATokenStream();
    IATokenStream(const IATokenStream&) = delete;
    IATokenStream& operator=(const IATokenStream&) = delete;
    ~IATokenStream() override;

    /// Null at the end of the text.
    virtual std::unique_ptr<IAToken> GetNextToken() = 0;
    /// Copies the source bytes from `start` up to `end`.  The stream remembers the current block of 4096 bytes
    /// and the one before: a span that lies further back raises TextSpanUnavailable.
    virtual void GetTextSpan(std::uint8_t* destination, std::uint32_t start, std::uint32_t end) = 0;
    /// The same next token as a view; false at the end of the text.  The streams of the toolkit make no object
    /// for it; here it is GetNextToken() seen through a view.
    virtual bool NextTerm(IATermView& next);

private:
    std::unique_ptr<IAToken> viewed;  // what the last view looks at, where GetNextToken() made it
};

/// A token stream fed by a character stream.
class LORVALE_EXPORT TokenSource : public IATokenStream {
public:
    /// Without characters: to be used only by a subclass that does not need any.
    TokenSource();
    explicit TokenSource(std::unique_ptr<IACharStream> characters);
    ~TokenSource() override;

    void GetTextSpan(std::uint8_t* destination, std::uint32_t start, std::uint32_t end) override;
    IACharStream* GetCharStream() const { return charStream.get(); }

private:
    const std::unique_ptr<IACharStream> charStream;
};

/// A token stream fed by another one.  Deleting the last filter deletes the whole chain down to the text.
class LORVALE_EXPORT IATokenFilter : public IATokenStream {
public:
    explicit IATokenFilter(std::unique_ptr<IATokenStream> input);
    ~IATokenFilter() override;

    void GetTextSpan(std::uint8_t* destination, std::uint32_t start, std::uint32_t end) override;
    IATokenStream* GetTokenStream() const { return tokenStream.get(); }

protected:
    /// The stream below; raises "no input tokenizer" (NoInputTokenizer) if there is none.
    IATokenStream& Input() const;

private:
    const std::unique_ptr<IATokenStream> tokenStream;
};

}  // namespace brindle

#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/mime/dialect.h"
#include "mail/model/Envelope.h"
#include "mail/stores/ByteDigest.h"
#include "mail/stores/MboxNumbers.h"

namespace lorvale {

/// Where something lies in a flat mailbox file, in bytes.
struct MboxRange {
    std::uint32_t location = 0, length = 0;

    std::uint64_t end() const { return std::uint64_t{location} + length; }
    friend bool operator==(const MboxRange&, const MboxRange&) = default;
};

/// One message of a flat mailbox: where it lies, and what tells whether its bytes are still the same.
struct MboxEntry {
    MboxRange range;
    std::uint32_t headerLength = 0;  ///< with the empty line behind the headers; all of it without such a line
    std::uint32_t headerDigest = 0, bodyDigest = 0;  ///< see ByteDigest

    MboxRange header() const { return {range.location, headerLength}; }
    MboxRange body() const { return {range.location + headerLength, range.length - headerLength}; }
    /// Whether the other one has the same bytes, wherever they lie.
    bool hasBytesOf(const MboxEntry& other) const {
        return range.length == other.range.length && headerLength == other.headerLength &&
               headerDigest == other.headerDigest && bodyDigest == other.bodyDigest;
    }
};

/// Finds the messages of a flat mailbox, at most kLargestMbox bytes of it, that comes in pieces.  A message
/// begins with the mark of an envelope line at the start of the file, behind any ASCII white space, or right
/// behind a newline, and runs up to the next one or the end.  Without such a mark at the start there is no
/// message at all.  Linear in the size, whatever the pieces; keeps nothing but the message at hand.
class MboxScanner {
public:
    /// `found` gets each message once its end is known, in the order of the file.
    explicit MboxScanner(std::function<void(const MboxEntry&)> found) : _found(std::move(found)) {}

    void add(std::string_view bytes);
    /// There are no more bytes.
    void finish();

    /// How many bytes came.
    std::uint64_t size() const { return _size; }
    /// After finish(): whether messages can stand in these bytes, which is so for white space, too.
    bool isMbox() const { return _state != State::noMbox; }

private:
    enum class State {
        beforeFirst,  // white space alone so far
        inMessage,
        noMbox,  // something else stands at the start
    };

    std::size_t step(std::string_view bytes);
    std::size_t matchSeparator(std::string_view bytes);
    void beginMessage(std::uint64_t location);
    void endMessage();
    void addToMessage(std::string_view bytes);
    std::size_t headerEndIn(std::string_view bytes) const;
    void endHeader();

    const std::function<void(const MboxEntry&)> _found;
    const bool _seesCrlf = mailDialect() == MailDialect::standard;  // an empty line may end with CRLF
    State _state = State::beforeFirst;
    std::uint64_t _size = 0;
    bool _atLineStart = false;  // where a message may begin,
    std::size_t _matched = 0;   // and this much of the mark stands there already
    MboxEntry _message;         // the one at hand
    ByteDigest _digest;         // of its header so far, or of its body
    bool _inHeader = false;
    std::string _headerTail;  // the last two bytes of the header so far
};

/// All messages in these bytes.
std::vector<MboxEntry> mboxEntries(std::string_view bytes);

/// The newlines to write behind these bytes so that they end with an empty line: none, one or two.
std::string_view mboxPadding(std::string_view bytes);

}  // namespace lorvale

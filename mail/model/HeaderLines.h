#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/mime/dialect.h"

namespace lorvale {

/// Hands out the logical lines of a header block as they stand, folds in them, so that a reader unfolds only
/// what it wants.  Borrows the block.
class HeaderLines {
public:
    HeaderLines(std::string_view block, MailDialect dialect);

    /// The next line without its line end; nullopt at an empty line or the end.
    std::optional<std::string_view> next();

    /// A line, or a part of one, with its folds undone: good until the next call of this operation.  In the
    /// classic dialect the newline goes with one blank or tab behind it, in the standard one the line end
    /// alone.
    std::string_view unfolded(std::string_view part);

    /// Whether next() answered nullopt because of an empty line; of the standard dialect only.
    bool endedAtEmptyLine() const { return _sawEmptyLine; }
    /// How many bytes were read so far.
    std::size_t position() const { return _block.size() - _rest.size(); }

private:
    std::optional<std::string_view> nextClassic();
    std::optional<std::string_view> nextStandard();
    std::size_t takePhysicalLine();

    const std::string_view _block;
    std::string_view _rest;
    const MailDialect _dialect;
    const char _lineEnd;
    bool _sawEmptyLine = false;
    std::string _unfolded;
};

}  // namespace lorvale

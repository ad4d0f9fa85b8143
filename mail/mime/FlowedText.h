#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace lorvale {

/// Text of "format=flowed" (RFC 3676) with its paragraphs on one line each.  Quoted lines keep their marks.
/// `deletesSpace`: the parameter "delsp=yes", by which the blank at a soft line end goes.
std::string unflowedText(std::string_view text, bool deletesSpace);

/// The same text with its paragraphs of more than 76 characters in shorter lines where blanks allow it, so that
/// unflowedText() without `deletesSpace` gives it back.  Nullopt for a text with a blank at the end of a line,
/// for which the format has no form.
std::optional<std::string> flowedText(std::string_view text);

}  // namespace lorvale

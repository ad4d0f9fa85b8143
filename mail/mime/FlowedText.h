#pragma once
#include <string>
#include <string_view>

namespace lorvale {

/// Text of "format=flowed" (RFC 3676) with its paragraphs on one line each.  Quoted lines keep their marks.
/// `deletesSpace`: the parameter "delsp=yes", by which the blank at a soft line end goes.
std::string unflowedText(std::string_view text, bool deletesSpace);

}  // namespace lorvale

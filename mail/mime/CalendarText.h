#pragma once
#include <string>
#include <string_view>

namespace lorvale {

/// A calendar (RFC 5545) as a person reads it: of each event and task what it is, when, where and by whom.
/// Text without one comes back as it is.
std::string calendarText(std::string_view calendar);

}  // namespace lorvale

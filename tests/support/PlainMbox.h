#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace lorvale::testing {

/// The messages of a flat mailbox by the plain rule, byte by byte: what the fast scan must agree with.
inline std::vector<std::string_view> messagesByPlainRule(std::string_view bytes) {
    std::size_t first = 0;
    while (first < bytes.size() && std::string_view("\t\n\f\r ").find(bytes[first]) != std::string_view::npos)
        ++first;
    std::vector<std::size_t> starts;
    for (std::size_t i = first; i < bytes.size(); ++i) {
        const bool mayBegin = i == first || bytes[i - 1] == '\n';
        if (mayBegin && bytes.compare(i, 5, "From ") == 0) starts.push_back(i);
    }
    if (starts.empty() || starts.front() != first) return {};
    starts.push_back(bytes.size());
    std::vector<std::string_view> messages;
    for (std::size_t i = 0; i + 1 < starts.size(); ++i)
        messages.push_back(bytes.substr(starts[i], starts[i + 1] - starts[i]));
    return messages;
}

}  // namespace lorvale::testing

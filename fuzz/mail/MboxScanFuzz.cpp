// The messages found in any bytes are those of the plain rule, and taking one of them out changes no other.
#include <cstdlib>
#include <string>

#include "mail/stores/MboxScan.h"
#include "tests/support/PlainMbox.h"

using namespace lorvale;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    const auto ranges = mboxRanges(text);
    const auto plain = testing::messagesByPlainRule(text);
    if (ranges.size() != plain.size()) std::abort();
    std::uint64_t end = ranges.empty() ? 0 : ranges.front().location;
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        if (ranges[i].location != end || ranges[i].length == 0) std::abort();
        end = ranges[i].end();
        const auto message = text.substr(ranges[i].location, ranges[i].length);
        if (message != plain[i]) std::abort();
        const auto head = mboxHeaderLength(message);
        if (head > message.size() || (head < message.size() && !message.substr(0, head).ends_with("\n\n")))
            std::abort();
    }
    if (!ranges.empty() && end != text.size()) std::abort();
    if (ranges.empty()) return 0;

    const auto gone = size % ranges.size();
    std::string left(text);
    left.erase(ranges[gone].location, ranges[gone].length);
    const auto others = mboxRanges(left);
    if (others.size() + 1 != ranges.size()) std::abort();
    for (std::size_t i = 0; i < others.size(); ++i) {
        const auto& before = plain[i < gone ? i : i + 1];
        if (std::string_view(left).substr(others[i].location, others[i].length) != before) std::abort();
    }
    return 0;
}

// The messages found in any bytes are those of the plain rule, in whatever pieces the bytes come, and taking
// one of them out changes no other.
#include "fuzz/FuzzTarget.h"
#include "mail/stores/MboxScan.h"
#include "tests/support/PlainMbox.h"

using namespace lorvale;

namespace {

std::vector<MboxEntry> entriesInPieces(std::string_view bytes, std::size_t size) {
    std::vector<MboxEntry> entries;
    MboxScanner scanner([&](const MboxEntry& entry) { entries.push_back(entry); });
    for (; !bytes.empty(); bytes.remove_prefix(std::min(size, bytes.size())))
        scanner.add(bytes.substr(0, size));
    scanner.finish();
    return entries;
}

bool sameBytes(const MboxEntry& a, const MboxEntry& b) {
    return a.hasBytesOf(b);
}

}  // namespace

LORVALE_FUZZ_TARGET(text) {
    const auto entries = mboxEntries(text);
    const auto plain = testing::messagesByPlainRule(text);
    if (entries.size() != plain.size()) std::abort();
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const auto [location, length] = entries[i].range;
        if (text.substr(location, length) != plain[i]) std::abort();
        const auto end = plain[i].find("\n\n");
        const auto head = end == std::string_view::npos ? length : end + 2;
        if (entries[i].headerLength != head || entries[i].headerDigest != digestOf(plain[i].substr(0, head)) ||
            entries[i].bodyDigest != digestOf(plain[i].substr(head)))
            std::abort();
    }
    for (const std::size_t piece : {1u, 2u, 5u, 33u}) {
        if (!std::ranges::equal(entriesInPieces(text, piece), entries, [](const auto& a, const auto& b) {
                return a.range == b.range && sameBytes(a, b);
            }))
            std::abort();
    }
    if (entries.empty()) return;

    const auto gone = static_cast<std::ptrdiff_t>(text.size() % entries.size());
    auto others = entries;
    others.erase(others.begin() + gone);
    std::string left(text);
    left.erase(entries[static_cast<std::size_t>(gone)].range.location,
               entries[static_cast<std::size_t>(gone)].range.length);
    if (!std::ranges::equal(mboxEntries(left), others, sameBytes)) std::abort();
}

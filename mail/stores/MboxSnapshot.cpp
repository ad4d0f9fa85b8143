#include "mail/stores/MboxSnapshot.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "lorvale/values/format.h"

namespace lorvale {

namespace {

constexpr std::uint64_t kLargestMailbox = std::numeric_limits<std::uint32_t>::max();

bool sameFile(const FileAttributes& a, const FileAttributes& b) {
    return a.device == b.device && a.inode == b.inode;
}

bool sameState(const FileAttributes& a, const FileAttributes& b) {
    return sameFile(a, b) && a.size == b.size && a.modified == b.modified &&
           a.modifiedNanoseconds == b.modifiedNanoseconds;
}

}  // namespace

MboxSnapshot::MboxSnapshot(std::string path, Data data, std::optional<FileAttributes> attributes)
    : _path(std::move(path)), _data(std::move(data)), _attributes(std::move(attributes)) {}

std::unique_ptr<MboxSnapshot> MboxSnapshot::ofFile(const std::string& path, std::string& reason) {
    auto& files = FileSystem::current();
    for (int attempt = 0; attempt < 3; ++attempt) {
        const auto before = files.attributes(path);
        FileStatus status;
        auto data = files.mapFile(path, &status);
        if (!data && status.code() != ENOENT) {
            reason = status.text();
            return nullptr;
        }
        if (data && data->size() > kLargestMailbox) {
            reason =
                formatText("%@ has %@ bytes, more than the 4 GB a flat mailbox may have", path, data->size());
            return nullptr;
        }
        const auto after = files.attributes(path);
        const bool steady = data ? before && after && sameState(*before, *after) : !after;
        if (steady) {
            return std::unique_ptr<MboxSnapshot>(
                new MboxSnapshot(path, std::move(data).value_or(Data()), after));
        }
    }
    reason = formatText("%@ is being changed by another program", path);
    return nullptr;
}

std::optional<std::string_view> MboxSnapshot::touch(MboxRange range) const {
    if (range.end() > _data.size()) return std::nullopt;
    const auto now = FileSystem::current().attributes(_path);
    // A file that was replaced or removed cannot be cut off under its old name any more.
    const bool ours = now && _attributes && sameFile(*now, *_attributes);
    if (ours && static_cast<std::uint64_t>(now->size) < range.end()) return std::nullopt;
    return _data.view().substr(range.location, range.length);
}

std::optional<Data> MboxSnapshot::bytes(MboxRange range) const {
    const auto there = touch(range);
    return there ? std::optional(Data::copyOf(*there)) : std::nullopt;
}

std::optional<Data> MboxSnapshot::headerBytes(MboxRange message) const {
    const auto whole = touch(message);
    if (!whole) return std::nullopt;
    return Data::copyOf(whole->substr(0, mboxHeaderLength(*whole)));
}

std::optional<Data> MboxSnapshot::bodyBytes(MboxRange message) const {
    const auto whole = touch(message);
    if (!whole) return std::nullopt;
    return Data::copyOf(whole->substr(mboxHeaderLength(*whole)));
}

bool MboxSnapshot::isCurrent() const {
    const auto now = FileSystem::current().attributes(_path);
    if (!now || !_attributes) return !now && !_attributes;
    return sameState(*now, *_attributes);
}

std::optional<std::vector<MboxRange>> MboxSnapshot::rangesIn(const MboxSnapshot& later,
                                                             const std::vector<MboxRange>& ranges) const {
    if (!_attributes || !later._attributes || ranges.empty()) return std::nullopt;
    if (sameState(*_attributes, *later._attributes)) return ranges;
    if (later.size() <= size()) return std::nullopt;
    // A mapping of the very same file shows what others wrote into it; then the places alone can tell.
    const bool replaced = !sameFile(*_attributes, *later._attributes);
    if (replaced && !later.view().starts_with(view())) return std::nullopt;
    auto theirs = mboxRanges(later.view());
    if (theirs.size() < ranges.size()) return std::nullopt;
    theirs.resize(ranges.size());
    if (!std::ranges::equal(ranges, theirs, {}, &MboxRange::location, &MboxRange::location))
        return std::nullopt;
    // Newlines that an appender put in front of its own mail go to our last message; any other text there is
    // mail that we know nothing of.
    const auto added = later.view().substr(ranges.back().end(), theirs.back().end() - ranges.back().end());
    if (added.find_first_not_of('\n') != std::string_view::npos) return std::nullopt;
    return theirs;
}

std::optional<mode_t> MboxSnapshot::permissions() const {
    if (!_attributes) return std::nullopt;
    return _attributes->permissions;
}

}  // namespace lorvale

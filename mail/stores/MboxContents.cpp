#include "mail/stores/MboxContents.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "lorvale/values/format.h"
#include "mail/stores/MboxReplacement.h"

namespace lorvale {

namespace {

// How often to begin anew when other programs change the file under our hands.
constexpr int kAttempts = 3;

bool sameBytes(const MboxEntry& a, const MboxEntry& b) {
    return a.hasBytesOf(b);
}

/// The file at a path just before it is copied.  A mailbox that was there and is missing may be between two
/// names: some programs remove the old file before they move the new one there.
std::optional<FileAttributes> stateBeforeCopying(const std::string& path, bool wasThere) {
    for (int look = 0;; ++look) {
        auto attributes = FileSystem::current().attributes(path);
        if (attributes) letClockTick(*attributes);
        if (attributes || !wasThere || look == kAttempts) return attributes;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

}  // namespace

MboxPass::Outcome MboxContents::Reading::read(ReadableFile& file) {
    MboxPass pass(file, [this](const MboxEntry& entry) { entries.push_back(entry); });
    while (pass.step()) continue;
    entries.shrink_to_fit();
    attributes = pass.attributes();
    size = pass.size();
    isMbox = pass.isMbox();
    return pass.outcome();
}

bool MboxContents::Reading::keepWhatStoodIn(const Reading& earlier) {
    const auto different = std::ranges::mismatch(entries, earlier.entries, sameBytes).in1;
    const auto same = static_cast<std::size_t>(different - entries.begin());
    if (same + 1 < earlier.entries.size()) return false;
    if (entries.empty()) return true;
    entries.resize(std::max<std::size_t>(same, 1));
    size = entries.back().range.end();
    return true;
}

std::shared_ptr<const MboxContents> MboxContents::ofFile(const std::string& path, std::string& reason) {
    std::optional<Reading> earlier;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        FileStatus status;
        auto file = FileSystem::current().openForReading(path, &status);
        if (file == nullptr && status.code() == ENOENT) return std::make_shared<MboxContents>(path);
        reason = status.text();
        if (file == nullptr) return nullptr;
        Reading reading;
        switch (reading.read(*file)) {
            case MboxPass::Outcome::done:
                return std::make_shared<MboxContents>(path, std::move(file), std::move(reading));
            case MboxPass::Outcome::failed:
                reason = FileStatus::failed("read", path).text();
                return nullptr;
            case MboxPass::Outcome::tooLarge:
                reason = formatText("%@ has %@ bytes, more than the 4 GB a flat mailbox may have", path,
                                    reading.attributes.size);
                return nullptr;
            case MboxPass::Outcome::grown:
                // Who adds may have overwritten, too; what is found twice was not.
                if (earlier && reading.keepWhatStoodIn(*earlier))
                    return std::make_shared<MboxContents>(path, std::move(file), std::move(reading));
                earlier = std::move(reading);
                break;
            case MboxPass::Outcome::disturbed:
                break;
        }
        reason = formatText("%@ is being changed by another program", path);
    }
    return nullptr;
}

MboxContents::MboxContents(std::string path) : _path(std::move(path)) {}

MboxContents::MboxContents(std::string path, std::unique_ptr<ReadableFile> file, Reading reading)
    : _path(std::move(path)),
      _file(std::move(file)),
      _attributes(reading.attributes),
      _entries(std::move(reading.entries)),
      _size(reading.size),
      _isMbox(reading.isMbox) {}

const MboxEntry* MboxContents::entryAt(MboxRange range) const {
    const auto location = [](const MboxEntry& entry) { return entry.range.location; };
    const auto found = std::ranges::lower_bound(_entries, range.location, {}, location);
    return found != _entries.end() && found->range == range ? &*found : nullptr;
}

std::string MboxContents::nameOf(const MboxEntry& entry) const {
    return formatText("message %d of the mailbox %@", &entry - _entries.data() + 1, _path);
}

std::optional<std::size_t> MboxContents::readInto(std::span<char> buffer, std::uint64_t offset) const {
    if (_file == nullptr) return std::nullopt;
    return _file->readInto(buffer, offset);
}

std::optional<Data> MboxContents::bytes(MboxRange range, std::uint32_t digest) const {
    return _file != nullptr ? readMboxBytes(*_file, range, digest) : std::nullopt;
}

FileStatus MboxContents::copyTo(WritableFile& file) const {
    std::vector<char> block(kMboxBlock);
    std::size_t messages = 0;
    bool same = true;
    MboxScanner scanner([&](const MboxEntry& entry) {
        same = same && messages < _entries.size() && entry.hasBytesOf(_entries[messages]);
        ++messages;
    });
    while (scanner.size() < _size) {
        const auto wanted = std::min<std::uint64_t>(block.size(), _size - scanner.size());
        const auto count = readInto(std::span(block).first(static_cast<std::size_t>(wanted)), scanner.size());
        if (!count) return FileStatus::failed("read", _path);
        if (*count == 0) break;
        if (auto status = file.write({block.data(), *count}); !status) return status;
        scanner.add({block.data(), *count});
    }
    scanner.finish();
    if (same && messages == _entries.size() && scanner.size() == _size) return {};
    return {EIO, formatText("%@ was changed by another program", _path)};
}

bool MboxContents::isDescribedBy(const std::optional<FileAttributes>& attributes) const {
    if (!attributes || !exists()) return !attributes && !exists();
    return attributes->isSameFileAs(_attributes) && sizeOf(*attributes) == _size &&
           sameTime(*attributes, _attributes);
}

bool MboxContents::leadsTo(const MboxContents& later) const {
    if (_entries.empty()) return true;
    if (later._entries.size() < _entries.size()) return false;
    const auto last = static_cast<std::ptrdiff_t>(_entries.size()) - 1;
    return std::equal(_entries.begin(), _entries.begin() + last, later._entries.begin(), sameBytes) &&
           later.continues(later._entries[static_cast<std::size_t>(last)], _entries.back());
}

/// Whether one of our messages is an earlier one, perhaps with newlines that an appender put behind it, in
/// front of its own mail.
bool MboxContents::continues(const MboxEntry& entry, const MboxEntry& earlier) const {
    if (entry.hasBytesOf(earlier)) return true;
    if (entry.range.length <= earlier.range.length) return false;
    const auto whole = _file->read(entry.range.location, entry.range.length);
    if (!whole || whole->size() != entry.range.length) return false;
    const auto bytes = whole->view(), header = bytes.substr(0, earlier.headerLength);
    const auto body = bytes.substr(header.size(), earlier.range.length - header.size());
    return digestOf(header) == earlier.headerDigest && digestOf(body) == earlier.bodyDigest &&
           bytes.find_first_not_of('\n', earlier.range.length) == std::string_view::npos;
}

MboxRewriting MboxContents::rewrite(std::optional<mode_t> permissions, const Fill& fill) const {
    MboxRewriting result;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const auto state = stateBeforeCopying(_path, exists());
        // What was read once is read again only where there is a reason to: a change that does not show in the
        // file's times is found while the messages are copied.
        const bool asKnown = attempt == 0 && isDescribedBy(state);
        result.before = asKnown ? shared_from_this() : ofFile(_path, result.reason);
        if (result.before == nullptr) return result;
        if (!result.before->isDescribedBy(state)) continue;
        MboxReplacement next(*result.before, state, permissions);
        if (!fill(*result.before, next)) return result;
        switch (next.commit()) {
            case MboxReplacement::Outcome::done:
                result.after = next.contents();
                return result;
            case MboxReplacement::Outcome::failed:
                result.reason = next.reason();
                return result;
            case MboxReplacement::Outcome::sourceChanged:
                break;
        }
    }
    result.reason = "it is busy, other programs keep changing it";
    return result;
}

}  // namespace lorvale

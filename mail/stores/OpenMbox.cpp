#include "mail/stores/OpenMbox.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "mail/model/HeaderDecoding.h"
#include "mail/stores/TOCMessage.h"

namespace lorvale {

bool isUnchanged(const FileAttributes& now, const FileAttributes& before) {
    return now.isSameFileAs(before) && now.size == before.size && now.modified == before.modified &&
           now.modifiedNanoseconds == before.modifiedNanoseconds;
}

std::shared_ptr<const OpenMbox> OpenMbox::open(const std::string& path, FileStatus& status) {
    auto mbox = std::make_shared<OpenMbox>();
    mbox->file = FileSystem::current().openForReading(path, &status);
    if (mbox->file == nullptr) return nullptr;
    const auto attributes = mbox->file->attributes();
    if (!attributes) {
        status = FileStatus::failed("look at", path);
        return nullptr;
    }
    mbox->known = *attributes;
    return mbox;
}

std::shared_ptr<const OpenMbox> OpenMbox::changed(bool placesToo) const {
    const auto attributes = file->attributes();
    if (!attributes) return nullptr;
    return std::make_shared<const OpenMbox>(OpenMbox{file, *attributes, generation + (placesToo ? 1 : 0)});
}

std::optional<Data> OpenMbox::read(MboxRange range) const {
    auto bytes = file->read(range.location, range.length);
    return bytes && bytes->size() == range.length ? bytes : std::nullopt;
}

std::optional<Data> OpenMbox::headerOf(const TOCMessage& message, MboxRange range) const {
    // Most header blocks are shorter, and a body may be huge.
    for (std::uint32_t wanted = 16 * 1024;; wanted *= 8) {
        const bool whole = wanted >= range.length || wanted >= (1U << 28);
        const auto bytes = read({range.location, whole ? range.length : wanted});
        if (!bytes) return std::nullopt;
        const auto end = headerEnd(bytes->view());
        if (!end && !whole) continue;
        const auto header = bytes->subdata(Range{0, end.value_or(bytes->size())});
        return isStill(message, range, header.view()) ? std::optional(header) : std::nullopt;
    }
}

std::optional<Data> OpenMbox::bodyOf(const TOCMessage& message, MboxRange range) const {
    const auto bytes = read(range);
    if (!bytes) return std::nullopt;
    const auto length = headerLength(bytes->view());
    if (!isStill(message, range, bytes->view().substr(0, length))) return std::nullopt;
    return bytes->subdata(Range{length, bytes->size() - length});
}

bool OpenMbox::isStill(const TOCMessage& message, MboxRange range, std::string_view header) const {
    if (!header.starts_with(kEnvelopeMark)) return false;
    const auto now = file->attributes();
    if (!now) return false;
    if (isUnchanged(*now, known)) return true;
    const TOCMessage found(range, TOCListing::ofHeaderBlock(header));
    if (found.sender() != message.sender() || found.subject() != message.subject() ||
        found.dateReceived() != message.dateReceived())
        return false;
    // It must not run into another message, nor end in the middle of its own.
    const auto end = file->read(range.end() - 1, 1 + kEnvelopeMark.size());
    if (!end || end->empty()) return false;
    return end->size() == 1 || end->view() == '\n' + std::string(kEnvelopeMark);
}

bool OpenMbox::scan(std::uint64_t start, const std::function<void(MboxEntry)>& found) const {
    bool isFirst = true, beginsThere = true;
    MboxScanner scanner([&](MboxEntry entry) {
        if (std::exchange(isFirst, false)) beginsThere = start == 0 || entry.range.location == 0;
        entry.range.location += static_cast<std::uint32_t>(start);
        found(entry);
    });
    std::vector<char> block(kMboxBlock);
    while (start + scanner.size() < size()) {
        const auto wanted = std::min<std::uint64_t>(block.size(), size() - start - scanner.size());
        const auto count =
            file->readInto({block.data(), static_cast<std::size_t>(wanted)}, start + scanner.size());
        if (!count || *count == 0) return false;
        scanner.add({block.data(), *count});
    }
    scanner.finish();
    return scanner.isMbox() && beginsThere;
}

}  // namespace lorvale

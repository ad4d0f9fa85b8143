#include "mail/fetch/SpoolFile.h"

#include <algorithm>
#include <utility>

#include "base/files/PathUtils.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"
#include "mail/model/Envelope.h"

namespace lorvale {

namespace {

constexpr mode_t kPermissions = 0600;
constexpr std::size_t kBlock = std::size_t{1} << 20;

/// How much of the file is left without the NULs at its end, which are no mail but room that was never filled.
std::optional<std::uint64_t> sizeWithoutNuls(ReadableFile& file) {
    auto size = file.size();
    while (size > 0) {
        const auto length = std::min<std::uint64_t>(size, kBlock);
        const auto tail = file.read(size - length, static_cast<std::size_t>(length));
        if (!tail || tail->size() != length) return std::nullopt;
        const auto last = tail->view().find_last_not_of('\0');
        if (last != std::string_view::npos) return size - length + last + 1;
        size -= length;
    }
    return size;
}

}  // namespace

SpoolFile::SpoolFile(std::string path) : _path(std::move(path)) {
    auto status = repair(_path);
    if (status) _file = FileSystem::current().openForWriting(_path, WriteMode::append, kPermissions, &status);
    if (!status) throw POP3Exception(status.text());
}

SpoolFile::~SpoolFile() = default;

void SpoolFile::write(std::string_view entry) {
    _waiting.append(entry);
    if (_waiting.size() >= kBlock) flush();
}

void SpoolFile::flush() {
    if (_waiting.empty()) return;
    const auto before = _file->position();
    auto status = _file->write(_waiting);
    if (status) status = _file->sync();
    _waiting.clear();
    if (status) return;
    // A piece of a message would be routed like a whole one.
    if (auto cut = _file->truncate(before); !cut) log("%@", cut.text());
    throw POP3Exception(status.text());
}

void SpoolFile::close() {
    flush();
    auto status = _file->close();
    if (status) status = FileSystem::current().syncFolder(folderOf(_path));
    if (!status) throw POP3Exception(status.text());
}

FileStatus SpoolFile::repair(const std::string& path) {
    auto& files = FileSystem::current();
    FileStatus status;
    if (!files.exists(path)) return status;
    const auto file = files.openForReading(path, &status);
    if (file == nullptr) return status;
    const auto size = sizeWithoutNuls(*file);
    const auto start = file->read(0, 4096);
    if (!size || !start) return FileStatus::failed("read", path);
    const auto first = trimmed(
        start->view().substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(*size, start->size()))));
    const bool isPiece = kEnvelopeMark.starts_with(first);  // of the first mark, or nothing
    if (!isPiece && !first.starts_with(trimmed(kEnvelopeMark))) {
        const auto aside = uniquePath(path + ".unreadable");
        log("%@ holds no mail, and goes to %@", path, aside);
        return files.rename(path, aside);
    }
    const auto keep = isPiece ? 0 : *size;
    const auto last = keep > 0 ? file->read(keep - 1, 1) : std::nullopt;
    const bool isOpen = last && last->view() != "\n";
    if (keep == file->size() && !isOpen) return status;
    const auto changed = files.openForWriting(path, WriteMode::append, kPermissions, &status);
    if (status) status = changed->truncate(keep);
    if (status) status = changed->seek(keep);
    if (status && isOpen) status = changed->write("\n");
    if (status) status = changed->sync();
    return status;
}

}  // namespace lorvale

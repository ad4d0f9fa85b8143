#include "mail/imap/MirrorFiles.h"

#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/platform/log.h"
#include "mail/imap/StoreNames.h"

namespace lorvale {

MirrorFiles::MirrorFiles(std::string folder) : _folder(std::move(folder)) {}

MirrorFiles::~MirrorFiles() {
    discard();
}

bool MirrorFiles::add(std::string_view name, std::string_view text) {
    auto& files = FileSystem::current();
    const auto path = stringByAppendingPathComponent(_folder, name);
    auto written = temporaryPathBeside(path);
    FileStatus status;
    auto file = files.openForWriting(written, WriteMode::createNew, kMirrorFileMode, &status);
    if (file) status = file->write(text);
    if (status && _first) status = file->close();
    if (!status) {
        log("%@", status.text());
        if (file) (void)files.remove(written);
        return false;
    }
    if (!_first) _first = std::move(file);
    _files.push_back({std::move(written), path});
    _bytes += text.size();
    return true;
}

std::size_t MirrorFiles::commit() {
    if (_files.empty()) return 0;
    const auto first = std::exchange(_first, nullptr);
    auto status = first->syncWithOthers();
    if (const auto closed = first->close(); status) status = closed;
    if (!status) {
        log("%@", status.text());
        discard();
        return 0;
    }
    auto& files = FileSystem::current();
    std::size_t count = 0;
    for (const auto& file : _files) {
        const auto moved = files.rename(file.written, file.path);
        if (moved)
            ++count;
        else
            log("%@", moved.text());
    }
    _files.clear();
    _bytes = 0;
    if (const auto synced = files.syncFolder(_folder); !synced) log("%@", synced.text());
    return count;
}

void MirrorFiles::discard() {
    for (const auto& file : std::exchange(_files, {})) (void)FileSystem::current().remove(file.written);
    _bytes = 0;
}

}  // namespace lorvale

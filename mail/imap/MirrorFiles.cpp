#include "mail/imap/MirrorFiles.h"

#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/platform/log.h"
#include "mail/imap/StoreNames.h"

namespace lorvale {

MirrorFiles::~MirrorFiles() {
    for (const auto& file : _files) (void)FileSystem::current().remove(file.written);
}

bool MirrorFiles::add(std::string_view name, std::string_view text) {
    const auto path = stringByAppendingPathComponent(_folder, name);
    auto written = temporaryPathBeside(path);
    FileStatus status;
    const auto file =
        FileSystem::current().openForWriting(written, WriteMode::createNew, kMirrorFileMode, &status);
    if (file) {
        status = file->write(text);
        if (status) status = file->sync();
        if (const auto closed = file->close(); status) status = closed;
    }
    if (!status) {
        log("%@", status.text());
        if (file) (void)FileSystem::current().remove(written);
        return false;
    }
    _files.push_back({std::move(written), path});
    return true;
}

void MirrorFiles::commit() {
    if (_files.empty()) return;
    for (const auto& file : std::exchange(_files, {}))
        if (const auto moved = FileSystem::current().rename(file.written, file.path); !moved)
            log("%@", moved.text());
    if (const auto synced = FileSystem::current().syncFolder(_folder); !synced) log("%@", synced.text());
}

}  // namespace lorvale

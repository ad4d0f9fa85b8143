#include "mail/search/MboxIndexFile.h"

#include "base/files/PathUtils.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store/message_store.h"

namespace lorvale {

std::string MboxIndexFile::pathInStore(const MessageStore& store) {
    return stringByAppendingPathComponent(standardizePath(store.storePath()), kIndexName);
}

bool MboxIndexFile::exists() const {
    return FileSystem::current().exists(_path);
}

void MboxIndexFile::remove() const {
    if (!exists()) return;
    if (const auto removed = FileSystem::current().remove(_path); !removed) log("%@", removed.text());
}

void MboxIndexFile::remember() {
    _known = FileSystem::current().attributes(_path);
}

bool MboxIndexFile::isUnchanged() const {
    const auto now = FileSystem::current().attributes(_path);
    return now && _known && now->isSameFileAs(*_known) && now->size == _known->size &&
           now->modified == _known->modified && now->modifiedNanoseconds == _known->modifiedNanoseconds;
}

}  // namespace lorvale

#include "mail/search/MboxIndexFile.h"

#include <chrono>

#include "base/files/PathUtils.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store/message_store.h"

namespace lorvale {

namespace {

constexpr std::string_view kMailName = "mbox";
constexpr std::chrono::seconds kCoarsestClock(2);

std::optional<MboxIndexFile::Time> timeOf(const std::string& path) {
    std::error_code error;
    const auto time = std::filesystem::last_write_time(path, error);
    return error ? std::nullopt : std::optional(time);
}

}  // namespace

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
           now->changed == _known->changed && now->changedNanoseconds == _known->changedNanoseconds;
}

std::optional<MboxIndexFile::Time> MboxIndexFile::mailTime() const {
    return timeOf(stringByAppendingPathComponent(folderOf(_path), kMailName));
}

bool MboxIndexFile::isMarkedComplete() const {
    const auto mail = mailTime();
    const auto index = FileSystem::current().attributes(_path);
    if (!mail || !index || mail != timeOf(_path)) return false;
    // A file that was written in the same tick as the mail has its time, too, but nobody has given it that.
    return index->changed - index->modified >= kCoarsestClock.count();
}

void MboxIndexFile::markComplete(Time mail) const {
    if (mail != mailTime() || Time::clock::now() - mail < kCoarsestClock) return;
    std::error_code ignored;  // it is compared with the mailbox then
    std::filesystem::last_write_time(_path, mail, ignored);
}

void MboxIndexFile::unmark() const {
    std::error_code ignored;  // of who may not write it, and so will not change it
    if (isMarkedComplete()) std::filesystem::last_write_time(_path, Time::clock::now(), ignored);
}

}  // namespace lorvale

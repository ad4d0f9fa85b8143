#include "mail/accounts/LocalMailboxes.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"

namespace lorvale {

std::vector<std::string> mailboxNamesIn(const std::string& directory) {
    auto& files = FileSystem::current();
    auto names = files.namesInFolder(directory);
    if (!names) {
        if (files.exists(directory)) log("The folder %@ cannot be read", directory);
        return {};
    }
    std::erase_if(*names, [&](const std::string& name) {
        return !isMailboxPath(name) && !files.isDirectory(stringByAppendingPathComponent(directory, name));
    });
    // By name without regard to case, those that begin with "." behind the others.  Each is folded only once.
    using Key = std::tuple<bool, std::string, std::string>;
    std::vector<Key> keys;
    for (auto& name : *names) {
        auto folded = foldCase(name);
        keys.emplace_back(name.starts_with('.'), std::move(folded), std::move(name));
    }
    std::ranges::sort(keys);
    std::ranges::transform(keys, names->begin(), [](Key& key) { return std::move(std::get<2>(key)); });
    return std::move(*names);
}

bool leadsBackUp(const std::string& directory, const std::string& root) {
    if (!directory.starts_with(root + '/')) return false;
    auto& files = FileSystem::current();
    const auto here = files.attributes(directory);
    for (auto above = directory; here && above.size() > root.size();) {
        above.resize(above.rfind('/'));
        const auto there = files.attributes(above);
        if (there && there->isSameFileAs(*here)) return true;
    }
    return false;
}

}  // namespace lorvale

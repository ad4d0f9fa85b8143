#include "base/platform/FullUserName.h"

#include <pwd.h>

#include <vector>

#include "lorvale/platform/paths.h"

namespace lorvale {

std::string nameFromGecos(std::string_view gecos, std::string_view loginName) {
    std::string name(gecos);
    if (const auto mark = name.find('&'); mark != std::string::npos) name.replace(mark, 1, loginName);
    return name.substr(0, name.find(','));
}

const std::string& fullUserName() {
    // The OS keeps a full name nowhere but in the password database.
    static const std::string name = [] {
        const auto login = loginName();
        std::vector<char> storage(16 * 1024);
        passwd entry{};
        passwd* found = nullptr;
        if (::getpwnam_r(login.c_str(), &entry, storage.data(), storage.size(), &found) != 0 ||
            found == nullptr)
            return login;
        return nameFromGecos(found->pw_gecos, login);
    }();
    return name;
}

}  // namespace lorvale

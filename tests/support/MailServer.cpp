#include "tests/support/MailServer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "tests/support/TestSupport.h"

namespace lorvale::testing {

namespace fs = std::filesystem;

MailServer::MailServer(std::vector<std::string> settings)
    : _script("dovecot", [&] {
          settings.insert(settings.begin(), "serve");
          return settings;
      }()) {}

MailServer::~MailServer() = default;

std::string MailServer::log() const {
    return readFile(folder() / "log");
}

void MailServer::deliver(const std::string& user, std::string_view message) {
    const auto maildir = folder() / "mail" / user;
    const auto giveAway = [&](const fs::path& path) {
        // To whom the server serves it: the owner of the folder of all mail.
        struct stat owner {};
        if (::stat((folder() / "mail").c_str(), &owner) == 0 && ::geteuid() == 0)
            if (::chown(path.c_str(), owner.st_uid, owner.st_gid) != 0) throw std::runtime_error("chown");
    };
    for (const auto* name : {"", "cur", "new", "tmp"}) {
        if (fs::create_directory(maildir / name)) giveAway(maildir / name);
    }
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "%010d.M%dP1.test", 1'000'000'000 + _delivered, _delivered);
    ++_delivered;
    writeFile(maildir / "tmp" / name.data(), message);
    giveAway(maildir / "tmp" / name.data());
    fs::rename(maildir / "tmp" / name.data(), maildir / "new" / name.data());
}

std::vector<fs::path> MailServer::messagesOf(const std::string& user) const {
    std::vector<fs::path> all;
    for (const auto* name : {"cur", "new"}) {
        const auto place = folder() / "mail" / user / name;
        if (!fs::exists(place)) continue;
        for (const auto& entry : fs::directory_iterator(place)) all.push_back(entry.path());
    }
    std::ranges::sort(all, {}, [](const fs::path& path) { return path.filename(); });
    return all;
}

}  // namespace lorvale::testing

#include "tests/support/MailServer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "tests/support/TestSupport.h"

namespace lorvale::testing {

namespace fs = std::filesystem;

namespace {

std::string firstLine(int descriptor) {
    std::string line;
    for (char c = 0; ::read(descriptor, &c, 1) == 1 && c != '\n';) line += c;
    return line;
}

}  // namespace

MailServer::MailServer(std::vector<std::string> settings) {
    constexpr int kNotInstalled = 77;
    std::array<int, 2> input{}, output{};
    if (::pipe2(input.data(), O_CLOEXEC) != 0 || ::pipe2(output.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe left");
    auto script = (sourceFolder() / "tests/support/dovecot").string();
    std::string serve = "serve";
    std::vector<char*> arguments{script.data(), serve.data()};
    for (auto& setting : settings) arguments.push_back(setting.data());
    arguments.push_back(nullptr);
    _process = ::fork();
    if (_process == 0) {
        ::dup2(input[0], STDIN_FILENO);
        ::dup2(output[1], STDOUT_FILENO);
        ::execv(script.c_str(), arguments.data());
        ::_exit(126);
    }
    ::close(input[0]);
    ::close(output[1]);
    _input = input[1];
    const auto line = firstLine(output[0]);
    ::close(output[0]);
    std::istringstream words(line);
    for (std::string word; words >> word;)
        if (const auto equals = word.find('='); equals != std::string::npos)
            _told[word.substr(0, equals)] = word.substr(equals + 1);
    if (_told.contains("pop3")) return;
    int status = 0;
    ::waitpid(_process, &status, 0);
    _process = 0;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != kNotInstalled)
        throw std::runtime_error("The mail server did not start: " + line);
    _whyNot = line;
}

MailServer::~MailServer() {
    if (_input >= 0) ::close(_input);
    if (_process > 0) ::waitpid(_process, nullptr, 0);
}

std::uint16_t MailServer::port(const std::string& protocol) const {
    return static_cast<std::uint16_t>(std::stoi(_told.at(protocol)));
}

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

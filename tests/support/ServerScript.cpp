#include "tests/support/ServerScript.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <sstream>
#include <stdexcept>

#include "tests/support/TestSupport.h"

namespace lorvale::testing {

namespace {

std::string firstLine(int descriptor) {
    std::string line;
    for (char c = 0; ::read(descriptor, &c, 1) == 1 && c != '\n';) line += c;
    return line;
}

}  // namespace

ServerScript::ServerScript(const std::string& name, const std::vector<std::string>& arguments) {
    constexpr int kNotInstalled = 77;
    std::array<int, 2> input{}, output{};
    if (::pipe2(input.data(), O_CLOEXEC) != 0 || ::pipe2(output.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe left");
    const auto script = (sourceFolder() / "tests/support" / name).string();
    std::vector<char*> words{const_cast<char*>(script.c_str())};
    for (const auto& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    _process = ::fork();
    if (_process == 0) {
        ::dup2(input[0], STDIN_FILENO);
        ::dup2(output[1], STDOUT_FILENO);
        ::execv(script.c_str(), words.data());
        ::_exit(126);
    }
    ::close(input[0]);
    ::close(output[1]);
    _input = input[1];
    const auto line = firstLine(output[0]);
    ::close(output[0]);
    std::istringstream told(line);
    for (std::string word; told >> word;)
        if (const auto equals = word.find('='); equals != std::string::npos)
            _told[word.substr(0, equals)] = word.substr(equals + 1);
    if (!_told.empty()) return;
    int status = 0;
    ::waitpid(_process, &status, 0);
    _process = 0;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != kNotInstalled)
        throw std::runtime_error(name + " did not start: " + line);
    _whyNot = line;
}

ServerScript::~ServerScript() {
    if (_input >= 0) ::close(_input);
    if (_process > 0) ::waitpid(_process, nullptr, 0);
}

}  // namespace lorvale::testing

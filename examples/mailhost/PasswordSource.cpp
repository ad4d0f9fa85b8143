#include "PasswordSource.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

#include "Output.h"

namespace mailhost {

namespace {

constexpr std::size_t kLongest = 4096;

std::string checked(std::string line, const std::string& from) {
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty()) throw Failure("no password came from " + from);
    if (line.size() > kLongest) throw Failure("what came from " + from + " is too long for a password");
    return line;
}

}  // namespace

std::string passwordFromDescriptor(std::uint64_t descriptor) {
    const auto name = "file descriptor " + std::to_string(descriptor);
    if (descriptor > std::numeric_limits<int>::max()) throw Failure("there is no " + name);
    std::string line;
    // One byte at a time: what stands behind the line is for the next one who reads.
    for (char c = 0; line.size() <= kLongest;) {
        const auto count = ::read(static_cast<int>(descriptor), &c, 1);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw Failure("no password from " + name + ": " + std::strerror(errno));
        if (count == 0 || c == '\n') break;
        line += c;
    }
    return checked(std::move(line), name);
}

std::string passwordFromCommand(const std::string& command) {
    std::FILE* const output = ::popen(command.c_str(), "re");
    if (output == nullptr) throw Failure(std::string("the password command: ") + std::strerror(errno));
    std::string line;
    bool isFirst = true;
    for (int c = 0; (c = std::fgetc(output)) != EOF;) {  // to its end, so that the command is not cut off
        isFirst = isFirst && c != '\n';
        if (isFirst && line.size() <= kLongest) line += static_cast<char>(c);
    }
    if (::pclose(output) != 0) throw Failure("the password command failed");
    return checked(std::move(line), "the password command");
}

}  // namespace mailhost

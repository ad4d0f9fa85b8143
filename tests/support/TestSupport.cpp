#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace lorvale::testing {

namespace fs = std::filesystem;

namespace {

/// Whatever a test program or its children leave in the temporary directory goes with it: attachments that were
/// laid out, for one.
class OwnTemporaryDirectory : public ::testing::Environment {
public:
    void SetUp() override {
        _folder = std::make_unique<TemporaryFolder>();
        // Servers that tests start have processes of other users, who look for their folders below.
        fs::permissions(_folder->path(), fs::perms::group_exec | fs::perms::others_exec, fs::perm_options::add);
        ::setenv("TMPDIR", _folder->path().c_str(), 1);
    }
    void TearDown() override { _folder.reset(); }

private:
    std::unique_ptr<TemporaryFolder> _folder;
};

const auto* const kOwnTemporaryDirectory = ::testing::AddGlobalTestEnvironment(new OwnTemporaryDirectory);

}  // namespace

TemporaryFolder::TemporaryFolder() {
    auto name = (fs::temp_directory_path() / "lorvale-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder at " + name);
    _path = fs::canonical(name);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(_path, ignored);
}

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const fs::path& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

fs::path sourceFolder() {
    return LORVALE_SOURCE_DIR;
}

std::vector<std::string> documentedLines(std::string_view document, std::initializer_list<std::string> starts) {
    std::ifstream file(sourceFolder() / document);
    std::string line;
    for (const auto& start : starts)
        while (std::getline(file, line) && line != start) continue;
    std::vector<std::string> lines;
    while (std::getline(file, line) && !line.starts_with("#") && !line.starts_with("```"))
        lines.push_back(line);
    if (lines.empty()) throw std::runtime_error("nothing documented in " + std::string(document));
    return lines;
}

std::optional<fs::path> sharedData() {
    const char* const named = std::getenv("LORVALE_SHARED_DATA");
    const fs::path folder = named != nullptr ? fs::path(named) : sourceFolder() / "../shared/data";
    if (!fs::is_directory(folder)) return std::nullopt;
    return fs::canonical(folder);
}

std::string unpacked(const fs::path& path) {
    const auto command = "xz -dc '" + path.string() + "' 2>/dev/null";
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    std::string bytes;
    char piece[65536];
    while (pipe) {
        const auto size = std::fread(piece, 1, sizeof piece, pipe.get());
        if (size == 0) break;
        bytes.append(piece, size);
    }
    return bytes;
}

int inChild(const std::function<int()>& work) {
    const auto child = ::fork();
    if (child == 0) ::_exit(work());
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        throw std::runtime_error("the child process failed");
    return WEXITSTATUS(status);
}

ExactCopy::ExactCopy(std::string_view text) : _bytes(new char[text.size()]), _size(text.size()) {
    std::memcpy(_bytes.get(), text.data(), text.size());
}

}  // namespace lorvale::testing

#pragma once
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lorvale::testing {

/// A folder of its own for one test, removed with everything in it at the end.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return _path; }
    std::filesystem::path operator/(std::string_view name) const { return _path / name; }

private:
    std::filesystem::path _path;
};

std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, std::string_view bytes);

/// The folder of this project's sources.
std::filesystem::path sourceFolder();

/// The lines of a document behind those that are `starts`, each looked for behind the one before it, and up to
/// the next fence or heading.
std::vector<std::string> documentedLines(std::string_view document, std::initializer_list<std::string> starts);

/// The folder of real mail beside the checkout, or nullopt where it is absent: a test then says so and skips.
std::optional<std::filesystem::path> sharedData();

/// The bytes of a file packed by xz; empty where xz is not installed.
std::string unpacked(const std::filesystem::path& path);

/// Runs `work` in a child process and answers what it returned; the child ends without tidying up.
int inChild(const std::function<int()>& work);

/// A heap block of exactly the size of a text, so that a sanitizer sees one byte too many.  Convert it to a
/// view at the call: decode(ExactCopy(text)).
class ExactCopy {
public:
    explicit ExactCopy(std::string_view text);
    operator std::string_view() const { return {_bytes.get(), _size}; }

private:
    std::unique_ptr<char[]> _bytes;
    std::size_t _size;
};

}  // namespace lorvale::testing

#include "Attachments.h"

#include <cstdio>
#include <filesystem>

#include "Output.h"
#include "Terminal.h"

namespace mailhost {

namespace {

namespace fs = std::filesystem;

bool isFree(const fs::path& path) {
    std::error_code error;
    return fs::symlink_status(path, error).type() == fs::file_type::not_found;
}

fs::path freePath(const fs::path& directory, const std::string& name) {
    auto path = directory / name;
    for (int number = 2; !isFree(path); ++number)
        path = directory / (fs::path(name).stem().string() + "-" + std::to_string(number) +
                            fs::path(name).extension().string());
    return path;
}

}  // namespace

std::vector<SavedFile> saveAttachments(const lorvale::AttributedText& text, const std::string& directory) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (error) throw Failure("cannot make the folder " + directory + ": " + error.message());
    std::vector<SavedFile> saved;
    for (const auto& file : text.attachments()) {
        const auto& wanted = file->preferredFilename();
        const auto name = lorvale::FileWrapper::isFilename(wanted) ? wanted : std::string("attachment");
        if (file->kind() == lorvale::FileWrapper::Kind::symbolicLink) {
            std::fprintf(stderr, "mailhost: %s is a link to a file elsewhere; it is left out\n",
                         printableLine(name).c_str());
            continue;
        }
        const auto path = freePath(directory, name);
        if (!file->writeToPath(path.string())) throw Failure("cannot write " + printableLine(path.string()));
        saved.push_back({path.string(), file->regularFileContents().size()});
    }
    return saved;
}

}  // namespace mailhost

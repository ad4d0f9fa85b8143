#include "IndexFile.h"

#include <filesystem>
#include <stdexcept>

namespace fs = std::filesystem;

void requireIndexFile(const std::string& path) {
    if (!fs::exists(path))
        throw std::runtime_error(path + ": there is no such index; 'textsearch index " + path +
                                 " FOLDER' makes one");
    if (fs::is_directory(path))
        throw std::runtime_error(path + ": is a folder; an index is a file that 'textsearch index FILE " +
                                 path + "' makes");
}

void withIndexFile(const std::string& path, const std::function<void()>& work) {
    try {
        work();
    } catch (const brindle::IAException& failure) {
        throw std::runtime_error(path + ": cannot be used as an index: " + failure.What());
    }
}

std::unique_ptr<brindle::IAStorage> openIndexFile(const std::string& path, bool forWriting) {
    requireIndexFile(path);
    auto storage = brindle::MakeFileStorage(path.c_str());
    withIndexFile(path, [&] { storage->Open(forWriting); });
    return storage;
}

std::unique_ptr<brindle::IAStorage> makeIndexFile(const std::string& path) {
    auto storage = brindle::MakeFileStorage(path.c_str());
    try {
        storage->Initialize();
    } catch (const brindle::IAException& failure) {
        throw std::runtime_error(path + ": cannot be made: " + failure.What());
    }
    return storage;
}

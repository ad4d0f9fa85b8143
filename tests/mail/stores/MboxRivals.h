#pragma once
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "base/files/PosixFileSystem.h"
#include "tests/support/StoreSupport.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {

/// Message number n.  All are equally long and every line tells the number, so that a piece of another message
/// at the right place shows.
inline std::string letter(int n) {
    const auto number = std::to_string(100'000 + n);
    auto text = "From m" + number + "@x.example Thu Aug 22 12:46:23 2002\nSubject: " + number + "\n\n";
    for (int line = 0; line < 20; ++line) text += "line of " + number + "\n";
    return text + "\n";
}

/// A disk on which somebody else may act before any call of ours, and in the middle of a long read.
class SharedDisk : public PosixFileSystem {
public:
    /// What a call of ours is about to do.
    enum class Call { look, openForWriting, openForReading, readOn, lookAtOpenFile };

    SharedDisk(std::string path, std::function<void(Call)> others)
        : meet(std::move(others)), _path(std::move(path)) {
        setCurrent(this);
    }
    ~SharedDisk() override { setCurrent(nullptr); }

    const std::function<void(Call)> meet;
    int reads = 0;
    /// Looks at each switch to a new file, which nothing may precede any more: the old bytes, the new ones.
    std::function<void(const std::string&, const std::string&)> onSwitch;

    std::optional<FileAttributes> attributes(const std::string& path) override {
        meet(Call::look);
        return PosixFileSystem::attributes(path);
    }
    std::unique_ptr<WritableFile> openForWriting(const std::string& path, WriteMode mode, mode_t permissions,
                                                 FileStatus* status) override {
        meet(Call::openForWriting);
        return PosixFileSystem::openForWriting(path, mode, permissions, status);
    }
    FileStatus rename(const std::string& from, const std::string& to) override {
        if (to == _path && onSwitch)
            onSwitch(std::filesystem::exists(to) ? testing::readFile(to) : "", testing::readFile(from));
        return PosixFileSystem::rename(from, to);
    }
    std::unique_ptr<ReadableFile> openForReading(const std::string& path, FileStatus* status) override {
        meet(Call::openForReading);
        auto file = PosixFileSystem::openForReading(path, status);
        return file != nullptr ? std::make_unique<File>(*this, std::move(file)) : nullptr;
    }

private:
    class File : public ReadableFile {
    public:
        File(SharedDisk& disk, std::unique_ptr<ReadableFile> file) : _disk(disk), _file(std::move(file)) {}
        std::optional<std::size_t> readInto(std::span<char> buffer, std::uint64_t offset) override {
            ++_disk.reads;
            const auto half = std::min<std::size_t>(buffer.size(), 3000);
            const auto first = _file->readInto(buffer.first(half), offset);
            _disk.meet(Call::readOn);
            const auto second = _file->readInto(buffer.subspan(half), offset + half);
            return first && *first == half && second ? *first + *second : first;
        }
        std::optional<FileAttributes> attributes() override {
            _disk.meet(Call::lookAtOpenFile);
            return _file->attributes();
        }

    private:
        SharedDisk& _disk;
        std::unique_ptr<ReadableFile> _file;
    };

    const std::string _path;
};

/// A mailbox of three letters, for rivals to come upon.
class MboxRivals : public ::testing::Test {
protected:
    MboxRivals() { writeFile(path, letter(1) + letter(2) + letter(3)); }

    TemporaryFolder folder;
    const std::string path = folder / "inbox";
    LogCapture log;
};

}  // namespace lorvale::testing

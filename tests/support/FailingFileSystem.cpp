#include "tests/support/FailingFileSystem.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <stdexcept>

namespace lorvale::testing {

namespace fs = std::filesystem;

namespace {

void putBytes(std::string& file, std::uint64_t offset, std::string_view bytes) {
    if (file.size() < offset + bytes.size()) file.resize(offset + bytes.size(), '\0');
    file.replace(offset, bytes.size(), bytes);
}

}  // namespace

/// Passes each operation on, after noting what a power loss could take back.
class FailingFileSystem::File : public WritableFile {
public:
    File(FailingFileSystem& disk, std::unique_ptr<WritableFile> file, std::string path)
        : _disk(disk), _file(std::move(file)), _path(std::move(path)) {
        const auto attributes = _disk.attributes(_path);
        if (!attributes) throw std::runtime_error("a file vanished while it was opened: " + _path);
        _id = {attributes->device, attributes->inode};
    }

    FileStatus write(std::string_view bytes) override {
        if (_disk.diesNow()) {
            // A part of the bytes may have reached the file when the process went.
            const auto part = bytes.substr(0, _disk._random() % (bytes.size() + 1));
            note({_file->position(), std::string(part), std::nullopt});
            static_cast<void>(_file->write(part));
        }
        if (auto status = _disk.change(_path); !status) return status;
        note({_file->position(), std::string(bytes), std::nullopt});
        return _file->write(bytes);
    }
    FileStatus seek(std::uint64_t offset) override { return _file->seek(offset); }
    FileStatus seekToEnd() override { return _file->seekToEnd(); }
    std::uint64_t position() const override { return _file->position(); }
    FileStatus truncate(std::uint64_t size) override {
        if (auto status = _disk.change(_path); !status) return status;
        note({0, {}, size});
        return _file->truncate(size);
    }
    FileStatus sync() override {
        if (auto status = _disk.change(_path); !status) return status;
        _disk._unsynced.erase(_id);
        return {};  // no need to wait for the real disk
    }
    FileStatus syncWithOthers() override {
        if (auto status = _disk.change(_path); !status) return status;
        _disk._unsynced.clear();
        return {};
    }
    FileStatus close() override { return _file->close(); }

private:
    void note(Write write) {
        if (!_disk._unsynced.contains(_id)) _disk.keepSafeBytes(_path);
        _disk._unsynced.at(_id).writes.push_back(std::move(write));
    }

    FailingFileSystem& _disk;
    std::unique_ptr<WritableFile> _file;
    const std::string _path;
    FileID _id;
};

FailingFileSystem::FailingFileSystem(std::uint64_t seed)
    : _previous(FileSystem::setCurrent(nullptr)), _random(seed) {
    FileSystem::setCurrent(this);
}

FailingFileSystem::~FailingFileSystem() {
    FileSystem::setCurrent(_previous);
}

void FailingFileSystem::dieAtChange(int n) {
    _changes = 0;
    _dieAt = n;
}

void FailingFileSystem::failFromChange(int n, int code) {
    _changes = 0;
    _failFrom = n;
    _failCode = code;
}

bool FailingFileSystem::survives(const std::function<void()>& work) {
    try {
        work();
    } catch (const SimulatedCrash&) {
        return false;
    }
    return !_dead;  // the crash may have ended in a handler for everything
}

FileStatus FailingFileSystem::change(const std::string& path, bool isRemoval) {
    if (_dead) return {EIO, "the disk is dead: " + path};
    if (diesNow()) {
        _dead = true;
        _onDeath();
    }
    const bool fails = _failFrom >= 0 && _changes >= _failFrom && !isRemoval;
    ++_changes;
    if (!fails) return {};
    errno = _failCode;
    return FileStatus::failed("change", path);
}

void FailingFileSystem::keepSafeBytes(const std::string& path) {
    const auto found = attributes(path);
    Unsynced file;
    file.safe = testing::readFile(path);
    file.keptAs = putAside(path);
    _unsynced.emplace(FileID{found->device, found->inode}, std::move(file));
}

std::string FailingFileSystem::putAside(const std::string& path) {
    const auto name = (_aside / std::to_string(_asideCount++)).string();
    if (!PosixFileSystem::link(path, name)) throw std::runtime_error("cannot keep " + path);
    return name;
}

void FailingFileSystem::noteNameChange(std::vector<std::string> folders, std::function<void()> undo) {
    _nameChanges.push_back({std::move(folders), std::move(undo)});
}

std::unique_ptr<WritableFile> FailingFileSystem::openForWriting(const std::string& path, WriteMode mode,
                                                                mode_t permissions, FileStatus* status) {
    const auto old = attributes(path);
    const bool empties = old && mode == WriteMode::truncate && old->size > 0;
    if (!old || empties) {
        if (auto outcome = change(path); !outcome) {
            if (status != nullptr) *status = outcome;
            return nullptr;
        }
    }
    if (empties && !_unsynced.contains({old->device, old->inode})) keepSafeBytes(path);
    auto file = PosixFileSystem::openForWriting(path, mode, permissions, status);
    if (file == nullptr) return nullptr;
    if (empties) _unsynced.at({old->device, old->inode}).writes.push_back({0, {}, 0});
    if (!old) noteNameChange({folderOf(path)}, [path] { fs::remove(path); });
    return std::make_unique<File>(*this, std::move(file), path);
}

FileStatus FailingFileSystem::rename(const std::string& from, const std::string& to) {
    if (auto status = change(from); !status) return status;
    const auto old = linkAttributes(to);
    const auto aside = old && !old->isDirectory ? putAside(to) : std::string();
    if (auto status = PosixFileSystem::rename(from, to); !status) return status;
    noteNameChange({folderOf(from), folderOf(to)}, [from, to, aside] {
        fs::rename(to, from);
        if (!aside.empty()) fs::create_hard_link(aside, to);
    });
    return {};
}

FileStatus FailingFileSystem::link(const std::string& from, const std::string& to) {
    if (auto status = change(to); !status) return status;
    if (auto status = PosixFileSystem::link(from, to); !status) return status;
    noteNameChange({folderOf(to)}, [to] { fs::remove(to); });
    return {};
}

FileStatus FailingFileSystem::symbolicLink(const std::string& target, const std::string& path) {
    if (auto status = change(path); !status) return status;
    if (auto status = PosixFileSystem::symbolicLink(target, path); !status) return status;
    noteNameChange({folderOf(path)}, [path] { fs::remove(path); });
    return {};
}

FileStatus FailingFileSystem::remove(const std::string& path) {
    if (auto status = change(path, true); !status) return status;
    const auto old = linkAttributes(path);
    const auto aside = old && !old->isDirectory ? putAside(path) : std::string();
    if (auto status = PosixFileSystem::remove(path); !status) return status;
    noteNameChange({folderOf(path)}, [path, aside] {
        if (aside.empty())
            fs::create_directory(path);
        else
            fs::create_hard_link(aside, path);
    });
    return {};
}

FileStatus FailingFileSystem::makeDirectory(const std::string& path, mode_t permissions) {
    if (auto status = change(path); !status) return status;
    if (auto status = PosixFileSystem::makeDirectory(path, permissions); !status) return status;
    // With what was made in it and synced: without its name nothing of that can be reached.
    noteNameChange({folderOf(path)}, [path] { fs::remove_all(path); });
    return {};
}

FileStatus FailingFileSystem::setPermissions(const std::string& path, mode_t permissions) {
    if (auto status = change(path); !status) return status;
    return PosixFileSystem::setPermissions(path, permissions);
}

FileStatus FailingFileSystem::setOwner(const std::string& path, uid_t owner, gid_t group) {
    if (auto status = change(path); !status) return status;
    return PosixFileSystem::setOwner(path, owner, group);
}

FileStatus FailingFileSystem::syncFolder(const std::string& folder) {
    if (auto status = change(folder); !status) return status;
    if (!isDirectory(folder)) return PosixFileSystem::syncFolder(folder);  // for its failure
    // The disk's own journal is written in order, so what came before is safe with it.
    for (auto count = _nameChanges.size(); count > 0; --count) {
        const auto& folders = _nameChanges[count - 1].folders;
        if (std::ranges::find(folders, folder) == folders.end()) continue;
        _nameChanges.erase(_nameChanges.begin(), _nameChanges.begin() + static_cast<std::ptrdiff_t>(count));
        break;
    }
    return {};
}

void FailingFileSystem::loseWrites(Unsynced& file) {
    std::string bytes = file.safe;
    for (const auto& write : file.writes) {
        const auto fate = _random() % 3;  // kept, lost, torn
        if (fate == 1) continue;
        if (write.newSize) {
            bytes.resize(*write.newSize, '\0');
            continue;
        }
        const auto kept = fate == 0 ? write.bytes.size() : _random() % (write.bytes.size() + 1);
        // Of a torn write the size may have reached the disk and the rest of the bytes not.
        if (fate == 2 && _random() % 2 == 0 && bytes.size() < write.offset + write.bytes.size())
            bytes.resize(write.offset + write.bytes.size(), '\0');
        putBytes(bytes, write.offset, std::string_view(write.bytes).substr(0, kept));
    }
    testing::writeFile(file.keptAs, bytes);  // the same file as under its own name
}

void FailingFileSystem::losePower() {
    for (auto& [id, file] : _unsynced) loseWrites(file);
    const auto kept = _random() % (_nameChanges.size() + 1);
    while (_nameChanges.size() > kept) {
        _nameChanges.back().undo();
        _nameChanges.pop_back();
    }
    _nameChanges.clear();
    _unsynced.clear();
    _dieAt = _failFrom = -1;
    _dead = false;
}

void PrintTo(CutOff way, std::ostream* out) {
    static constexpr const char* kNames[] = {"isKilled", "powerGoes", "diskIsFull"};
    *out << kNames[static_cast<int>(way)];
}

bool survivesCutOff(CutOff way, int n, const std::function<void()>& work) {
    constexpr int kFull = 2;                                // as the child's exit status
    FailingFileSystem disk(static_cast<std::uint64_t>(n));  // made here: a killed child tidies nothing up
    way == CutOff::diskIsFull ? disk.failFromChange(n, ENOSPC) : disk.dieAtChange(n);
    disk.onDeath([&] {
        if (way == CutOff::powerGoes) disk.losePower();
        ::kill(::getpid(), SIGKILL);
    });
    const auto child = ::fork();
    if (child < 0) throw std::runtime_error("no child process");
    if (child == 0) {
        try {
            work();
        } catch (...) {
            ::_exit(1);
        }
        ::_exit(way == CutOff::diskIsFull && disk.changes() > n ? kFull : 0);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR) throw std::runtime_error("the child is gone");
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) return false;
    if (WIFEXITED(status) && WEXITSTATUS(status) == kFull) return false;
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
    throw std::runtime_error("the child failed by itself");
}

}  // namespace lorvale::testing

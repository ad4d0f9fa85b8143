#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <string>

#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/stream.h"

namespace brindle {

/// The open file, held by a stream and its clones.
struct UFSStoreStream::SharedFile {
    std::string name;
    std::FILE* file = nullptr;
    bool owned = true;
    bool folderUnsynced = false;  // the file is new: its name may not be on the device yet

    // Write() does not report a write that the system refused, because a caller between two commits can do
    // nothing about it.  Nor may it be forgotten: a commit must not switch to a state whose blocks are not all
    // there.  So it is remembered here, for all clones, and every Flush() from then on fails: what was lost
    // cannot be told any more, and only reopening the file gives a known state again.
    std::atomic<bool> bytesLost = false;

    ~SharedFile() {
        if (owned && file != nullptr) std::fclose(file);
    }
};

UFSStoreStream::UFSStoreStream(const char* path) : shared(std::make_shared<SharedFile>()) {
    shared->name = path;
}

UFSStoreStream::UFSStoreStream(const char* name, std::FILE* file, bool isOpen, bool isWritable)
    : isOpenFlag(isOpen), isWritableFlag(isWritable), isClone(true), shared(std::make_shared<SharedFile>()) {
    shared->name = name;
    shared->file = file;
    shared->owned = false;
}

UFSStoreStream::UFSStoreStream(const UFSStoreStream& original)
    : IAStoreStream(),
      isOpenFlag(original.isOpenFlag),
      isWritableFlag(original.isWritableFlag),
      isClone(true),
      shared(original.shared) {}

UFSStoreStream::~UFSStoreStream() = default;

std::unique_ptr<IAStoreStream> UFSStoreStream::Clone() {
    return std::unique_ptr<IAStoreStream>(new UFSStoreStream(*this));
}

const char* UFSStoreStream::GetFileName() const {
    return shared->name.c_str();
}
bool UFSStoreStream::IsOpen() {
    return isOpenFlag;
}
bool UFSStoreStream::IsWritable() {
    return IsOpen() && isWritableFlag;
}
int UFSStoreStream::Descriptor() const {
    return ::fileno(shared->file);
}

void UFSStoreStream::Initialize() {
    std::FILE* const made = std::fopen(GetFileName(), "wbe");
    IAAssertion(made != nullptr, "unable to initialize the file", StoreError);
    std::fclose(made);
    shared->folderUnsynced = true;
    fEOFAddress = 0;
}

void UFSStoreStream::Open(bool writable) {
    IAAssertion(shared->file == nullptr, "unable open non existing file name", StoreError);
    shared->file = std::fopen(GetFileName(), writable ? "rb+e" : "rbe");
    IAAssertion(shared->file != nullptr, " unable to open file", StoreError);
    isOpenFlag = true;
    isWritableFlag = writable;
}

void UFSStoreStream::Flush() {
    IAAssertion(IsWritable(), "file not writable", StoreError);
    MaybeFlushBuffer();
    if (std::fflush(shared->file) != 0) shared->bytesLost = true;
    IAAssertion(!shared->bytesLost, "unable to flush the file", StoreError);
}

void UFSStoreStream::Sync() {
    IAAssertion(IsWritable(), "file not writable", StoreError);
    if (shared->folderUnsynced) {
        // A folder that cannot be synced, as on some network file systems, is as safe as it can be made.
        const auto folder = std::filesystem::path(shared->name).parent_path();
        const int opened = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (opened >= 0) {
            ::fsync(opened);
            ::close(opened);
        }
        shared->folderUnsynced = false;
    }
    // EINVAL: not a file that has a device under it.  After any other failure the system may have dropped the
    // pages and call them clean, so that a second try would succeed without having saved anything.
    if (::fdatasync(Descriptor()) != 0 && errno != EINVAL) shared->bytesLost = true;
    IAAssertion(!shared->bytesLost, "unable to flush the file", StoreError);
}

std::uint32_t UFSStoreStream::GetEOF() {
    IAAssertion(IsOpen(), "file not open", StoreError);
    const off_t end = ::lseek(Descriptor(), 0, SEEK_END);
    IAAssertion(end >= 0, "unable to seek to end", StoreError);
    return static_cast<std::uint32_t>(std::min<off_t>(end, UINT32_MAX));
}

void UFSStoreStream::SetEOF(std::uint32_t length) {
    IAAssertion(IsWritable(), "file not writable", StoreError);
    // A file that stays longer than it need be is no failure: nothing relies on its length.
    if (::ftruncate(Descriptor(), static_cast<off_t>(length)) != 0) return;
    fEOFAddress = std::min(fEOFAddress, length);
}

/// Fills the file with zero bytes up to an address, so that a hole never stands for space that the disk may not
/// have when it is needed.
void UFSStoreStream::ExtendTo(std::uint32_t address) {
    static constexpr std::array<std::uint8_t, 65536> kZeros{};
    std::uint32_t end = GetEOF();
    while (end < address) {
        const auto count = std::min(address - end, static_cast<std::uint32_t>(kZeros.size()));
        if (!WriteAll(end, kZeros.data(), count)) break;
        end += count;
    }
    fEOFAddress = end;
    IAAssertion(end >= address, "unable to extend store is full", StoreFull);
}

bool UFSStoreStream::WriteAll(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) {
    while (count > 0) {
        const ssize_t written = ::pwrite(Descriptor(), bytes, count, static_cast<off_t>(address));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        address += static_cast<std::uint32_t>(written);
        bytes += written;
        count -= static_cast<std::uint32_t>(written);
    }
    return true;
}

void UFSStoreStream::Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) {
    IAAssertion(IsWritable(), "file not writable", StoreError);
    if (address > fEOFAddress) ExtendTo(address);
    if (WriteAll(address, bytes, count)) return;
    // Only now is it worth a question whether the file has such a place at all.
    const off_t position = ::lseek(Descriptor(), static_cast<off_t>(address), SEEK_SET);
    IAAssertion(position >= 0, "unable to seek to current address", StoreError);
    IAAssertion(position == static_cast<off_t>(address), "unable to position to address", StoreError);
    shared->bytesLost = true;
}

std::uint32_t UFSStoreStream::Read(std::uint32_t address, std::uint8_t* bytes, std::uint32_t count) {
    IAAssertion(IsOpen(), "file not open", StoreError);
    std::uint32_t done = 0;
    while (done < count) {
        const ssize_t got =
            ::pread(Descriptor(), bytes + done, count - done, static_cast<off_t>(address) + done);
        if (got < 0 && errno == EINTR) continue;
        IAAssertion(got >= 0 || errno != ESPIPE, "unable to reach address", StoreError);
        if (got <= 0) break;
        done += static_cast<std::uint32_t>(got);
    }
    return done;
}

}  // namespace brindle

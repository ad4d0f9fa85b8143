// The checker of the storage format.  It reads the file by itself and shares nothing with BuddyStorage but the
// constants, so that a mistake there is not made here again.
#include "lorvale/toolkit/storage/verify.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <sstream>

#include "lorvale/toolkit/storage/exception.h"
#include "toolkit/storage/BuddyFormat.h"

namespace brindle {

namespace {

constexpr std::size_t kMostFindings = 100;

template <class... Parts>
std::string Say(const Parts&... parts) {
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

/// A window on the system block's bytes.  Past its end everything reads as 0, and failed() tells.
class Cursor {
public:
    explicit Cursor(std::span<const std::uint8_t> bytes) : rest(bytes) {}

    std::uint32_t UInt32() {
        std::uint32_t value = 0;
        for (const std::uint8_t byte : Bytes(4)) value = value << 8 | byte;
        return value;
    }
    std::span<const std::uint8_t> Bytes(std::size_t count) {
        if (count > rest.size()) {
            fail = true;
            rest = {};
            return {};
        }
        const auto head = rest.first(count);
        rest = rest.subspan(count);
        return head;
    }
    std::size_t Left() const { return rest.size(); }
    bool Failed() const { return fail; }

private:
    std::span<const std::uint8_t> rest;
    bool fail = false;
};

/// Somebody's claim on a piece of the space.
struct Claim {
    std::uint64_t begin;
    std::uint64_t end;
    enum class Kind { header, block, freeList } kind;
    std::uint32_t number;  // the block's ID, the list's log size
};

std::string NameOf(const Claim& claim) {
    switch (claim.kind) {
        case Claim::Kind::header:
            return "the file header";
        case Claim::Kind::block:
            return Say("block ", claim.number);
        default:
            return Say("free list ", claim.number);
    }
}

std::string Printable(std::span<const std::uint8_t> name) {
    std::string text = "\"";
    for (const std::uint8_t byte : name) text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '?';
    return text + '"';
}

class StorageChecker {
public:
    explicit StorageChecker(IAStoreStream& toCheck) : stream(toCheck) {}

    StorageReport Run() {
        IALock lock(stream.GetMutex());
        report.fileBytes = stream.GetEOF();
        if (ReadHeader() && ReadSystemBlock()) Check();
        for (auto* findings : {&report.violations, &report.doubts})
            if (findings->size() == kMostFindings) findings->push_back("and more");
        return std::move(report);
    }

private:
    template <class... Parts>
    void Violation(const Parts&... parts) {
        if (report.violations.size() < kMostFindings) report.violations.push_back(Say(parts...));
    }

    template <class... Parts>
    void Doubt(const Parts&... parts) {
        if (report.doubts.size() < kMostFindings) report.doubts.push_back(Say(parts...));
    }

    bool ReadHeader();
    bool ReadSystemBlock();
    void Check();
    bool ReadBlockInfo(Cursor& cursor);
    void CheckBlocks();
    void CheckBlock(std::uint32_t id, std::uint32_t address, std::uint32_t logSize);
    void CheckFreeIDs();
    void CheckNames(Cursor& cursor);
    void CheckName(std::span<const std::uint8_t> name, std::uint32_t id);
    void CheckFreeLists(Cursor& cursor);
    void CheckFreeList(Cursor& cursor, std::uint32_t logSize);
    void CheckSpace();

    IAStoreStream& stream;
    StorageReport report;
    std::uint32_t rootAddress = 0;
    std::uint32_t rootSize = 0;
    std::vector<std::uint8_t> root;  // the system block, as far as the file has it
    std::uint32_t freeIDHead = 0;
    std::vector<std::uint32_t> info;  // the words below maxID
    std::vector<bool> isFree;         // by ID: in the chain
    std::vector<Claim> claims{{0, kHeaderBlockSize, Claim::Kind::header, 0}};
};

bool StorageChecker::ReadHeader() {
    std::uint8_t bytes[16];
    if (stream.Read(0, bytes, sizeof bytes) != sizeof bytes) {
        Violation("the file of ", report.fileBytes, " bytes is too short for a header");
        return false;
    }
    Cursor cursor(bytes);
    const std::uint32_t type = cursor.UInt32();
    rootAddress = cursor.UInt32();
    rootSize = cursor.UInt32();
    const std::uint32_t check = cursor.UInt32();
    if (type != BuddyStorageType) {
        Violation("the file does not begin with \"Bud1\"");
        return false;
    }
    if (check != rootAddress) Violation("the header's addresses differ: ", rootAddress, " and ", check);
    if (!IsBlockPlace(rootAddress, SizeLogSize(rootSize)) || rootSize != std::uint64_t{1}
                                                                             << SizeLogSize(rootSize))
        Violation("the header's system block of ", rootSize, " bytes at ", rootAddress, " is no block");
    if (rootAddress >= report.fileBytes) {
        Violation("the system block at ", rootAddress, " lies behind the end of the file");
        return false;
    }
    return true;
}

bool StorageChecker::ReadSystemBlock() {
    root.resize(std::min(rootSize, report.fileBytes - rootAddress));
    const std::uint32_t got = stream.Read(rootAddress, root.data(), static_cast<std::uint32_t>(root.size()));
    if (got == root.size()) return true;
    Violation("the system block cannot be read: ", got, " of ", root.size(), " bytes");
    return false;
}

void StorageChecker::Check() {
    Cursor cursor(root);
    if (!ReadBlockInfo(cursor)) return;
    CheckFreeIDs();
    CheckBlocks();
    CheckNames(cursor);
    CheckFreeLists(cursor);
    if (cursor.Failed()) {
        Violation("the system block ends before its tables do");
        return;  // what is missing would only be told again as space without an owner
    }
    CheckSpace();
}

bool StorageChecker::ReadBlockInfo(Cursor& cursor) {
    report.maxID = cursor.UInt32();
    freeIDHead = cursor.UInt32();
    const std::uint64_t words = (std::uint64_t{report.maxID} + InfoChunkMask) / InfoChunkSize * InfoChunkSize;
    if (report.maxID == 0 || words > cursor.Left() / 4) {
        Violation("a block table of ", report.maxID, " IDs does not fit into the system block");
        return false;
    }
    info.resize(words);
    for (std::uint32_t& word : info) word = cursor.UInt32();
    for (std::uint64_t id = report.maxID; id < words; ++id)
        if (info[id] != 0) Violation("ID ", id, " was never handed out but its word is ", info[id]);
    return true;
}

void StorageChecker::CheckFreeIDs() {
    isFree.assign(report.maxID, false);
    for (std::uint32_t id = freeIDHead; id != 0; id = info[id] >> LogSizeBits) {
        if (id >= report.maxID) return Violation("the chain of free IDs leads to ", id, ", which is none");
        if (isFree[id]) return Violation("the chain of free IDs leads back to ", id);
        if ((info[id] & InfoLogSizeMask) != 0) return Violation("the chain of free IDs leads to block ", id);
        isFree[id] = true;
        ++report.freeIDs;
    }
}

void StorageChecker::CheckBlocks() {
    for (std::uint32_t id = 0; id < report.maxID; ++id) {
        const std::uint32_t logSize = info[id] & InfoLogSizeMask;
        const std::uint32_t address = info[id] & ~InfoLogSizeMask;
        if (logSize != 0) {
            CheckBlock(id, address, logSize);
        } else if (!isFree[id] && address != 0) {
            Violation("ID ", id, " is marked as free but not in the chain");
        }
    }
    if (info[SysBlockID] != (rootAddress | SizeLogSize(rootSize)))
        Violation("the block table has the system block elsewhere than the header");
}

void StorageChecker::CheckBlock(std::uint32_t id, std::uint32_t address, std::uint32_t logSize) {
    ++report.writtenBlocks;
    if (!IsBlockPlace(address, logSize))
        return Violation("block ", id, " of log size ", logSize, " at ", address,
                         " is out of range or not aligned");
    const std::uint32_t size = 1u << logSize;
    claims.push_back({address, std::uint64_t{address} + size, Claim::Kind::block, id});
    // A block goes to the file in whole buffers, of which the last ones may never have been needed.
    if (address >= report.fileBytes)
        Doubt("block ", id, " at ", address, " lies behind the end of the file");
    else if (report.fileBytes - address < size &&
             (report.fileBytes - address) % std::min(size, IADiskBlockSize) != 0)
        Doubt("the file ends in the middle of block ", id, " at ", address);
}

void StorageChecker::CheckNames(Cursor& cursor) {
    const std::uint32_t count = cursor.UInt32();
    std::span<const std::uint8_t> previous;
    for (std::uint32_t i = 0; i < count && !cursor.Failed(); ++i) {
        const auto length = cursor.Bytes(1);
        const auto name = cursor.Bytes(length.empty() ? 0 : length[0]);
        const std::uint32_t id = cursor.UInt32();
        if (cursor.Failed()) return;
        if (i > 0 && !std::lexicographical_compare(previous.begin(), previous.end(), name.begin(), name.end()))
            Violation("the names ", Printable(previous), " and ", Printable(name), " are out of order");
        CheckName(name, id);
        previous = name;
        ++report.names;
    }
}

void StorageChecker::CheckName(std::span<const std::uint8_t> name, std::uint32_t id) {
    if (name.size() > kLongestName) Violation("a name is of ", name.size(), " bytes");
    if (std::find(name.begin(), name.end(), 0) != name.end())
        Violation("the name ", Printable(name), " holds a NUL");
    if (id == SysBlockID || id >= report.maxID || isFree[id])
        Violation("the name ", Printable(name), " stands for ", id, ", which is no block's ID");
}

void StorageChecker::CheckFreeLists(Cursor& cursor) {
    for (std::uint32_t logSize = 0; logSize < MaxLogSize && !cursor.Failed(); ++logSize)
        CheckFreeList(cursor, logSize);
}

void StorageChecker::CheckFreeList(Cursor& cursor, std::uint32_t logSize) {
    const std::uint32_t count = cursor.UInt32();
    std::vector<std::uint32_t> addresses;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t address = cursor.UInt32();
        if (cursor.Failed()) return;
        if (!addresses.empty() && address <= addresses.back())
            Violation("free list ", logSize, " is out of order at ", address);
        if (!IsBlockPlace(address, logSize)) {
            Violation("free list ", logSize, " holds ", address, ", which is out of range or not aligned");
            continue;
        }
        const std::uint32_t lower = BuddyAddress(address, logSize);
        if (lower < address && std::binary_search(addresses.begin(), addresses.end(), lower))
            Violation("free list ", logSize, " holds the buddies ", lower, " and ", address);
        addresses.push_back(address);
        claims.push_back({address, address + (std::uint64_t{1} << logSize), Claim::Kind::freeList, logSize});
    }
}

/// Every byte belongs to exactly one owner.
void StorageChecker::CheckSpace() {
    std::sort(claims.begin(), claims.end(), [](const Claim& a, const Claim& b) { return a.begin < b.begin; });
    std::uint64_t covered = 0;
    const Claim* highest = nullptr;
    for (const Claim& claim : claims) {
        if (claim.begin > covered) Violation("the bytes ", covered, " to ", claim.begin, " belong to nobody");
        if (highest != nullptr && claim.begin < covered)
            Violation(NameOf(*highest), " and ", NameOf(claim), " overlap");
        if (claim.kind != Claim::Kind::freeList) report.usedBytes += claim.end - claim.begin;
        if (claim.end > covered) {
            covered = claim.end;
            highest = &claim;
        }
    }
    if (covered < kSpaceSize) Violation("the bytes from ", covered, " on belong to nobody");
}

}  // namespace

StorageReport VerifyStorage(IAStoreStream& stream) {
    return StorageChecker(stream).Run();
}

StorageReport VerifyStorageFile(const char* path) {
    UFSStoreStream stream(path);
    try {
        stream.Open(false);
        return VerifyStorage(stream);
    } catch (const IAException& failure) {
        StorageReport report;
        report.violations.push_back(Say(path, ": ", failure.What()));
        return report;
    }
}

}  // namespace brindle

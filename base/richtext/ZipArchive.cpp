#include "base/richtext/ZipArchive.h"

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <string>

#include "lorvale/platform/exception.h"
#include "lorvale/values/format.h"

namespace lorvale {

namespace {

constexpr int kMostLevels = 100;

constexpr auto kCrcTable = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        auto rest = byte;
        for (int bit = 0; bit < 8; ++bit) rest = (rest & 1) != 0 ? 0xEDB88320U ^ (rest >> 1) : rest >> 1;
        table[byte] = rest;
    }
    return table;
}();

std::uint32_t crc32(std::string_view bytes) {
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const char c : bytes) crc = kCrcTable[(crc ^ static_cast<std::uint8_t>(c)) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFU;
}

/// The moment as MS-DOS had it: the date in the upper half, the time in the lower, in the local zone.
std::uint32_t dosTime() {
    const auto now = std::time(nullptr);
    std::tm local{};
    if (::localtime_r(&now, &local) == nullptr) return 0;
    const auto date = (local.tm_year - 80) << 9 | (local.tm_mon + 1) << 5 | local.tm_mday;
    const auto time = local.tm_hour << 11 | local.tm_min << 5 | local.tm_sec / 2;
    return static_cast<std::uint32_t>(date) << 16 | static_cast<std::uint32_t>(time);
}

// Little-endian throughout.
//
//   local header, then the bytes      central entry                     end
//   ---------------------------      ----------------------------      -----------------------------
//   4  50 4B 03 04                    4  50 4B 01 02                    4  50 4B 05 06
//                                     2  made by: 3 (Unix), 3.0         4  0 0
//   26 what both say, see appendCommon()                                2  entries, twice
//   n  the name                       10 0                              4  size of the central directory
//                                     4  attributes: the mode << 16     4  where it begins
//                                     4  where the local header begins  2  0
//                                     n  the name
class ZipWriter {
public:
    Data archive(const FileWrapper& directory, const std::string& name) {
        add(directory, name, 0);
        const auto start = checked(_out.size());
        _out.append(_central.view());
        _out.append(std::string_view("PK\5\6\0\0\0\0", 8));
        appendNumber(_out, _entries, 2);
        appendNumber(_out, _entries, 2);
        appendNumber(_out, checked(_central.size()), 4);
        appendNumber(_out, start, 4);
        appendNumber(_out, 0, 2);
        return _out.data();
    }

private:
    void add(const FileWrapper& file, const std::string& path, int level) {
        if (level > kMostLevels) refuse(path);
        const auto permissions = file.permissions();
        switch (file.kind()) {
            case FileWrapper::Kind::directory:
                addEntry(path + '/', {}, S_IFDIR | permissions.value_or(0755));
                for (const auto& [name, entry] : file.fileWrappers()) add(*entry, path + '/' + name, level + 1);
                break;
            case FileWrapper::Kind::regularFile:
                addEntry(path, file.regularFileContents().view(), S_IFREG | permissions.value_or(0644));
                break;
            case FileWrapper::Kind::symbolicLink:
                addEntry(path, file.symbolicLinkDestination(), S_IFLNK | 0777);
                break;
        }
    }

    void addEntry(const std::string& path, std::string_view bytes, std::uint32_t mode) {
        constexpr std::size_t kMost = 0xFFFF;
        if (path.size() > kMost || ++_entries > kMost) refuse(path);
        const auto place = checked(_out.size());
        const auto checksum = crc32(bytes);
        _out.append("PK\3\4");
        appendCommon(_out, path, bytes, checksum);
        _out.append(path);
        _out.append(bytes);
        _central.append("PK\1\2");
        appendNumber(_central, 3 << 8 | 30, 2);
        appendCommon(_central, path, bytes, checksum);
        appendNumber(_central, 0, 2);  // no comment,
        appendNumber(_central, 0, 4);  // on the first disk, bytes of any kind
        appendNumber(_central, mode << 16, 4);
        appendNumber(_central, place, 4);
        _central.append(path);
    }

    void appendCommon(ByteBuffer& to, std::string_view path, std::string_view bytes, std::uint32_t checksum) {
        constexpr std::uint32_t kNeeds = 20, kNamesAreUtf8 = 1U << 11, kStored = 0;
        appendNumber(to, kNeeds, 2);
        appendNumber(to, kNamesAreUtf8, 2);
        appendNumber(to, kStored, 2);
        appendNumber(to, _time, 4);
        appendNumber(to, checksum, 4);
        appendNumber(to, checked(bytes.size()), 4);
        appendNumber(to, checked(bytes.size()), 4);
        appendNumber(to, static_cast<std::uint32_t>(path.size()), 2);
        appendNumber(to, 0, 2);  // nothing extra
    }

    static void appendNumber(ByteBuffer& to, std::uint32_t number, int bytes) {
        for (int i = 0; i < bytes; ++i) to.append(static_cast<std::uint8_t>(number >> (8 * i)));
    }

    static std::uint32_t checked(std::size_t size) {
        if (size > 0xFFFF'FFFF) throw InvalidArgumentException("A directory is too large for one file");
        return static_cast<std::uint32_t>(size);
    }

    [[noreturn]] static void refuse(std::string_view path) {
        throw InvalidArgumentException(formatText("\"%@\" does not fit into an archive", path));
    }

    ByteBuffer _out, _central;
    std::uint32_t _entries = 0;
    const std::uint32_t _time = dosTime();
};

}  // namespace

Data zipArchive(const FileWrapper& directory, std::string_view name) {
    return ZipWriter().archive(directory, std::string(name));
}

}  // namespace lorvale

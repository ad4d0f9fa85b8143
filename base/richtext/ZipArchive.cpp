#include "base/richtext/ZipArchive.h"

#include <sys/stat.h>
#include <zip.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <new>
#include <string>

#include "lorvale/platform/exception.h"
#include "lorvale/values/format.h"

namespace lorvale {

namespace {

constexpr int kMostLevels = 100;

struct Free {
    void operator()(zip_t* archive) const noexcept { ::zip_discard(archive); }
    void operator()(zip_source_t* source) const noexcept { ::zip_source_free(source); }
};

using Source = std::unique_ptr<zip_source_t, Free>;

[[noreturn]] void refuse(std::string_view path, std::string_view why) {
    throw InvalidArgumentException(formatText("\"%@\" does not fit into an archive: %@", path, why));
}

/// The entries refer to the bytes of the directory's files until finish() has written them.
class ZipWriter {
public:
    ZipWriter() {
        zip_error_t error;
        ::zip_error_init(&error);
        _out.reset(::zip_source_buffer_create(nullptr, 0, /*freep=*/0, &error));
        if (_out != nullptr) _archive.reset(::zip_open_from_source(_out.get(), ZIP_TRUNCATE, &error));
        if (_archive != nullptr) ::zip_source_keep(_out.get());  // the archive has the one share, we the other
        ::zip_error_fini(&error);
        if (_archive == nullptr) throw std::bad_alloc();  // there is no other reason
    }

    void add(const FileWrapper& file, const std::string& path, int level = 0) {
        if (level > kMostLevels) refuse(path, "too many directories in each other");
        const auto permissions = file.permissions();
        switch (file.kind()) {
            case FileWrapper::Kind::directory:
                setMode(::zip_dir_add(_archive.get(), path.c_str(), 0), path,
                        S_IFDIR | permissions.value_or(0755));
                for (const auto& [name, entry] : file.fileWrappers()) add(*entry, path + '/' + name, level + 1);
                break;
            case FileWrapper::Kind::regularFile:
                addBytes(file.regularFileContents().view(), path, S_IFREG | permissions.value_or(0644));
                break;
            case FileWrapper::Kind::symbolicLink:
                addBytes(_links.emplace_back(file.symbolicLinkDestination()), path, S_IFLNK | 0777);
                break;
        }
    }

    Data finish(const std::string& name) {
        if (::zip_close(_archive.get()) != 0) refuse(name, ::zip_strerror(_archive.get()));
        (void)_archive.release();  // closed is freed
        zip_stat_t known;
        ::zip_stat_init(&known);
        if (::zip_source_stat(_out.get(), &known) != 0 || ::zip_source_open(_out.get()) != 0)
            refuse(name, "the archive cannot be read");
        ByteBuffer bytes(known.size);
        const auto count = ::zip_source_read(_out.get(), bytes.bytes(), known.size);
        ::zip_source_close(_out.get());
        if (count < 0 || static_cast<zip_uint64_t>(count) != known.size)
            refuse(name, "the archive cannot be read");
        bytes.commit(known.size);
        return bytes.data();
    }

private:
    void addBytes(std::string_view bytes, const std::string& path, std::uint32_t mode) {
        Source source(::zip_source_buffer(_archive.get(), bytes.data(), bytes.size(), /*freep=*/0));
        const auto index =
            source != nullptr ? ::zip_file_add(_archive.get(), path.c_str(), source.get(), 0) : -1;
        if (index >= 0) (void)source.release();  // the archive's now
        setMode(index, path, mode);
    }

    /// Of an entry, or of one that could not be made.
    void setMode(zip_int64_t index, const std::string& path, std::uint32_t mode) {
        if (index < 0 || ::zip_file_set_external_attributes(_archive.get(), static_cast<zip_uint64_t>(index), 0,
                                                            ZIP_OPSYS_UNIX, mode << 16) != 0)
            refuse(path, ::zip_strerror(_archive.get()));
    }

    std::deque<std::string> _links;  // where they lead
    Source _out;
    std::unique_ptr<zip_t, Free> _archive;
};

}  // namespace

Data zipArchive(const FileWrapper& directory, std::string_view name) {
    ZipWriter writer;
    writer.add(directory, std::string(name));
    return writer.finish(std::string(name));
}

}  // namespace lorvale

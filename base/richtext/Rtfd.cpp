#include <map>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "base/richtext/RtfReader.h"
#include "base/richtext/RtfWriter.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/rich_text.h"

namespace lorvale {

namespace {

constexpr std::string_view kTextName = "TXT.rtf";

/// The name that a file would like to have; one that has none is called "Attachment".
std::string wantedName(const FileWrapper& file) {
    if (!file.preferredFilename().empty()) return file.preferredFilename();
    return file.filename().empty() ? "Attachment" : file.filename();
}

/// Writes what does not replace anything.
bool writeNew(const FileWrapper& directory, const std::string& path) {
    if (directory.writeToPath(path)) return true;
    deletePath(path);
    return false;
}

bool succeeded(const FileStatus& status) {
    if (!status) log("%@", status.text());
    return static_cast<bool>(status);
}

/// Two directories cannot change places in one step that every system knows: the old one stands beside the new
/// one until that has its name.
bool replaceDirectory(const std::string& from, const std::string& to) {
    auto& files = FileSystem::current();
    const auto old = temporaryPathBeside(to);
    const bool isThere = pathExists(to);
    if (isThere && !succeeded(files.rename(to, old))) return false;
    if (!succeeded(files.rename(from, to))) {
        if (isThere) (void)succeeded(files.rename(old, to));
        return false;
    }
    if (isThere) deletePath(old);
    return succeeded(files.syncFolder(folderOf(to)));
}

}  // namespace

std::optional<AttributedText> attributedTextFromRTFD(const FileWrapper& directory) {
    const auto& entries = directory.fileWrappers();
    const auto text = entries.find(kTextName);
    if (text == entries.end()) return std::nullopt;
    const auto rtf = text->second->regularFileContents();
    if (!RtfReader::isRtf(rtf.view())) return std::nullopt;
    const AttachmentSource attachments = [&](std::string_view name) -> std::shared_ptr<const FileWrapper> {
        const auto entry = entries.find(name);
        return entry == entries.end() ? nullptr : entry->second;
    };
    return RtfReader(rtf.view(), attachments).read();
}

std::optional<AttributedText> attributedTextFromRTFDFile(std::string_view path) {
    const auto directory = FileWrapper::withPath(path);
    return directory == nullptr ? std::nullopt : attributedTextFromRTFD(*directory);
}

std::shared_ptr<FileWrapper> rtfdFromAttributedText(const AttributedText& text) {
    auto directory = FileWrapper::directory();
    // The name of the text is taken before any attachment can ask for it.
    const auto document = FileWrapper::regularFile(Data());
    if (document->setPreferredFilename(kTextName)) directory->addFileWrapper(document);
    std::map<std::shared_ptr<const FileWrapper>, std::string> names;
    const RtfWriter::NameOfAttachment nameOf = [&](const auto& attachment) {
        auto& name = names[attachment];
        if (!name.empty()) return name;
        // A copy, since the name in the directory is its own; the bytes are shared.
        auto file = std::make_shared<FileWrapper>(*attachment);
        if (file->setPreferredFilename(wantedName(*attachment)))
            name = directory->addFileWrapper(std::move(file));
        return name;
    };
    auto written = FileWrapper::regularFile(RtfWriter(text, nameOf).write());
    if (written->setFilename(kTextName) && written->setPreferredFilename(kTextName)) *document = *written;
    return directory;
}

bool writeRTFDFile(const AttributedText& text, std::string_view path, bool atomically) {
    const std::string target(path);
    const auto directory = rtfdFromAttributedText(text);
    if (!atomically) return deletePath(target) && writeNew(*directory, target);
    const auto fresh = temporaryPathBeside(target);
    if (!writeNew(*directory, fresh)) return false;
    if (replaceDirectory(fresh, target)) return true;
    deletePath(fresh);
    return false;
}

}  // namespace lorvale

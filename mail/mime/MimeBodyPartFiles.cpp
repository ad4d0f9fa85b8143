#include <algorithm>
#include <cstdlib>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "base/text/StringUtils.h"
#include "lorvale/body/mime_body_part.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/encoding.h"
#include "mail/mime/FileNames.h"
#include "mail/mime/TextBlocks.h"
#include "mail/mime/TransferDecoding.h"

namespace lorvale {

namespace {

template <class Map>
std::optional<std::string> notEmpty(const Map& map, std::string_view key) {
    const auto found = map.find(key);
    return found == map.end() || found->second.empty() ? std::nullopt : std::optional(found->second);
}

/// The name with the extension that its type asks for.
std::string withExtension(std::string name, const std::optional<std::string>& extension) {
    if (!extension) return name;
    const auto own = pathExtension(name);
    if (!isCaseEqual(own, *extension)) return name + "." + *extension;
    name.resize(name.size() - own.size());
    return name + *extension;
}

/// Text for a file: in the encoding in which this system keeps text, where that holds it.
Data bytesOfText(std::string_view text) {
    const auto bytes = encode(text, defaultCStringEncoding());
    return bytes ? *bytes : Data::copyOf(text);
}

}  // namespace

std::optional<std::string> MimeBodyPart::givenFilename() const {
    if (_dialect == MailDialect::classic) {
        // Only the type counts: this is where programs written for this system put the name.
        auto name = notEmpty(_mimeParams, "filename");
        if (!name) name = notEmpty(_mimeParams, "name");
        return name ? std::optional(decodeMimeHeaderValue(*name, _dialect)) : std::nullopt;
    }
    auto name = notEmpty(_dispositionParams, "filename");  // RFC 2183, section 2.3
    if (!name) name = notEmpty(_mimeParams, "name");
    if (!name) name = notEmpty(_mimeParams, "filename");
    if (!name && isUuencode(_mimeEncoding, _dialect) && _encodedData) {
        const auto block = firstUuencodedBlock(*_encodedData);
        if (block && !block->name.empty()) name = block->name;
    }
    return name;
}

std::string MimeBodyPart::filename() const {
    const bool isElsewhere = _mimeType && _mimeSubtype && isKeyEqual(*_mimeType, "message") &&
                             isKeyEqual(*_mimeSubtype, "external-body");
    const auto given = isElsewhere ? std::nullopt : givenFilename();
    const auto name = safeFilename(given.value_or(std::string(kNamelessFile)));
    // Whoever gave a name with an extension today meant it.
    if (_dialect == MailDialect::standard && !pathExtension(name).empty()) return name;
    // The extension may come out of the type, which is a stranger's word as well.
    return safeFilename(
        withExtension(name, extensionForType(MimeBody::mimeTypeMap(), _mimeType, _mimeSubtype, name)));
}

/// A part deletes the file that it has chosen for itself when it chooses another; never one of a bare name,
/// which lies in no directory of ours.
void MimeBodyPart::forgetBodyFile() {
    if (_bodyFile && _bodyFileOwner && _bodyFile->find('/') != std::string::npos && pathExists(*_bodyFile)) {
        if (const auto status = FileSystem::current().remove(*_bodyFile); !status) log("%@", status.text());
    }
    _bodyFile.reset();
    _bodyFileOwner = false;
}

std::string MimeBodyPart::bodyFileIn(std::optional<std::string_view> directory) {
    const bool owner = _bodyFileOwner && !_bodyFile;
    forgetBodyFile();
    _bodyFileOwner = owner;
    if (directory) _attachDir = *directory;
    _bodyFile = _attachDir ? uniquePath(stringByAppendingPathComponent(*_attachDir, filename())) : filename();
    return *_bodyFile;
}

void MimeBodyPart::setAttachmentDirectory(std::optional<std::string_view> directory) {
    _attachDir = directory ? std::optional<std::string>(*directory) : std::nullopt;
}

std::shared_ptr<FileWrapper> MimeBodyPart::fileWrapperForBody() {
    if (!_bodyFile) {
        _bodyFileOwner = true;
        bodyFileIn(std::nullopt);
    }
    std::shared_ptr<FileWrapper> file;
    if (isMultipart()) {
        file = FileWrapper::directory();
        if (const auto* const parts = bodyParts())
            for (const auto& part : *parts) file->addFileWrapper(part->fileWrapperForBody());
    } else {
        file = FileWrapper::regularFile(bodyData().value_or(Data()));
    }
    const auto name = lastPathComponent(*_bodyFile);
    if (!file->setFilename(name) || !file->setPreferredFilename(name))
        log("\"%@\" is no name for a file", name);
    return file;
}

bool MimeBodyPart::saveBodyToFile(std::optional<std::string_view> wanted) {
    const auto path = wanted ? std::string(*wanted) : bodyFileIn(std::nullopt);
    const std::string folder(stringByDeletingLastPathComponent(path));
    if (!folder.empty() && !pathExists(folder)) {
        log("MimeBodyPart: creating attachment directory");
        if (!makeDirectoryWithMode(folder, 0777)) return false;
    }
    const bool saved = isMultipart() ? saveChildren(path) : writeBody(path);
    applyUnixMode(path);
    return saved;
}

bool MimeBodyPart::saveChildren(const std::string& path) {
    if (!makeDirectoryWithMode(path, 0777)) return false;
    const auto* const parts = bodyParts();
    bool saved = true;
    if (parts == nullptr) return saved;
    for (const auto& part : *parts) saved = part->saveBodyToFile(part->bodyFileIn(path)) && saved;
    return saved;
}

bool MimeBodyPart::writeBody(const std::string& path) {
    const bool writesText = _dialect == MailDialect::classic && isText();
    const auto bytes = writesText ? bytesOfText(body()) : bodyData().value_or(Data());
    FileStatus status;
    const auto file = FileSystem::current().openForWriting(path, WriteMode::truncate, 0666, &status);
    if (file) status = file->write(bytes.view());
    if (status) status = file->close();
    if (!status) log("%@", status.text());
    return static_cast<bool>(status);
}

/// "0755" is octal, "755" is not; the bits that run a program as somebody else are nobody's to send.
void MimeBodyPart::applyUnixMode(const std::string& path) const {
    constexpr unsigned long kHarmless = 01777;
    const auto text = mimeParameterForKey("x-unix-mode");
    if (_dialect != MailDialect::classic || !text || std::strtol(text->c_str(), nullptr, 10) == 0) return;
    const auto mode = static_cast<mode_t>(std::strtoul(text->c_str(), nullptr, 0) & kHarmless);
    if (!FileSystem::current().setPermissions(path, mode)) return;  // a wish, no more
}

}  // namespace lorvale

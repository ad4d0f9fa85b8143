#include "mail/model/AttachmentPaths.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr int kNameLength = 20;
constexpr unsigned kDirectoryMode = 0700;
constexpr std::string_view kNamelessAttachment = "Corvane";

/// Characters that mean nothing to a shell, a file system or a reader of paths: no dot, which would hide a file
/// or fake an extension, and none from beyond ASCII, which could reverse or blank what the user sees.
constexpr bool isGoodFileCharacter(char32_t c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

std::string nameFromSubject(std::string_view subject) {
    std::string name;
    while (!subject.empty() && name.size() < kNameLength) {
        const auto c = nextCodePoint(subject);
        if (isGoodFileCharacter(c)) {
            name += static_cast<char>(c);
        } else if (!name.empty()) {
            name += '_';
        }
    }
    return name.empty() ? std::string(kNamelessAttachment) : name;
}

}  // namespace

bool makePrivateDirectory(std::string_view pathView) {
    const std::string path(pathView);
    auto& files = FileSystem::current();
    const auto made = makeDirectories(folderOf(path));
    if (!made || !files.makeDirectory(path, kDirectoryMode)) {
        // There already, or it cannot be made.  Somebody else may have been there first to read what comes.
        const auto found = files.linkAttributes(path);
        if (!found || !found->isDirectory || found->isLink || found->owner != ::geteuid()) {
            log("%@ is no directory of this user alone", path);
            return false;
        }
    }
    const auto status = files.setPermissions(path, kDirectoryMode);
    if (!status) log("%@", status.text());
    return static_cast<bool>(status);
}

std::string Message::_filenameFromSubject(std::optional<std::string_view> subject,
                                          std::optional<std::string_view> inDirectory,
                                          std::string_view ofType) {
    std::string path;
    if (inDirectory && !inDirectory->empty()) {
        path += *inDirectory;
        path += '/';
    }
    path += nameFromSubject(subject.value_or(kNamelessAttachment));
    path += ofType;
    return path;
}

std::optional<std::string> Message::makeUniqueAttachmentNamed(std::optional<std::string_view> subject,
                                                              std::optional<std::string_view> inDirectory) {
    return makeUniqueAttachmentNamed(subject, ".attach", inDirectory);
}

std::optional<std::string> Message::makeUniqueAttachmentNamed(std::optional<std::string_view> subject,
                                                              std::string_view withExtension,
                                                              std::optional<std::string_view> inDirectory) {
    std::optional<std::string> defaultDirectory;
    if (!inDirectory) {
        defaultDirectory = MessageBody::defaultAttachmentDirectory();
        if (!defaultDirectory) return std::nullopt;  // logged there
        inDirectory = *defaultDirectory;
    }
    auto path =
        uniquePathWithMaximumLength(_filenameFromSubject(subject, inDirectory, withExtension), kNameLength);
    if (!makeDirectoryWithMode(path, kDirectoryMode)) {
        log("Could not create attachment directory %@", path);
        return std::nullopt;
    }
    return path;
}

}  // namespace lorvale

#include "mail/mime/FileNames.h"

#include <algorithm>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "base/text/StringUtils.h"
#include "base/text/TextScanner.h"
#include "lorvale/defaults.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

/// For a system on which nobody has installed the file.
constexpr std::string_view theDefaultMimeFileTypes =
    "application/postscript ps eps\n"
    "image/gif gif\n"
    "image/jpeg jpg\n"
    "video/mpeg mpg\n"
    "application/rtf rtf\n"
    "audio/basic snd vox\n"
    "audio/tarn snd vox\n"
    "image/tiff tiff\n"
    "application/wordperfect5.1 wp\n"
    "text/html html\n";

std::vector<MimeFileType> usualFileTypes() {
    constexpr std::string_view kName = "MimeFileTypes";
    std::vector<MimeFileType> types;
    const auto addFile = [&](const std::string& path) {
        const auto text = FileSystem::current().readFile(path);
        if (text) std::ranges::move(fileTypesInText(text->view()), std::back_inserter(types));
    };
    addFile(homeDirectory() + "/Library/Mail/" + std::string(kName));
    addFile(stringByAppendingPathComponent(Defaults::sharedInstance().localLibraryDirectory(), kName));
    if (const auto resource = pathForResource(kName)) addFile(*resource);
    return types.empty() ? fileTypesInText(theDefaultMimeFileTypes) : types;
}

}  // namespace

std::string safeFilename(std::string_view name) {
    constexpr std::size_t kLongest = 200;  // leaves room for what makes a name unique
    std::string safe(name);
    std::ranges::replace(safe, '/', '_');
    std::erase(safe, '\0');
    if (safe.empty() || safe == "." || safe == "..") return std::string(kNamelessFile);
    if (safe.size() <= kLongest) return safe;
    const std::string extension(pathExtension(safe));
    const auto keeps = extension.size() < kLongest / 4 && !extension.empty();
    auto stem = safe.substr(0, kLongest - (keeps ? extension.size() + 1 : 0));
    while (!stem.empty() && !isValidUtf8(stem) && isValidUtf8(safe)) stem.pop_back();
    return keeps ? stem + "." + extension : stem;
}

std::optional<std::string> extensionForType(std::span<const MimeFileType> types,
                                            const std::optional<std::string>& type,
                                            const std::optional<std::string>& subtype, std::string_view name) {
    const auto own = pathExtension(name);
    std::optional<std::string> candidate;
    for (const auto& row : types) {
        const bool matches = type && subtype && isKeyEqual(row.type, *type) &&
                             (row.subtype == "*" || isKeyEqual(row.subtype, *subtype));
        if (!matches || row.extensions.empty()) continue;
        const auto same = std::ranges::find_if(
            row.extensions, [own](const std::string& extension) { return isCaseEqual(extension, own); });
        if (same != row.extensions.end()) return *same;
        if (!candidate) candidate = row.extensions.front();
    }
    if (candidate || !own.empty() || !subtype) return candidate;
    if (isKeyEqual(*subtype, "octet-stream") || isKeyEqual(*subtype, "x-folder")) return std::nullopt;
    auto made = lowercased(*subtype);
    if (made.starts_with("x-")) made.erase(0, 2);
    return made;
}

std::vector<MimeFileType> fileTypesInText(std::string_view text) {
    std::vector<MimeFileType> types;
    for (const auto line : split(text, '\n')) {
        TextScanner scanner(line.substr(0, line.find('#')));
        const auto next = [&] { return scanner.nextTokenWithPunctuation(CharacterSet()); };
        const auto type = scanner.nextTokenWithPunctuation(CharacterSet("/"));
        if (!type) continue;
        scanner.scanString("/");
        const auto subtype = next();
        if (!subtype) {
            log("Ignoring entry with missing MIME subtype: %@", line);
            continue;
        }
        MimeFileType row{std::string(*type), std::string(*subtype), {}};
        while (const auto extension = next()) row.extensions.emplace_back(*extension);
        types.push_back(std::move(row));
    }
    return types;
}

const std::vector<MimeFileType>& MimeBody::mimeTypeMap() {
    static const auto& types = *new auto(usualFileTypes());
    return types;
}

}  // namespace lorvale

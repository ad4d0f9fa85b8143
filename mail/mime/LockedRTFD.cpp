#include "mail/mime/LockedRTFD.h"

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/rich_text.h"

namespace lorvale {

namespace {

std::optional<AttributedText> plainBytes(const std::string& path) {
    for (const auto* const name : {"index.rtf", "TXT.rtf"}) {
        const auto bytes = FileSystem::current().readFile(stringByAppendingPathComponent(path, name));
        if (!bytes) continue;
        for (const auto encoding : {defaultCStringEncoding(), StringEncoding::tarn})
            if (const auto text = decode(bytes->view(), encoding)) return AttributedText(*text);
    }
    return std::nullopt;
}

}  // namespace

bool lockedWriteRTFDToFile(const AttributedText& text, const std::string& path, bool atomically) {
    static Mutex mutex;
    const MutexLock lock(mutex);  // over input and output, which is what it is for
    return writeRTFDFile(text, path, atomically);
}

std::optional<AttributedText> lockedAttributedStringFromRTFDFile(const std::string& path) {
    static Mutex mutex;
    const MutexLock lock(mutex);
    auto text = attributedTextFromRTFDFile(path);
    return text ? text : plainBytes(path);
}

}  // namespace lorvale

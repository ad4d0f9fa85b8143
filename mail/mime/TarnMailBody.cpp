#include "lorvale/body/tarn_mail_body.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "base/text/StringUtils.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/subprocess.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/file_wrapper.h"
#include "lorvale/values/format.h"
#include "lorvale/values/rich_text.h"
#include "mail/encoding/LineWrapping.h"
#include "mail/mime/ArchiveCheck.h"
#include "mail/mime/LockedRTFD.h"
#include "mail/model/RegisteredClass.h"

namespace lorvale {

namespace {

constexpr std::string_view kAttachmentHeader = "tarn-attachment", kReferenceHeader = "tarn-reference";
constexpr std::size_t kMostUnpacked = 256 << 20;
constexpr std::chrono::seconds kMostTime{60};

void registerTarnMailBody() {
    const MessageBodyClass theClass{"TarnMailBody", TarnMailBody::willingnessToDecode,
                                    [] { return std::make_shared<TarnMailBody>(); }};
    MessageBody::bodyClasses().registerClass(theClass);
    MessageBody::registerMessageClass(theClass, "Tarn");
}

const RegisteredClass kTarnMailBody(ClassRank::alternative, registerTarnMailBody);

/// The path of a program, for all bodies.
class ProgramPath {
public:
    explicit ProgramPath(std::string_view path) : _path(path) {}
    std::string get() const {
        const MutexLock lock(_mutex);
        return _path;
    }
    void set(std::string_view path) {
        const MutexLock lock(_mutex);
        _path = path;
    }

private:
    mutable Mutex _mutex;
    std::string _path LORVALE_GUARDED_BY(_mutex);
};

struct Programs {
    ProgramPath tar{"/usr/bin/gnutar"}, compress{"/usr/bin/compress"}, shell{"/bin/sh"};
};

Programs& programs() {
    static auto& paths = *new Programs;  // threads may outlive the end of main
    return paths;
}

TaskLimits limits() {
    return {.deadline = std::chrono::steady_clock::now() + kMostTime, .mostOutput = kMostUnpacked};
}

/// As one word for a shell.
std::string quotedForShell(std::string_view text) {
    std::string word = "'";
    for (const char c : text) word += c == '\'' ? std::string_view("'\\''") : std::string_view(&c, 1);
    return word + "'";
}

/// Documents of this format once named their text "index.rtf" and their pictures otherwise, and these two were
/// to translate.  The second one never did its work, so that nothing was ever written or deleted, and what
/// other programs of the family read today is "TXT.rtf": both stay as they are, and their callers pass over the
/// answer.
bool convertData(const Data&, std::string_view /*pattern*/, std::string_view /*replacement*/,
                 bool /*truncateBeforeBackslash*/, bool /*removeExtraLeftBrace*/) {
    return false;
}

bool convertIndexFor(std::string_view directory, bool outgoing) {
    constexpr std::string_view kIndex = "index.rtf", kText = "TXT.rtf";
    const auto from = stringByAppendingPathComponent(directory, outgoing ? kText : kIndex);
    const auto document = FileSystem::current().readFile(from);
    if (!document) return false;
    return outgoing ? convertData(*document, "{[ \t\n]*\\\\TarnGraphic\\([^}]*\\)}[ \t\n]\xC2\xAC",
                                  "\\attachment%s\n", true, false)
                    : convertData(*document, "{\\\\attachment\\([^\n}]*\\)[ \t\n]*}",
                                  "{{\\TarnGraphic%s \\width0 \\height0\n}\xC2\xAC}", false, true);
}

[[noreturn]] void raise(const std::string& reason) {
    log("%@", reason);
    throw NamedException("TarnMailBody", reason);
}

/// Whether a text is more than its characters.
bool isRich(const AttributedText& text) {
    static const TextAttributes kNone;
    return std::ranges::any_of(text.runs(), [](const auto& run) { return run.attributes != kNone; });
}

std::vector<std::string> namesIn(const std::string& path) {
    return FileSystem::current().namesInFolder(path).value_or(std::vector<std::string>());
}

/// Of the files alone; links count for nothing.
std::uint64_t sizeOfTree(const std::string& path) {
    auto& files = FileSystem::current();
    const auto attributes = files.linkAttributes(path);
    if (!attributes || attributes->isLink) return 0;
    if (!attributes->isDirectory) return static_cast<std::uint64_t>(attributes->size);
    std::uint64_t size = 0;
    for (const auto& name : namesIn(path)) size += sizeOfTree(stringByAppendingPathComponent(path, name));
    return size;
}

/// The document that is laid out there, also one of the time when its text had another name.
std::optional<AttributedText> documentIn(const std::string& path) {
    const auto older = stringByAppendingPathComponent(path, "index.rtf");
    if (!pathExists(older) || pathExists(stringByAppendingPathComponent(path, "TXT.rtf")))
        return lockedAttributedStringFromRTFDFile(path);
    const auto document = FileSystem::current().readFile(older);
    return document ? std::optional(attributedTextFromRTF(*document)) : std::nullopt;
}

}  // namespace

float TarnMailBody::willingnessToDecode(MessageHeaders& headers) {
    return headers.objectsForKey(kAttachmentHeader) || headers.objectsForKey(kReferenceHeader) ? 1.0F : 0.0F;
}

std::string TarnMailBody::tarCommand() {
    return programs().tar.get();
}
void TarnMailBody::setTarCommand(std::string_view path) {
    programs().tar.set(path);
}
std::string TarnMailBody::compressCommand() {
    return programs().compress.get();
}
void TarnMailBody::setCompressCommand(std::string_view path) {
    programs().compress.set(path);
}
std::string TarnMailBody::shellCommand() {
    return programs().shell.get();
}
void TarnMailBody::setShellCommand(std::string_view path) {
    programs().shell.set(path);
}

TarnMailBody::~TarnMailBody() {
    dropTemporaryDirectory();
}

bool TarnMailBody::enztar(const std::string& directory, ByteBuffer& into) {
    const PipeCommand pack[] = {{tarCommand(), {"cf", "-", "-C", directory, "."}}},
                      compress[] = {{compressCommand(), {"-f"}}};
    ByteBuffer archive;
    if (!runPipe(pack, nullptr, &archive, limits())) return false;
    // What a program says of itself does not reach us; and we send what we would take.
    std::string why;
    const auto harmless = harmlessArchive(archive.view(), why);
    if (!harmless || harmless->size() == archive.size()) {
        log("The packed attachment holds %@", harmless ? "no end" : why);
        return false;
    }
    const auto before = into.size();
    const auto members = archive.data();
    return runPipe(compress, &members, &into, limits()) && into.size() > before;
}

bool TarnMailBody::deztar(const Data& packed, const std::string& into) {
    const PipeCommand uncompress[] = {{compressCommand(), {"-d", "-c"}}};
    ByteBuffer archive;
    if (!runPipe(uncompress, &packed, &archive, limits()) || archive.size() == 0) return false;
    std::string why;
    const auto harmless = harmlessArchive(archive.view(), why);
    if (!harmless) {
        log("An attachment holds %@, and is not unpacked", why);
        return false;
    }
    // Where "cd" fails tar would unpack wherever the host is; and the shell looks elsewhere for relative names.
    if (!FileSystem::current().isDirectory(into)) return false;
    const auto target = into.starts_with('/') ? into : "./" + into;
    const auto line = formatText("cd %@; %@ xf -", quotedForShell(target), quotedForShell(tarCommand()));
    const PipeCommand unpack[] = {{shellCommand(), {"-c", line}}};
    const auto members = Data::copyOf(*harmless);
    return runPipe(unpack, &members, nullptr, limits()) && !namesIn(into).empty();
}

std::optional<std::string> TarnMailBody::attachmentName() const {
    const auto directory = attachmentDirectory();
    return directory ? std::optional(std::string(lastPathComponent(*directory))) : std::nullopt;
}

bool TarnMailBody::makeUniqueTemporaryAttachmentInDirectory(std::optional<std::string_view> directory) {
    const auto owner = message();
    const auto subject = owner ? owner->headers()->firstTextForKey("subject") : std::string();
    const auto named = subject.empty() ? std::nullopt : std::optional<std::string_view>(subject);
    auto path = Message::makeUniqueAttachmentNamed(named, directory);
    if (!path) return false;
    dropTemporaryDirectory();
    setAttachmentDirectory(std::move(path));
    _isTemporary = !directory;
    return true;
}

void TarnMailBody::dropTemporaryDirectory() {
    const auto directory = attachmentDirectory();
    if (_isTemporary.exchange(false) && directory) deletePath(*directory);
}

void TarnMailBody::writeTextInto(const std::string& path, const AttributedText& text) const {
    if (!lockedWriteRTFDToFile(text, path, true))
        raise(formatText("Could not save text in %@", abbreviateWithTilde(path)));
    convertIndexFor(path, true);
}

std::string TarnMailBody::prepareAttachmentForUuencoding() {
    const auto owner = message();
    if (!owner) raise("prepareAttachmentForUuencoding failed");
    const auto headers = owner->headers();
    auto value = headers->firstTextForKey(kAttachmentHeader);
    if (!attachmentDirectory()) {
        if (!makeUniqueTemporaryAttachmentInDirectory(std::nullopt))
            raise("prepareAttachmentForUuencoding failed");
        const auto text = _decodedBody();
        writeTextInto(*attachmentDirectory(), text ? *text : AttributedText());
    }
    if (value.empty()) {
        const auto flags = owner->messageFlags();
        value = formatText(".tar.%ld.%@, %@%d, 1/1, %d, 0", std::time(nullptr) % 999,
                           attachmentName().value_or(""), flags && flags->isEncrypted() ? "E, " : "", 0, 0);
        headers->allHeaders();  // which a change needs
        headers->setObject(value, kAttachmentHeader);
    }
    return value.substr(0, value.find(','));
}

std::optional<std::string> TarnMailBody::referenceName() const {
    const auto owner = message();
    if (!owner || !owner->headers()->objectsForKey(kReferenceHeader)) return std::nullopt;
    return std::string(_tarnReferenceName(owner->headers()->firstTextForKey(kReferenceHeader)));
}

/// Where the directories lie that messages of the mailbox refer to; empty for a message without a mailbox.
std::string TarnMailBody::mailboxDirectory() const {
    const auto owner = message();
    const auto source = owner ? owner->messageSource() : nullptr;
    const auto path = source ? source->storePath() : std::string();
    if (path.empty() || FileSystem::current().isDirectory(path)) return path;
    return std::string(stringByDeletingLastPathComponent(path));
}

/// The mailbox, where that is a directory that may be changed; else empty, for one that goes with this object.
std::string TarnMailBody::directoryToUnpackIn() const {
    const auto owner = message();
    const auto source = owner ? owner->messageSource() : nullptr;
    const auto path = source && !source->isReadOnly() ? source->storePath() : std::string();
    const bool isMailbox = FileSystem::current().isDirectory(path) && path != defaultAttachmentDirectory();
    return isMailbox ? path : std::string();
}

std::uint64_t TarnMailBody::attachmentSize() const {
    const auto reference = referenceName();
    const auto base = mailboxDirectory();
    if (!reference || !FileWrapper::isFilename(*reference) || base.empty()) return 0;
    return sizeOfTree(stringByAppendingPathComponent(base, *reference));
}

std::optional<Data> TarnMailBody::encodedBody() {
    return referenceName() ? Data::ofStatic("\n") : MessageBody::encodedBody();
}

std::optional<Data> TarnMailBody::encodeBody() {
    const auto text = _decodedBody();
    if (!text) return std::nullopt;
    if (!isRich(*text) && canConvert(text->string(), StringEncoding::ascii)) {
        const auto bytes = encodeCString(text->string());
        ByteBuffer out(bytes.size());
        appendDataWrapped(out, bytes.view(), static_cast<std::size_t>(lineLength()), true);
        return out.data();
    }
    const auto name = prepareAttachmentForUuencoding();
    ByteBuffer packed;
    if (!enztar(*attachmentDirectory(), packed)) raise("Could not tar & compress & uuencode message");
    return uuencodedDataWithFile(packed.data(), name, 0600);
}

bool TarnMailBody::unpackInto(const std::string& path) {
    const auto bytes = encodedBody();
    const auto packed = bytes ? uudecodedDataIntoFile(*bytes, nullptr, nullptr) : std::nullopt;
    if (!packed) return log("Errors during uudecoding"), false;
    if (!deztar(*packed, path)) log("Could not uncompress/untar attachment for %@", abbreviateWithTilde(path));
    return true;
}

/// Puts the document into a new directory below this one.
bool TarnMailBody::layOut(std::string_view directory) {
    const auto text = referenceName() ? decodedBody() : nullptr;
    const auto below = directory.empty() ? std::nullopt : std::optional(directory);
    if (!makeUniqueTemporaryAttachmentInDirectory(below)) return false;
    const auto path = *attachmentDirectory();
    if (!referenceName()) {
        if (unpackInto(path)) return true;
    } else if (text && lockedWriteRTFDToFile(*text, path, true)) {
        return true;
    } else {
        log("Could not save text in %@", path);
    }
    return takeBack(), false;
}

/// Removes what layOut() has made.
void TarnMailBody::takeBack() {
    _isTemporary = false;
    deletePath(attachmentDirectory().value_or(""));
    setAttachmentDirectory(std::nullopt);
}

std::shared_ptr<const AttributedText> TarnMailBody::decodeBodyIntoDirectory(
    std::optional<std::string_view> directory) {
    if (directory && !layOut(*directory)) return nullptr;
    if (auto text = _decodedBody()) return text;
    const auto path = attachmentDirectory().value_or("");
    auto text = path.empty() ? std::nullopt : documentIn(path);
    if (!text) {
        text = AttributedText(formatText("<Missing attachment: message contents could not be found in %@>",
                                         abbreviateWithTilde(path)));
        if (directory) takeBack();
    }
    return std::make_shared<const AttributedText>(*std::move(text));
}

std::shared_ptr<const AttributedText> TarnMailBody::decodeBody() {
    if (attachmentDirectory()) return decodeBodyIntoDirectory(std::nullopt);
    if (const auto reference = referenceName()) {
        // A name from a stranger leads nowhere but beside the mailbox.
        const auto base = mailboxDirectory();
        if (!base.empty() && FileWrapper::isFilename(*reference))
            setAttachmentDirectory(stringByAppendingPathComponent(base, *reference));
        return decodeBodyIntoDirectory(std::nullopt);
    }
    return decodeBodyIntoDirectory(directoryToUnpackIn());
}

}  // namespace lorvale

#include "lorvale/defaults.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <mutex>
#include <utility>

#include "base/files/PropertyListFile.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/thread.h"
#include "lorvale/platform/user_interface.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/property_list.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

namespace key {
constexpr std::string_view kAlternates = "Alternates";
constexpr std::string_view kArchiveMailboxName = "ArchiveMailboxName";
constexpr std::string_view kDeliveryMethod = "DeliveryMethod";
constexpr std::string_view kLocalLibDir = "LocalLibDir";
constexpr std::string_view kMailDir = "MailDir";
constexpr std::string_view kMailFilter = "MailFilter";
constexpr std::string_view kMailer = "Mailer";
constexpr std::string_view kNonTarn = "NonTarn";
constexpr std::string_view kPOP3ClientVersion = "POP3ClientVersion";
constexpr std::string_view kPOP3Password = "POP3Password";
constexpr std::string_view kPOP3SpoolDirectory = "POP3SpoolDirectory";
constexpr std::string_view kSMTPHost = "SMTPHost";
constexpr std::string_view kSendFormat = "SendFormat";
constexpr std::string_view kSendSizeLimit = "SendSizeLimit";
constexpr std::string_view kSpoolDir = "SpoolDir";
}  // namespace key

constexpr std::string_view kDomain = "Lorvale";
constexpr std::string_view kPlain = "Plain", kMIME = "MIME";
constexpr std::string_view kMailboxExtension = ".mbox";
constexpr std::string_view kStandardMailer = "/usr/sbin/sendmail";
constexpr std::int32_t kStandardSendSizeLimit = 500;

/// The directory service of the host.  The mutex is the lock that lockTessera() takes, so the service is called
/// under it: that is what it is for.
struct Tessera {
    Mutex mutex;
    Defaults::TesseraLookup lookup LORVALE_GUARDED_BY(mutex);
};

Tessera& tessera() {
    static Tessera& instance = *new Tessera;  // never destroyed: a late look-up may still hold it
    return instance;
}

/// The number at the start of a directory's answer; nullopt when there is none.
std::optional<std::int32_t> decimalValue(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    std::int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) return std::nullopt;
    return value;
}

void registerResource(UserDefaults& defaults) {
    const auto path = pathForResource(kDomain, "defaults");
    if (!path) {
        log("The resource %@.defaults is missing from %@", kDomain, resourceDirectory());
        return;
    }
    if (const auto values = readPropertyListFile(*path)) defaults.registerDefaults(*values);
}

}  // namespace

struct Defaults::FilterHeaders {
    std::once_flag made;
    HeaderNames names;
};

/// Asks the directory on a thread, one at a time, so that who changes a setting never waits for the network.
class Defaults::LimitLookup {
public:
    explicit LimitLookup(Defaults& owner) : _owner(owner) {}

    void start() {
        const MutexLock lock(_mutex);
        _wanted = true;
        if (std::exchange(_running, true)) return;  // the thread looks once more before it ends
        // A thread that has ended or is past its last step: replacing it joins it at once.
        _thread = Thread("tessera", [this](const std::stop_token& stop) {
            while (takeWanted(stop)) _owner.getTesseraSendSizeLimit();
        });
    }

private:
    bool takeWanted(const std::stop_token& stop) {
        const MutexLock lock(_mutex);
        if (std::exchange(_wanted, false) && !stop.stop_requested()) return true;
        _running = false;
        return false;
    }

    Defaults& _owner;
    Mutex _mutex;
    bool _wanted LORVALE_GUARDED_BY(_mutex) = false;
    bool _running LORVALE_GUARDED_BY(_mutex) = false;
    Thread _thread;  // last: joined before the rest goes
};

Defaults& Defaults::sharedInstance() {
    static Defaults& instance =
        *new Defaults(UserDefaults::standard());  // never destroyed, as its user defaults
    return instance;
}

Defaults::Defaults(UserDefaults& defaults)
    : _defaults(defaults),
      _canUseWindowKit(hasUserInterface()),
      _filterHeaders(std::make_unique<FilterHeaders>()),
      _lookup(std::make_unique<LimitLookup>(*this)) {
    _defaults.addSuiteNamed(kDomain);
    registerResource(_defaults);
}

Defaults::~Defaults() = default;

std::optional<std::string> Defaults::textForKey(std::string_view key) const {
    auto text = _defaults.stringForKey(key);
    if (text && text->empty()) return std::nullopt;
    return text;
}

void Defaults::setText(std::optional<std::string_view> text, std::string_view forKey) {
    if (text && !text->empty())
        _defaults.setString(*text, forKey);
    else
        _defaults.removeObjectForKey(forKey);
}

// ---- Header filter

const Defaults::HeaderNames& Defaults::defaultFilterHeaders() {
    // "from " with its blank is the envelope line.
    static const HeaderNames& names =
        *new HeaderNames{"body_storage",   "body_type",       "body",  "documentid",      "signature",
                         "encoding_hint",  "in-reply-to-doc", "from ", "tarn-attachment", "tarn-reference",
                         "mime-reference", "x-status"};
    return names;
}

const Defaults::HeaderNames& Defaults::filterHeaders() const {
    std::call_once(_filterHeaders->made, [this] {
        _filterHeaders->names = defaultFilterHeaders();
        for (const auto& name : mailFilter()) _filterHeaders->names.insert(asciiLowered(name));
    });
    return _filterHeaders->names;
}

std::vector<std::string> Defaults::mailFilter() const {
    if (auto names = _defaults.stringArrayForKey(key::kMailFilter)) return *names;
    const auto text = textForKey(key::kMailFilter);
    if (!text) return {};
    std::vector<std::string> names;
    for (const auto name : split(*text, ':')) names.emplace_back(name);
    return names;
}

// ---- Sending

SendFormat Defaults::sendFormat() const {
    const auto word = textForKey(key::kSendFormat).value_or("");
    if (equalIgnoringAsciiCase(word, kPlain)) return SendFormat::plain;
    if (equalIgnoringAsciiCase(word, kMIME)) return SendFormat::MIME;
    return _defaults.boolForKey(key::kNonTarn) ? SendFormat::plain : SendFormat::MIME;
}

void Defaults::setSendFormat(SendFormat format) {
    _defaults.setString(format == SendFormat::plain ? kPlain : kMIME, key::kSendFormat);
}

std::int32_t Defaults::sendSizeLimit() const {
    if (const auto known = _sendSizeLimit.load(); known >= 0) return known;
    if (!_defaults.objectForKey(key::kSendSizeLimit)) return kStandardSendSizeLimit;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(_defaults.integerForKey(key::kSendSizeLimit),
                                                              std::numeric_limits<std::int32_t>::min(),
                                                              std::numeric_limits<std::int32_t>::max()));
}

void Defaults::setSendSizeLimit(std::int32_t limit) {
    if (limit >= 0 && limit == _sendSizeLimit.load()) return;
    _sendSizeLimit = limit;
    if (limit < 0) {
        _defaults.removeObjectForKey(key::kSendSizeLimit);
        _lookup->start();
    } else {
        _defaults.setInteger(limit, key::kSendSizeLimit);
    }
}

void Defaults::getTesseraSendSizeLimit() {
    std::optional<std::string> answer;
    {
        auto& directory = tessera();
        const MutexLock lock(directory.mutex);
        if (directory.lookup) answer = directory.lookup("/locations/mail", "send_size_limit");
    }
    if (!answer) return;
    const auto limit = decimalValue(*answer);
    if (!limit) {
        log("The directory's send_size_limit is no number: \"%@\"", *answer);
        return;
    }
    // A limit that was set while the directory was asked stays.
    auto unknown = _sendSizeLimit.load();
    while (unknown < 0 && !_sendSizeLimit.compare_exchange_weak(unknown, *limit)) continue;
}

void Defaults::setTesseraLookup(TesseraLookup lookup) {
    auto& directory = tessera();
    const MutexLock lock(directory.mutex);
    directory.lookup.swap(lookup);
}

void Defaults::lockTessera() LORVALE_NO_THREAD_SAFETY_ANALYSIS {
    tessera().mutex.lock();
}

void Defaults::unlockTessera() LORVALE_NO_THREAD_SAFETY_ANALYSIS {
    tessera().mutex.unlock();
}

// ---- Places and names

void Defaults::setMailFilter(std::span<const std::string> names) {
    PropertyList::Array list;
    for (const auto& name : names) list.emplace_back(name);
    _defaults.setObject(PropertyList(std::move(list)), key::kMailFilter);
}

std::optional<std::string> Defaults::spoolDirectory() const {
    const auto path = textForKey(key::kSpoolDir);
    return path ? std::optional(standardizePath(*path)) : std::nullopt;
}
void Defaults::setSpoolDirectory(std::optional<std::string_view> path) {
    setText(path, key::kSpoolDir);
}

std::string Defaults::defaultMailDirectory() const {
    return standardizePath(textForKey(key::kMailDir).value_or("~/Mailboxes"));
}
void Defaults::setDefaultMailDirectory(std::optional<std::string_view> path) {
    setText(path, key::kMailDir);
}

std::string Defaults::archiveMailboxName() const {
    return textForKey(key::kArchiveMailboxName).value_or("Outgoing.mbox");
}
void Defaults::setArchiveMailboxName(std::optional<std::string_view> name) {
    std::string full(name.value_or(""));
    if (!full.empty() && !full.ends_with(kMailboxExtension)) full += kMailboxExtension;
    setText(full, key::kArchiveMailboxName);
}

std::string Defaults::localLibraryDirectory() const {
    return standardizePath(textForKey(key::kLocalLibDir).value_or(rootDirectory() + "/Network/Library"));
}
void Defaults::setLocalLibraryDirectory(std::optional<std::string_view> path) {
    setText(path, key::kLocalLibDir);
}

std::string Defaults::SMTPHost() const {
    return textForKey(key::kSMTPHost).value_or("mailhost");
}
void Defaults::setSMTPHost(std::optional<std::string_view> host) {
    setText(host, key::kSMTPHost);
}

std::string Defaults::deliveryMethod() const {
    return textForKey(key::kDeliveryMethod).value_or("sendmail");
}
void Defaults::setDeliveryMethod(std::optional<std::string_view> method) {
    setText(method, key::kDeliveryMethod);
}

std::string Defaults::sendmailMailer() const {
    return textForKey(key::kMailer).value_or(std::string(kStandardMailer));
}
void Defaults::setSendmailMailer(std::optional<std::string_view> path) {
    setText(path == kStandardMailer ? std::nullopt : path, key::kMailer);
}

std::string Defaults::popSpoolDirectory() const {
    return standardizePath(
        textForKey(key::kPOP3SpoolDirectory).value_or(defaultMailDirectory() + "/.popspool"));
}

std::string Defaults::alternateAddressesForSelf() const {
    return stringForKey(key::kAlternates);
}

// ---- POP password

std::string Defaults::popPassword() {
    const auto stored = _defaults.objectForKey(key::kPOP3Password);
    if (!stored) return {};
    const auto* const data = stored->get<Data>();
    const auto bytes = data != nullptr ? *data : Data::copyOf(stored->string());
    if (_defaults.integerForKey(key::kPOP3ClientVersion) > 0)
        return decodeLossy(decodeBase64(bytes).view(), StringEncoding::utf8);
    auto password = decodeLossy(bytes.view(), StringEncoding::utf8);
    if (password.empty()) return password;
    // Written by an old version: it shall not lie about in the open any longer.
    setPopPassword(password);
    static_cast<void>(_defaults.synchronize());  // logged there; the next time will do
    return password;
}

void Defaults::setPopPassword(std::string_view password) {
    _defaults.setString(encodeBase64(Data::copyOf(password)).view(), key::kPOP3Password);
    _defaults.setString(std::to_string(pop3ClientVersion()), key::kPOP3ClientVersion);
}

// ---- By key

std::optional<PropertyList> Defaults::objectForKey(std::string_view key) const {
    return _defaults.objectForKey(key);
}
std::optional<PropertyList> Defaults::dictionaryForKey(std::string_view key) const {
    return _defaults.dictionaryForKey(key);
}
std::string Defaults::stringForKey(std::string_view key) const {
    return _defaults.stringForKey(key).value_or("");
}
void Defaults::setObject(const PropertyList& value, std::string_view forKey) {
    _defaults.setObject(value, forKey);
}

}  // namespace lorvale

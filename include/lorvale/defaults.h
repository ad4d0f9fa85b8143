#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/platform/user_defaults.h"

namespace lorvale {

enum class SendFormat : int { plain = 0, MIME = 1 };

/// The one place where mail settings are read: the user defaults, with the library's own values behind them,
/// and the send size limit from the Tessera directory.  An empty text counts as an absent value.  Settings
/// belong to the main thread as a rule, but any thread may read and write them.
class LORVALE_EXPORT Defaults {
public:
    using HeaderNames = std::set<std::string, std::less<>>;

    /// Over UserDefaults::standard().  The first call appends the domain "Lorvale" to the search list,
    /// registers the values of the resource "Lorvale.defaults" and asks whether the host has windows.
    static Defaults& sharedInstance();
    /// Over other user defaults (borrowed), in the same way.
    explicit Defaults(UserDefaults& defaults);
    ~Defaults();
    Defaults(const Defaults&) = delete;
    Defaults& operator=(const Defaults&) = delete;

    /// The headers that no reader wants to see, in lower case.
    static const HeaderNames& defaultFilterHeaders();
    /// Those and the names in mailFilter().  Made on first use and then kept, so that what is shown does not
    /// change in the middle of a session.
    const HeaderNames& filterHeaders() const;

    /// "MailFilter": names of headers, as an array or as one text with ":" between them.
    std::vector<std::string> mailFilter() const;
    void setMailFilter(std::span<const std::string> names);

    /// "SendFormat": "Plain" or "MIME" in any case; any other value means MIME unless "NonTarn" is on.
    SendFormat sendFormat() const;
    void setSendFormat(SendFormat format);

    /// "SendSizeLimit", in the unit of the delivery that asks; 500 when nobody has set one.
    std::int32_t sendSizeLimit() const;
    /// A negative limit takes the setting away and asks the Tessera directory, on a thread.
    void setSendSizeLimit(std::int32_t limit);
    /// Asks the directory now.  Its answer is taken only while no limit is known.
    void getTesseraSendSizeLimit();

    /// "SpoolDir", standardised; nullopt without one.
    std::optional<std::string> spoolDirectory() const;
    void setSpoolDirectory(std::optional<std::string_view> path);
    /// "MailDir", standardised; "~/Mailboxes".
    std::string defaultMailDirectory() const;
    void setDefaultMailDirectory(std::optional<std::string_view> path);
    /// "ArchiveMailboxName"; "Outgoing.mbox".  Setting adds the extension where it is missing.
    std::string archiveMailboxName() const;
    void setArchiveMailboxName(std::optional<std::string_view> name);
    /// "LocalLibDir", standardised; "/Network/Library" under rootDirectory().
    std::string localLibraryDirectory() const;
    void setLocalLibraryDirectory(std::optional<std::string_view> path);
    /// "SMTPHost"; "mailhost".
    std::string SMTPHost() const;
    void setSMTPHost(std::optional<std::string_view> host);
    /// "DeliveryMethod"; "sendmail".
    std::string deliveryMethod() const;
    void setDeliveryMethod(std::optional<std::string_view> method);
    /// "Mailer"; "/usr/sbin/sendmail", which setting does not store.
    std::string sendmailMailer() const;
    void setSendmailMailer(std::optional<std::string_view> path);
    /// "POP3SpoolDirectory", standardised; ".popspool" in defaultMailDirectory().
    std::string popSpoolDirectory() const;

    /// "POP3Password", stored as base64, which keeps it from the eye and from nothing else.  A plain one, as
    /// old versions stored it, is stored anew when it is read.  Empty without one.
    std::string popPassword();
    void setPopPassword(std::string_view password);
    /// The form in which passwords are stored: 1.
    int pop3ClientVersion() const { return 1; }

    /// "Alternates": other addresses of the user.
    std::string alternateAddressesForSelf() const;

    /// Whether panels may be shown.  True at first when the host has set a user interface.
    bool canUseWindowKit() const { return _canUseWindowKit; }
    void setCanUseWindowKit(bool can) { _canUseWindowKit = can; }

    // Any other setting, by key.
    std::int64_t integerForKey(std::string_view key) const { return _defaults.integerForKey(key); }
    bool boolForKey(std::string_view key) const { return _defaults.boolForKey(key); }
    std::optional<PropertyList> objectForKey(std::string_view key) const;
    std::optional<PropertyList> dictionaryForKey(std::string_view key) const;
    std::string stringForKey(std::string_view key) const;  ///< empty in place of null
    void setObject(const PropertyList& value, std::string_view forKey);
    [[nodiscard]] bool synchronize() { return _defaults.synchronize(); }

    /// The Tessera directory is a service of the host: the first value of a property of a named directory,
    /// found by walking the domain hierarchy upwards from the local domain; nullopt when no domain has it.
    /// Called by one thread at a time.  Without a service nothing is found.
    using TesseraLookup =
        std::function<std::optional<std::string>(std::string_view directory, std::string_view property)>;
    static void setTesseraLookup(TesseraLookup lookup);
    /// The directory's own library is not re-entrant: who else uses it in this process does so between these.
    static void lockTessera();
    static void unlockTessera();

private:
    class LimitLookup;

    /// The text of a key; nullopt for an absent or an empty one.
    std::optional<std::string> textForKey(std::string_view key) const;
    /// Stores a text; an absent or empty one takes the key away.
    void setText(std::optional<std::string_view> text, std::string_view forKey);

    UserDefaults& _defaults;
    std::atomic<bool> _canUseWindowKit;
    std::atomic<std::int32_t> _sendSizeLimit{-1};  // negative: not known yet
    struct FilterHeaders;
    const std::unique_ptr<FilterHeaders> _filterHeaders;
    const std::unique_ptr<LimitLookup> _lookup;  // last: its thread is joined before the rest goes
};

}  // namespace lorvale

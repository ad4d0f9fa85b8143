#pragma once
#include <string_view>

/// The keys of an account's settings, and of the registry.

namespace lorvale {

inline constexpr std::string_view kAccountNameKey = "AccountName";
inline constexpr std::string_view kHostnameKey = "Hostname";
inline constexpr std::string_view kUsernameKey = "Username";
inline constexpr std::string_view kPasswordKey = "Password";
inline constexpr std::string_view kSessionPasswordKey = "MailAccountPreviouslyEnteredPassword";  // never saved
inline constexpr std::string_view kAutoFetchKey = "AutoFetch";
inline constexpr std::string_view kSecurityKey = "ConnectionSecurity";
inline constexpr std::string_view kPortKey = "Port";
inline constexpr std::string_view kIncomingSpoolKey = "IncomingSpoolDirectory";

inline constexpr std::string_view kHideProgressPanelKey = "HideProgressPanel";
inline constexpr std::string_view kDeleteOnServerKey = "DeleteMessagesOnServer";
inline constexpr std::string_view kFetchAllKey = "AlwaysFetchAllMessages";
inline constexpr std::string_view kCompactWhenClosingKey = "CompactWhenClosingMailboxes";
inline constexpr std::string_view kCachePolicyKey = "CachePolicy";
inline constexpr std::string_view kInboxName = "INBOX";
inline constexpr std::string_view kAuthoritiesKey = "CertificateAuthorities";

inline constexpr std::string_view kMailAccountsDefault = "MailAccounts";
/// What once stood under kMailAccountsDefault, or in it, and was no account.
inline constexpr std::string_view kDamagedAccountsDefault = "MailAccountsSetAside";
inline constexpr std::string_view kAccountPathKey = "AccountPath";
inline constexpr std::string_view kAccountTypeKey = "AccountType";

}  // namespace lorvale

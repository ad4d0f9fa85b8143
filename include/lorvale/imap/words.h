#pragma once
#include <string_view>

/// The words of the protocol (RFC 2060, RFC 3501), and the keys of the dictionaries made of a server's answers.

namespace lorvale {

inline constexpr std::string_view IMAPResponseMessages = "MESSAGES";
inline constexpr std::string_view IMAPResponseUIDNext = "UIDNEXT";
inline constexpr std::string_view IMAPResponseFlags = "FLAGS";
inline constexpr std::string_view IMAPResponseExist = "EXISTS";
inline constexpr std::string_view IMAPResponseRecent = "RECENT";
inline constexpr std::string_view IMAPResponseExpunge = "EXPUNGE";
inline constexpr std::string_view IMAPResponseUIDValidity = "UIDVALIDITY";
inline constexpr std::string_view IMAPResponsePermanentFlags = "PERMANENTFLAGS";
inline constexpr std::string_view IMAPResponseUnseen = "UNSEEN";
inline constexpr std::string_view IMAPResponseReadOnly = "READ-ONLY";
inline constexpr std::string_view IMAPResponseReadWrite = "READ-WRITE";

inline constexpr std::string_view IMAPFlagAnswered = "\\Answered";
inline constexpr std::string_view IMAPFlagFlagged = "\\Flagged";
inline constexpr std::string_view IMAPFlagRecent = "\\Recent";
inline constexpr std::string_view IMAPFlagDeleted = "\\Deleted";
inline constexpr std::string_view IMAPFlagSeen = "\\Seen";
inline constexpr std::string_view IMAPFlagDraft = "\\Draft";

inline constexpr std::string_view IMAPMailboxChildren = "IMAPMailboxChildren";
inline constexpr std::string_view IMAPMailboxAttributes = "IMAPMailboxAttributes";
inline constexpr std::string_view IMAPMailboxAttributeNoInferiors = "\\noinferiors";
inline constexpr std::string_view IMAPMailboxAttributeNoSelect = "\\noselect";
inline constexpr std::string_view IMAPMailboxAttributeMarked = "\\marked";
inline constexpr std::string_view IMAPMailboxAttributeUnmarked = "\\unmarked";

inline constexpr std::string_view IMAPDataRFC822Header = "RFC822.HEADER";
inline constexpr std::string_view IMAPDataFlags = "FLAGS";
inline constexpr std::string_view IMAPDataEnvelope = "ENVELOPE";
inline constexpr std::string_view IMAPDataBody = "BODY";
inline constexpr std::string_view IMAPDataPeek = ".PEEK";
inline constexpr std::string_view IMAPDataFields = ".FIELDS";
inline constexpr std::string_view IMAPDataSectionHeader = "HEADER";
inline constexpr std::string_view IMAPDataSectionText = "TEXT";
inline constexpr std::string_view IMAPDataRFC822 = "RFC822";
inline constexpr std::string_view IMAPDataRFC822Size = "RFC822.SIZE";
inline constexpr std::string_view IMAPDataUID = "UID";
inline constexpr std::string_view IMAPDataHeaderFieldDate = "DATE";
inline constexpr std::string_view IMAPDataHeaderFieldSubject = "SUBJECT";
inline constexpr std::string_view IMAPDataHeaderFieldFrom = "FROM";

inline constexpr std::string_view IMAPSearchKeyDeleted = "DELETED";
inline constexpr std::string_view IMAPSearchKeyUndeleted = "UNDELETED";
inline constexpr std::string_view IMAPSearchKeySeen = "SEEN";
inline constexpr std::string_view IMAPSearchKeyUnseen = "UNSEEN";

}  // namespace lorvale

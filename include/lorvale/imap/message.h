#pragma once
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "lorvale/export.h"
#include "lorvale/imap/value.h"
#include "lorvale/message.h"
#include "lorvale/message/headers.h"

namespace lorvale {

/// A message of an IMAPStore: what the server told of it for a listing.  Any thread, as Message.
class LORVALE_EXPORT IMAPMessage : public Message {
public:
    /// Without flags, which a later look at the server brings, it counts as read.
    [[nodiscard]] static std::shared_ptr<IMAPMessage> messageWithCachedHeaders(
        const CachedHeaders& headers, const std::optional<IMAPValue>& flags, std::uint32_t size);
    IMAPMessage(CachedHeaders headers, std::uint32_t size) : _listed(std::move(headers)), _size(size) {}

    /// Sender, subject and date as the server told them for the list, whatever becomes of headers().
    const CachedHeaders& listedHeaders() const { return _listed; }

    /// Read, deleted and replied-to, by the server's flags for these; the others stay.
    void setIMAPFlags(const IMAPValue& flags);
    /// As the server reported it, in bytes.
    std::uint32_t messageSize() const override { return _size; }

    /// The server's number for the message, as long as the mailbox keeps its UIDVALIDITY.  Set once, before the
    /// message is listed.
    const std::string& uid() const { return _uid; }
    void setUID(std::string uid) { _uid = std::move(uid); }

    /// Bits that are kept in the archive and mean nothing here.
    std::uint32_t reservedFlags() const { return _imapFlags; }
    void setReservedFlags(std::uint32_t flags) { _imapFlags = flags; }

private:
    const CachedHeaders _listed;
    const std::uint32_t _size;
    std::atomic<std::uint32_t> _imapFlags = 0;
    std::string _uid;
};

}  // namespace lorvale

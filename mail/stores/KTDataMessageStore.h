#pragma once
#include <memory>
#include <optional>
#include <string>

#include "lorvale/export.h"
#include "lorvale/store/message_store.h"
#include "lorvale/values/data.h"

namespace lorvale {

/// The smallest possible store: one message in a data buffer.  It has no path, no lists and no lock, and is
/// made directly, without any opening.
class LORVALE_EXPORT KTDataMessageStore : public MessageStore {
public:
    explicit KTDataMessageStore(Data data) : _data(std::move(data)) {}
    ~KTDataMessageStore() override;
    static std::shared_ptr<KTDataMessageStore> initWithData(Data data);

    /// The default attachment directory, so that a body can lay out its attachments there.
    std::string storePath() const override;
    std::string className() const override;
    /// A message in memory counts as read, and what becomes of its flags is nobody's business.
    std::shared_ptr<MessageFlags> flagsForMessage(Message& message) override;
    using MessageStore::setFlags;
    void setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                  const MessageList& forMessages) override;
    /// Under the names as the message spells them.
    CachedHeaders cachedHeadersForMessage(Message& message) override;
    bool readsCachedHeaders() const override { return true; }
    /// Both are nullopt, after a log line, when the bytes hold no empty line.
    std::optional<Data> allHeadersForMessage(Message& message) override;
    std::optional<Data> bodyForMessage(Message& message) override;

private:
    /// The length of the header block with the empty line that ends it.
    std::optional<std::size_t> headerLength() const;

    const Data _data;
};

}  // namespace lorvale

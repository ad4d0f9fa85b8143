#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace lorvale {

class MailAccount;
class MessageStore;

/// A class of stores, as the registry knows it.
struct StoreClass {
    std::string name;
    /// How willing it is to open the path; 0 means no.
    std::function<float(const std::string& path)> willingness;
    /// Opens a store; null when that fails.
    std::function<std::shared_ptr<MessageStore>(const std::string& path, bool create, bool readOnly,
                                                const std::shared_ptr<MailAccount>& account)>
        initWithPath;
    /// The extension of its mailboxes' names; may be empty for a class whose mailboxes have none.
    std::function<std::optional<std::string>()> storeFileExtension = {};
};

}  // namespace lorvale

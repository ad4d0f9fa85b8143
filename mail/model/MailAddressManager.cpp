#include "lorvale/message/address_manager.h"

#include <utility>

#include "lorvale/platform/mutex.h"

namespace lorvale {

namespace {

struct Registration {
    Mutex mutex;
    MailAddressManager::Maker make LORVALE_GUARDED_BY(mutex);
    std::shared_ptr<MailAddressManager> instance LORVALE_GUARDED_BY(mutex);
    unsigned generation LORVALE_GUARDED_BY(mutex) = 0;  // counts registrations
};

Registration& registration() {
    static Registration registration;
    return registration;
}

}  // namespace

void MailAddressManager::registerAddressManagerClass(Maker make) {
    auto& current = registration();
    std::shared_ptr<MailAddressManager> old;  // goes after the lock: its end is the application's code
    const MutexLock lock(current.mutex);
    current.make.swap(make);
    old = std::exchange(current.instance, nullptr);
    ++current.generation;
}

std::shared_ptr<MailAddressManager> MailAddressManager::addressManager() {
    auto& current = registration();
    Maker make;
    unsigned generation = 0;
    {
        const MutexLock lock(current.mutex);
        if (current.instance || !current.make) return current.instance;
        make = current.make;
        generation = current.generation;
    }
    // Made without the lock, since the application's class may ask for the manager.  Of two threads that come
    // at the same time one makes an instance in vain.
    auto made = make();
    const MutexLock lock(current.mutex);
    if (!current.instance && current.generation == generation) current.instance = std::move(made);
    return current.instance;
}

MailAddressManager::~MailAddressManager() = default;

void MailAddressManager::showAddressManagerPanel() {}

std::optional<std::string> MailAddressManager::nextCompletionForPartialAddress(std::string_view /*partial*/) {
    return std::nullopt;
}

std::size_t MailAddressManager::numberOfCompletionsForPartialAddress(std::string_view /*partial*/) {
    return 0;
}

std::vector<std::string> MailAddressManager::allCompletionsForPartialAddress(std::string_view /*partial*/) {
    return {};
}

std::optional<Data> MailAddressManager::imageForMailAddress(std::string_view /*address*/) {
    return std::nullopt;
}

std::optional<std::string> MailAddressManager::expandPrivateAlias(std::string_view /*alias*/) {
    return std::nullopt;
}

std::optional<std::vector<std::string>> MailAddressManager::expandPrivateAliases(
    const std::vector<std::string>& /*aliases*/) {
    return std::nullopt;
}

std::optional<std::string> MailAddressManager::expandUserAlias(std::string_view /*user*/) {
    return std::nullopt;
}

}  // namespace lorvale

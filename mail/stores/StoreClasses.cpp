/// The choice of a store class for a path, and the stores that are known from the start.
#include <chrono>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/store.h"
#include "lorvale/values/format.h"
#include "mail/model/DataStoreHook.h"
#include "mail/model/RegisteredClass.h"
#include "mail/stores/KTDataMessageStore.h"
#include "mail/stores/OpenStores.h"

namespace lorvale {

namespace {

WillingnessRegistry<StoreClass>& storeClasses() {
    static auto& registry = *new WillingnessRegistry<StoreClass>;  // never destroyed, like the stores' table
    return registry;
}

struct DefaultClass {
    Mutex mutex;
    std::optional<StoreClass> storeClass LORVALE_GUARDED_BY(mutex);
};
DefaultClass& defaultClass() {
    static auto& holder = *new DefaultClass;
    return holder;
}

const RegisteredClass kTarnMbox(ClassRank::preferred, [] {
    storeClasses().registerClass(TarnMbox::storeClass());
    auto& holder = defaultClass();
    const MutexLock lock(holder.mutex);
    holder.storeClass = TarnMbox::storeClass();
});
const RegisteredClass kBerkeleyMbox(ClassRank::alternative,
                                    [] { storeClasses().registerClass(BerkeleyMbox::storeClass()); });
const RegisteredClass kDataStore(ClassRank::withoutOrder, [] {
    setDataStoreMaker([](const Data& data) -> std::shared_ptr<MessageSource> {
        return KTDataMessageStore::initWithData(data);
    });
});

}  // namespace

bool MessageStore::registerStoreClass(StoreClass storeClass) {
    Message::initialize();
    return storeClasses().registerClass(std::move(storeClass));
}

void MessageStore::unregisterStoreClass(std::string_view name) {
    Message::initialize();
    storeClasses().unregisterClass(name);
}

void MessageStore::registerDefaultStoreClass(StoreClass storeClass) {
    Message::initialize();
    auto& holder = defaultClass();
    const MutexLock lock(holder.mutex);
    holder.storeClass = std::move(storeClass);
}

std::optional<StoreClass> MessageStore::defaultStoreClass() {
    Message::initialize();
    auto& holder = defaultClass();
    const MutexLock lock(holder.mutex);
    return holder.storeClass;
}

std::optional<StoreClass> MessageStore::storeClassForPath(std::string_view path) {
    Message::initialize();
    return path.empty() ? std::nullopt : storeClasses().mostWilling(std::string(path));
}

float MessageStore::willingnessToOpen(std::string_view) {
    return 0;
}

std::shared_ptr<MessageStore> MessageStore::storeForPath(std::string_view path, bool create, bool readOnly) {
    noteOpening({});
    const OpenStores::Turn turn(OpenStores::table(), _standarizedStorePath(path));
    if (auto open = currentlyOpenStoreForPath(path)) return open;
    const std::string place(path);
    auto chosen = storeClassForPath(place);
    if (!chosen && create && !place.empty()) chosen = defaultStoreClass();
    if (!chosen) {
        noteOpening(place.empty()
                        ? OpeningFailure{OpeningFailure::Reason::emptyPath, "a mailbox needs a path"}
                        : OpeningFailure{OpeningFailure::Reason::noClass,
                                         formatText("%@ is nothing that can be opened as a mailbox", place)});
        return nullptr;
    }
    const auto start = std::chrono::steady_clock::now();
    auto store = chosen->initWithPath(place, create, readOnly, nullptr);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    debugLog("opening: %@ took %f seconds.", place, taken.count());
    if (!store && !openingFailure()) {
        noteOpening({OpeningFailure::Reason::other, formatText("The mailbox %@ could not be opened", place)});
    }
    registerOpenStore(store);
    return store;
}

std::shared_ptr<MessageStore> MessageStore::currentlyOpenStoreForPath(std::string_view path) {
    return path.empty() ? nullptr : OpenStores::table().storeAt(_standarizedStorePath(path));
}

void MessageStore::registerOpenStore(const std::shared_ptr<MessageStore>& store) {
    if (!store || store->_standardPath.empty()) return;
    auto& table = OpenStores::table();
    table.add(store->_standardPath, store);
    // One that closes at this moment, or was closed before, may have been too early to take itself out.
    if (store->isClosed()) table.remove(store->_standardPath, *store);
}

}  // namespace lorvale

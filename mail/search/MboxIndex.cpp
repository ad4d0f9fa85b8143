#include "mail/search/MboxIndex.h"

#include <exception>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/thread.h"
#include "lorvale/search/index_manager.h"
#include "lorvale/store/message_store.h"
#include "mail/search/IndexedText.h"
#include "mail/search/MboxDoc.h"
#include "mail/search/ToolkitHooks.h"

namespace lorvale {

namespace {

using SharedLock = RecursiveMutexLock;

/// What waits may take some 16 MB: a large batch costs less for each message, and far less than the pages of a
/// large index that it keeps from being read again.
constexpr std::uint32_t kBytesForUpdate = 16'000'000;
/// So many documents wait at the most, so that the list of their IDs stays small beside their postings.
constexpr std::size_t kMostWaiting = 5'000;
/// The file is made small again when a part of it this large has become free.
constexpr std::uint32_t kFreePartOfFile = 8;

MboxIndex::StorageMaker& storageMaker() {
    static auto& maker = *new MboxIndex::StorageMaker(
        [](const std::string& path) { return brindle::MakeFileStorage(path.c_str()); });
    return maker;
}

}  // namespace

MboxIndex::StorageMaker MboxIndex::setStorageMaker(StorageMaker make) {
    return std::exchange(storageMaker(), std::move(make));
}

Mutex& MboxIndex::bigIndexingLock() {
    static auto& lock = *new Mutex;  // threads may outlive the end of main
    return lock;
}

MboxIndex::MboxIndex(const std::shared_ptr<MessageStore>& store, std::string path, Access access)
    : _store(store), _access(access), _file(std::move(path)) {}

std::shared_ptr<MboxIndex> MboxIndex::initWithStore(const std::shared_ptr<MessageStore>& store, Access access) {
    installToolkitHooks();
    const std::shared_ptr<MboxIndex> index(new MboxIndex(store, MboxIndexFile::pathInStore(*store), access));
    const bool exists = index->_file.exists();
    if (!exists && access == Access::read) return nullptr;
    const auto giveUp = [&] {
        index->close();
        if (access == Access::write) {
            IndexManager::indexManager().unregisterIndexedStore(*store);
            index->_file.remove();
        }
    };
    try {
        const SharedLock lock(MboxMutex::shared());
        index->open(exists);
        return index;
    } catch (const brindle::IAException& exception) {
        logBrindleException(exception);
        log("Removing index...");
        giveUp();
    } catch (const std::exception& exception) {
        const auto* const named = dynamic_cast<const NamedException*>(&exception);
        log("Caught an ZEST exception");
        log("    Reason: %@", named != nullptr ? named->reason() : exception.what());
        log("Removing index for mailbox: %@", store->storePath());
        giveUp();
    }
    return nullptr;
}

void MboxIndex::open(bool exists) {
    const BrindleExceptionBridge bridge;
    const auto store = _store.lock();
    _file.remember();  // before the first byte is read: who writes later is then noticed
    auto storage = storageMaker()(_file.path());
    if (exists)
        storage->Open(isWritable());
    else
        storage->Initialize();
    const IndexAnalysis* analysis = &chosenIndexAnalysis();
    if (!isWritable()) {
        // Who cannot make it anew takes it with the analysis that it has.
        brindle::IAIndexTypes types;
        brindle::IAReadIndexTypes(storage.get(), storage->TOC_Get(brindle::IADefaultIndexName), &types);
        if (const auto* const its = indexAnalysisWithTag(types.analysisType)) analysis = its;
    }
    auto corpus = std::make_unique<MboxCorpus>(store, analysis->form);
    auto* const itsCorpus = corpus.get();
    auto made = std::make_unique<brindle::InvertedIndex>(storage.get(), std::move(corpus), analysis->make());
    made->SetBytesForUpdate(kBytesForUpdate);
    if (exists) {
        made->Open();
    } else {
        made->Initialize();
        storage->Commit();  // or who closes it before the first message is in leaves a file that is no index
    }
    _mboxStorage = std::move(storage);
    _mboxIndex = std::move(made);
    _mboxCorpus = itsCorpus;
}

MboxIndex::~MboxIndex() {
    close();
}

void MboxIndex::close() {
    const SharedLock lock(MboxMutex::shared());
    drop();
}

void MboxIndex::drop() {
    ++_generation;
    _waiting.clear();
    _mboxAccessor.reset();
    _mboxCorpus = nullptr;
    _mboxIndex.reset();
    _mboxStorage.reset();
}

void MboxIndex::changed() {
    ++_generation;
    _isSaved = false;
    _mboxAccessor.reset();
}

void MboxIndex::flushWaiting() {
    if (_waiting.empty()) return;
    _mboxIndex->Flush();
    _waiting.clear();
    changed();
}

bool MboxIndex::isIndexed(const brindle::IADoc& doc) {
    const auto& id = static_cast<const MboxDoc&>(doc).messageID();
    return (id && _waiting.contains(*id)) || _mboxIndex->IsDocIndexed(&doc);
}

/// For work on which the index itself takes the lock, step by step, so that searches go on.
brindle::InvertedIndex* MboxIndex::indexToChange() {
    const SharedLock lock(MboxMutex::shared());
    return _mboxIndex.get();
}

void MboxIndex::update() {
    auto* const index = indexToChange();
    if (index == nullptr) return;
    {
        const SharedLock lock(MboxMutex::shared());
        const auto store = _store.lock();
        if (store != nullptr && store != _mboxCorpus->store()) _mboxCorpus->setStore(store);
    }
    index->Update();
    flushToDisk();
}

void MboxIndex::flushToDisk() {
    const SharedLock lock(MboxMutex::shared());
    if (!isOpen() || !isWritable() || _isSaved) return;
    // The first of these two commits by itself.  What nobody has deleted need not be looked for in every list.
    if (_mboxIndex->GetDeletedDocCount() > 0) {
        _mboxIndex->Compact();
    } else {
        _mboxIndex->Flush();
        _mboxStorage->Commit();
    }
    if (_mboxStorage->FreeSpace() > _mboxStorage->TotalSpace() / kFreePartOfFile) {
        _mboxStorage->Compact();
        _mboxStorage->Commit();
    }
    _waiting.clear();
    changed();
    _isSaved = true;
}

bool MboxIndex::isSaved() {
    const SharedLock lock(MboxMutex::shared());
    return isOpen() && _isSaved;
}

IndexedForm MboxIndex::form() {
    const SharedLock lock(MboxMutex::shared());
    return isOpen() ? _mboxCorpus->form() : IndexedForm::cString;
}

MboxIndex::Added MboxIndex::addMessage(const std::shared_ptr<Message>& message,
                                       const std::function<std::optional<std::string>()>& text) {
    auto doc = std::make_unique<MboxDoc>(message);
    const auto id = *doc->messageID();
    {
        const SharedLock lock(MboxMutex::shared());
        if (!isOpen() || isIndexed(*doc)) return Added::before;
    }
    auto indexed = text();
    if (!indexed) return Added::unreadable;
    doc->setText(std::move(*indexed));
    try {
        indexToChange()->AddDoc(std::move(doc));
    } catch (const brindle::IAException& exception) {
        if (exception.GetCode() != brindle::OrderedStorableSetEntryTooBig) throw;
        log("The message \"%@...\" cannot be indexed: its ID is too long", id.substr(0, 60));
        return Added::unreadable;
    }
    const SharedLock lock(MboxMutex::shared());
    _waiting.insert(id);
    changed();
    if (_waiting.size() >= kMostWaiting) flushWaiting();
    return Added::now;
}

bool MboxIndex::removeMessage(Message& message) {
    const MboxDoc doc(message.messageID());
    const SharedLock lock(MboxMutex::shared());
    if (!isOpen() || !isIndexed(doc)) return false;
    flushWaiting();
    _mboxIndex->DeleteDoc(&doc);  // seen at once; flushToDisk() makes it last
    changed();
    return true;
}

bool MboxIndex::hasMessage(Message& message) {
    const MboxDoc doc(message.messageID());
    const SharedLock lock(MboxMutex::shared());
    return isOpen() && isIndexed(doc);
}

std::uint32_t MboxIndex::count() {
    const SharedLock lock(MboxMutex::shared());
    if (!isOpen()) return 0;
    flushWaiting();
    return _mboxIndex->GetDocCount();
}

brindle::InvertedIndex* MboxIndex::_invertedIndex() {
    if (isOpen() && isOutdated()) {
        drop();
        if (!runLoggingExceptions("Reading an index again",
                                  [this]() LORVALE_REQUIRES(MboxMutex::shared()) { open(true); }))
            drop();
    }
    if (!isOpen() || _isDamaged) return nullptr;
    flushWaiting();
    return _mboxIndex.get();
}

brindle::InvertedAccessor& MboxIndex::accessor() {
    flushWaiting();
    if (_mboxAccessor == nullptr) {
        auto made = std::make_unique<brindle::InvertedAccessor>(_mboxIndex.get(), kAccessorType);
        made->InitializeAnew();
        _mboxAccessor = std::move(made);
    }
    return *_mboxAccessor;
}

}  // namespace lorvale

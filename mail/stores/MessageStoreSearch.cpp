/// What a store answers about its search index: all of it the index knows, and without one there is nothing.
#include "lorvale/store/mailbox_index.h"
#include "lorvale/store/message_store.h"

namespace lorvale {

bool MessageStore::canBeIndexed() const {
    return true;
}

bool MessageStore::mayWriteIndex() const {
    return !isReadOnly();
}

bool MessageStore::isIndexed() const {
    return _index && _index->isIndexed();
}

void MessageStore::setIsIndexed(bool indexed) {
    if (_index) _index->setIsIndexed(indexed);
}

void MessageStore::updateIndex() {
    if (_index) _index->updateIndex();
}

void MessageStore::updateIndexInBackground() {
    if (_index) _index->updateIndexInBackground();
}

void MessageStore::stopUpdatingIndex() {
    if (_index) _index->stopUpdatingIndex();
}

bool MessageStore::isUpdatingIndex() const {
    return _index && _index->isUpdatingIndex();
}

void MessageStore::stopBackgroundActivity() {
    if (_index) _index->stopBackgroundActivity();
}

void MessageStore::addMessagesToIndex(const MessageList& messages) {
    if (_index) _index->addMessagesToIndex(messages);
}

void MessageStore::removeMessagesFromIndex(const MessageList& messages) {
    if (_index) _index->removeMessagesFromIndex(messages);
}

}  // namespace lorvale

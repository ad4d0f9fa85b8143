#pragma once
#include <memory>

#include "lorvale/values/data.h"

namespace lorvale {

class MessageStore;

/// Makes the store of Message::messageWithData(): one that holds a single message in a data buffer.  Stores are
/// a higher folder, so theirs plugs itself in, from NamedClass("KTDataMessageStore", ...), which is touched at
/// the first use of messages.
using DataStoreMaker = std::shared_ptr<MessageStore> (*)(const Data& data);
void setDataStoreMaker(DataStoreMaker make);
DataStoreMaker dataStoreMaker();

}  // namespace lorvale

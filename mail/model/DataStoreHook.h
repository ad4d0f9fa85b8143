#pragma once
#include <memory>

#include "lorvale/values/data.h"

namespace lorvale {

class MessageSource;

/// Makes the source of Message::messageWithData(): one that holds a single message in a data buffer.  It is a
/// store, so of a higher folder, and plugs itself in when classes are touched (RegisteredClass.h).
using DataStoreMaker = std::shared_ptr<MessageSource> (*)(const Data& data);
void setDataStoreMaker(DataStoreMaker make);
DataStoreMaker dataStoreMaker();

}  // namespace lorvale

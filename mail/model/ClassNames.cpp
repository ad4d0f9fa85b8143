#include "mail/model/ClassNames.h"

#include <atomic>

#include "mail/model/DataStoreHook.h"

namespace lorvale {

namespace {

// Both are there before any initialiser of another source runs.
constinit std::atomic<const NamedClass*> firstClass = nullptr;
constinit std::atomic<DataStoreMaker> currentDataStoreMaker = nullptr;

}  // namespace

NamedClass::NamedClass(std::string_view name, void (*touch)())
    : _name(name), _touch(touch), _next(firstClass.load()) {
    while (!firstClass.compare_exchange_weak(_next, this)) {
    }
}

bool NamedClass::touchClassNamed(std::string_view name) {
    for (const NamedClass* each = firstClass.load(); each != nullptr; each = each->_next) {
        if (each->_name != name) continue;
        each->_touch();
        return true;
    }
    return false;
}

void setDataStoreMaker(DataStoreMaker make) {
    currentDataStoreMaker = make;
}

DataStoreMaker dataStoreMaker() {
    return currentDataStoreMaker;
}

}  // namespace lorvale

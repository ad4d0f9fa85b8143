#include "mail/model/RegisteredClass.h"

#include <algorithm>
#include <atomic>
#include <vector>

#include "mail/model/DataStoreHook.h"

namespace lorvale {

namespace {

// Both are there before any initialiser of another source runs.
constinit std::atomic<const RegisteredClass*> firstClass = nullptr;
constinit std::atomic<DataStoreMaker> currentDataStoreMaker = nullptr;

}  // namespace

RegisteredClass::RegisteredClass(ClassRank rank, void (*touch)())
    : _rank(rank), _touch(touch), _next(firstClass.load()) {
    while (!firstClass.compare_exchange_weak(_next, this)) {
    }
}

void RegisteredClass::touchAll() {
    std::vector<const RegisteredClass*> classes;
    for (const auto* each = firstClass.load(); each != nullptr; each = each->_next) classes.push_back(each);
    std::ranges::stable_sort(classes, {}, [](const RegisteredClass* each) { return each->_rank; });
    for (const auto* each : classes) each->_touch();
}

void setDataStoreMaker(DataStoreMaker make) {
    currentDataStoreMaker = make;
}

DataStoreMaker dataStoreMaker() {
    return currentDataStoreMaker;
}

}  // namespace lorvale

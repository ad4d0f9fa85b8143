#pragma once
#include <cstddef>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/memory.h"

namespace brindle {

/// The root of the toolkit's classes: a virtual destructor, and memory from IAMalloc.
class LORVALE_EXPORT IAStruct {
public:
    IAStruct() = default;
    IAStruct(const IAStruct&) = default;
    IAStruct& operator=(const IAStruct&) = default;
    virtual ~IAStruct();

    static void* operator new(std::size_t size) { return IAMalloc(size); }
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* object) noexcept { IAFree(object); }
    static void operator delete(void*, void*) noexcept {}
};

/// The common base of the polymorphic objects.
class LORVALE_EXPORT IAObject : public IAStruct {
public:
    ~IAObject() override;
};

/// Scope guards for raw resources.  They act at the end of their scope on every way out of it.
class LORVALE_EXPORT IADeleteOnUnwind {
public:
    explicit IADeleteOnUnwind(IAObject* owned) : object(owned) {}
    IADeleteOnUnwind(const IADeleteOnUnwind&) = delete;
    IADeleteOnUnwind& operator=(const IADeleteOnUnwind&) = delete;
    ~IADeleteOnUnwind();

private:
    IAObject* const object;
};

/// For memory from IAMalloc.
class LORVALE_EXPORT IADeleteArrayOnUnwind {
public:
    explicit IADeleteArrayOnUnwind(void* owned) : array(owned) {}
    IADeleteArrayOnUnwind(const IADeleteArrayOnUnwind&) = delete;
    IADeleteArrayOnUnwind& operator=(const IADeleteArrayOnUnwind&) = delete;
    ~IADeleteArrayOnUnwind();

private:
    void* const array;
};

/// For an array of `count` pointers from IAMallocSized: deletes the members that are not null, then the array.
class LORVALE_EXPORT IADeletePointerArrayOnUnwind {
public:
    IADeletePointerArrayOnUnwind(IAObject** owned, std::size_t members) : array(owned), count(members) {}
    IADeletePointerArrayOnUnwind(const IADeletePointerArrayOnUnwind&) = delete;
    IADeletePointerArrayOnUnwind& operator=(const IADeletePointerArrayOnUnwind&) = delete;
    ~IADeletePointerArrayOnUnwind();

private:
    IAObject** const array;
    const std::size_t count;
};

}  // namespace brindle

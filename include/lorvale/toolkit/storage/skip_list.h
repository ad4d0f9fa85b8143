#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "lorvale/export.h"
#include "lorvale/toolkit/storage/memory.h"
#include "lorvale/toolkit/storage/object.h"

namespace brindle {

inline constexpr std::uint32_t SL_MaxHeight = 16;
inline constexpr std::uint32_t SL_HeightBits = 4;
inline constexpr std::uint32_t SL_RandomBits = 24;
inline constexpr std::uint32_t SL_RandomMax = 0xFFFFFF;
inline constexpr std::uint32_t SL_RandomSeed = 0xFFF84C;
inline constexpr std::uint32_t SL_RandomMultiplier = 221;
inline constexpr std::size_t BytesPerPointer = sizeof(void*);

/// Where the nodes of a SkipList come from by default.  Another source has the same two operations.
struct SkipListHeap {
    void* Allocate(std::size_t size) { return IAMallocSized(size); }
    void Free(void* node, std::size_t size) noexcept { IAFreeSized(node, size); }
};

/// The toolkit's ordered container in memory.
///
/// Records are small and trivially copyable; they are copied in and out, and what they point to is the
/// owner's business.  `Order` tells them apart: LessThan(record, key) and Equal(record, key), where a key is a
/// record or whatever else the order accepts.  Being a template argument it is inlined into the walk.
///
/// A node is the record followed by one pointer for each of its levels.  Its height is not stored: it is
/// found again when the node is unlinked.  Heights come from a generator of the list's own with a fixed seed,
/// so the same operations always give the same shape.
///
/// A finger is a place between two nodes: for each level the last node before it.  It stays good while the
/// list is only changed through it.  No locking.
template <class RecordType, class OrderType, class NodeSource = SkipListHeap>
class SkipList : public IAObject {
    static_assert(std::is_trivially_copyable_v<RecordType> && std::is_trivially_destructible_v<RecordType>);
    static_assert(alignof(RecordType) <= alignof(void*), "nodes are aligned for pointers");

public:
    using Record = RecordType;
    using Order = OrderType;
    struct Node {
        Record record;
    };
    using Finger = std::array<Node*, SL_MaxHeight>;

    explicit SkipList(Order recordOrder = Order(), NodeSource nodeSource = NodeSource())
        : order(std::move(recordOrder)), nodes(std::move(nodeSource)) {}
    SkipList(const SkipList&) = delete;
    SkipList& operator=(const SkipList&) = delete;
    ~SkipList() override { Clear(); }

    /// Overwrites an equal record, which is copied to `old` if given, and returns true; else inserts, false.
    bool Put(const Record& record, Record* old = nullptr) {
        Finger finger;
        Node* const found = SetFinger(record, finger);
        if (found != nullptr && order.Equal(found->record, record)) {
            if (old != nullptr) *old = found->record;
            found->record = record;
            return true;
        }
        Insert(record, finger);
        return false;
    }

    /// Copies the equal record out, if there is one.
    template <class Key>
    bool Get(const Key& key, Record* out) const {
        const Node* const found = Find(key);
        if (found == nullptr) return false;
        if (out != nullptr) *out = found->record;
        return true;
    }

    template <class Key>
    bool Remove(const Key& key, Record* out = nullptr) {
        Finger finger;
        Node* const found = SetFinger(key, finger);
        if (found == nullptr || !order.Equal(found->record, key)) return false;
        if (out != nullptr) *out = found->record;
        RemoveNode(found, finger);
        return true;
    }

    /// Takes the first record out; false if there is none.
    bool Pop(Record* out) {
        Node* const first = First();
        if (first == nullptr) return false;
        if (out != nullptr) *out = first->record;
        Finger finger;
        FingerStart(finger);
        RemoveNode(first, finger);
        return true;
    }

    bool Last(Record* out) const {
        const Node* const last = LastNode();
        if (last == nullptr) return false;
        if (out != nullptr) *out = last->record;
        return true;
    }

    std::uint32_t Count() const { return count; }

    /// Removes all records.
    void Clear() noexcept {
        // Unlinking from the front meets each node's levels at the head, so no walk is needed.
        while (Node* const first = First()) {
            Finger finger;
            FingerStart(finger);
            RemoveNode(first, finger);
        }
    }

    /// The nodes in order; null ends them.  A node's record may be changed as long as its order is not.
    Node* First() const { return headLevels[0]; }
    Node* Next(const Node* node) const { return NodeLevels(node)[0]; }
    Node* LastNode() const {
        Finger finger;
        FingerEnd(finger);
        return finger[0] == Head() ? nullptr : finger[0];
    }
    /// The node before `node`, which must be in the list; null before the first.
    Node* PreviousNode(const Node* node) const {
        Finger finger;
        SetFinger(node->record, finger);
        return finger[0] == Head() ? nullptr : finger[0];
    }
    /// The node with an equal record, or null.
    template <class Key>
    Node* Find(const Key& key) const {
        Node* const found = FindNotLess(key);
        return found != nullptr && order.Equal(found->record, key) ? found : nullptr;
    }
    /// The first node not less than the key, or null: SetFinger for those who need no finger.
    template <class Key>
    Node* FindNotLess(const Key& key) const {
        Node* const* levels = headLevels.data();
        Node* next = nullptr;
        for (std::uint32_t level = height; level-- > 0;)
            while ((next = levels[level]) != nullptr && order.LessThan(next->record, key))
                levels = NodeLevels(next);
        return next;
    }

    /// The pointers of a node, one for each of its levels; that of the lowest level comes first.
    static Node** NodeLevels(Node* node) {
        return reinterpret_cast<Node**>(reinterpret_cast<std::byte*>(node) + LevelsOffset);
    }
    static Node* const* NodeLevels(const Node* node) {
        return reinterpret_cast<Node* const*>(reinterpret_cast<const std::byte*>(node) + LevelsOffset);
    }

    /// Puts the finger before the first record not less than the key, and returns that record's node or null.
    template <class Key>
    Node* SetFinger(const Key& key, Finger& finger) const {
        Node* at = Head();
        Node* next = nullptr;
        for (std::uint32_t level = height; level-- > 0;) {
            while ((next = NodeLevels(at)[level]) != nullptr && order.LessThan(next->record, key)) at = next;
            finger[level] = at;
        }
        if (height == 0) finger[0] = at;
        return next;
    }
    /// Before the first record.
    void FingerStart(Finger& finger) const { finger.fill(Head()); }
    /// Behind the last record.
    void FingerEnd(Finger& finger) const {
        Node* at = Head();
        for (std::uint32_t level = height; level-- > 0;) {
            while (Node* const next = NodeLevels(at)[level]) at = next;
            finger[level] = at;
        }
        if (height == 0) finger[0] = at;
    }
    /// The node right behind the finger, or null.
    Node* FingeredNode(const Finger& finger) const { return NodeLevels(finger[0])[0]; }

    /// Inserts at the finger, which the caller has put in the right place, and moves the finger behind the
    /// new node: a run of inserts in order needs no search.
    Node* Insert(const Record& record, Finger& finger) {
        const std::uint32_t nodeHeight = RandomHeight();
        Node* const node = new (nodes.Allocate(NodeSize(nodeHeight))) Node{record};
        while (height < nodeHeight) finger[height++] = Head();
        for (std::uint32_t level = 0; level < nodeHeight; ++level) {
            Node** const before = NodeLevels(finger[level]) + level;
            new (NodeLevels(node) + level) Node*(*before);
            *before = node;
            finger[level] = node;
        }
        ++count;
        return node;
    }

    /// Unlinks and frees the node right behind the finger.
    void RemoveNode(Node* node, Finger& finger) noexcept {
        std::uint32_t level = 0;
        for (; level < height && NodeLevels(finger[level])[level] == node; ++level)
            NodeLevels(finger[level])[level] = NodeLevels(node)[level];
        nodes.Free(node, NodeSize(level));
        while (height > 0 && headLevels[height - 1] == nullptr) --height;
        --count;
    }

protected:
    Order order;
    NodeSource nodes;

private:
    static constexpr std::size_t LevelsOffset =
        (sizeof(Node) + alignof(Node*) - 1) / alignof(Node*) * alignof(Node*);
    static constexpr std::size_t NodeSize(std::size_t levels) {
        return LevelsOffset + levels * BytesPerPointer;
    }

    /// The head is a node without a record: only its pointers are ever reached through this address.
    Node* Head() const {
        return reinterpret_cast<Node*>(reinterpret_cast<std::uintptr_t>(headLevels.data()) - LevelsOffset);
    }

    bool TrueOneOfFour() {
        randomSeed = randomSeed * SL_RandomMultiplier & SL_RandomMax;
        return randomSeed >> (SL_RandomBits - 2) == 3;
    }
    std::uint32_t RandomHeight() {
        std::uint32_t result = 1;
        while (TrueOneOfFour()) ++result;
        return result < SL_MaxHeight ? result : SL_MaxHeight;
    }

    std::array<Node*, SL_MaxHeight> headLevels{};
    std::uint32_t height = 0;
    std::uint32_t count = 0;
    std::uint32_t randomSeed = SL_RandomSeed;
};

/// Ascending numbers.
struct UInt32Order {
    static bool LessThan(std::uint32_t a, std::uint32_t b) { return a < b; }
    static bool Equal(std::uint32_t a, std::uint32_t b) { return a == b; }
};

class LORVALE_EXPORT UInt32Set : public SkipList<std::uint32_t, UInt32Order> {
public:
    ~UInt32Set() override;
    /// True if it was there already.
    bool Put(std::uint32_t key) { return SkipList::Put(key); }
    bool Member(std::uint32_t key) const { return Find(key) != nullptr; }
    static std::uint32_t NodeKey(const Node* node) { return node->record; }
};

struct UInt32VoidRecord {
    std::uint32_t key;
    void* value;
};
struct UInt32VoidOrder {
    static bool LessThan(const UInt32VoidRecord& a, std::uint32_t b) { return a.key < b; }
    static bool LessThan(const UInt32VoidRecord& a, const UInt32VoidRecord& b) { return a.key < b.key; }
    static bool Equal(const UInt32VoidRecord& a, std::uint32_t b) { return a.key == b; }
    static bool Equal(const UInt32VoidRecord& a, const UInt32VoidRecord& b) { return a.key == b.key; }
};

/// Numbers to pointers, which it does not own.
class LORVALE_EXPORT UInt32VoidMap : public SkipList<UInt32VoidRecord, UInt32VoidOrder> {
public:
    ~UInt32VoidMap() override;
    bool Put(std::uint32_t key, void* value) { return SkipList::Put({key, value}); }
    /// Null if absent.
    void* Get(std::uint32_t key) const {
        const Node* const node = Find(key);
        return node != nullptr ? node->record.value : nullptr;
    }
    static std::uint32_t NodeKey(const Node* node) { return node->record.key; }
    static void* NodeValue(const Node* node) { return node->record.value; }
};

struct StringRecord {
    const char* text;
};
struct StringUInt32Record {
    const char* text;
    std::uint32_t value;
};
/// Bytes as strcmp orders them.
struct StringOrder {
    static const char* TextOf(const char* text) { return text; }
    static const char* TextOf(const StringRecord& record) { return record.text; }
    static const char* TextOf(const StringUInt32Record& record) { return record.text; }
    template <class A, class B>
    static bool LessThan(const A& a, const B& b) {
        return std::strcmp(TextOf(a), TextOf(b)) < 0;
    }
    template <class A, class B>
    static bool Equal(const A& a, const B& b) {
        return std::strcmp(TextOf(a), TextOf(b)) == 0;
    }
};

/// What the two lists keyed by text share: the key is a copy made by IAMalloc and freed by the list.
template <class Record>
class StringKeyedList : public SkipList<Record, StringOrder> {
    using Base = SkipList<Record, StringOrder>;

public:
    using Node = typename Base::Node;
    ~StringKeyedList() override { Clear(); }

    bool Member(const char* text) const { return Base::Find(text) != nullptr; }
    /// True if it was there.
    bool Remove(const char* text) {
        Record old;
        if (!Base::Remove(text, &old)) return false;
        IAFree(const_cast<char*>(old.text));
        return true;
    }
    void Clear() {
        for (Record first; Base::Pop(&first);) IAFree(const_cast<char*>(first.text));
    }
    static const char* NodeKey(const Node* node) { return node->record.text; }

    // The list owns its keys, so records do not come and go as they are.
    bool Pop(Record*) = delete;

protected:
    static const char* CopyOf(const char* text) {
        const std::size_t size = std::strlen(text) + 1;
        return static_cast<const char*>(std::memcpy(IAMalloc(size), text, size));
    }
    /// Takes the record's text over.  An equal old key is replaced and freed.
    bool PutRecord(const Record& record) {
        Record old;
        if (!Base::Put(record, &old)) return false;
        IAFree(const_cast<char*>(old.text));
        return true;
    }
};

class LORVALE_EXPORT StringSet : public StringKeyedList<StringRecord> {
public:
    ~StringSet() override;
    bool Put(const char* text) { return PutRecord({CopyOf(text)}); }
};

class LORVALE_EXPORT StringUInt32Map : public StringKeyedList<StringUInt32Record> {
public:
    ~StringUInt32Map() override;
    bool Put(const char* text, std::uint32_t value) { return PutRecord({CopyOf(text), value}); }
    /// 0 if absent.
    std::uint32_t Get(const char* text) const {
        const Node* const node = Find(text);
        return node != nullptr ? node->record.value : 0;
    }
    static std::uint32_t NodeValue(const Node* node) { return node->record.value; }
};

}  // namespace brindle

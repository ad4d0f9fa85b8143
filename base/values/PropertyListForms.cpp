#include <locale.h>
#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>

#include "base/values/PropertyListGuard.h"
#include "lorvale/values/property_list.h"

// Between PropertyList and the nodes of libplist, which reads and writes the files.

namespace lorvale {

namespace {

constexpr std::int64_t kStartOf2001 = 978'307'200;  // dates in files count from there

struct NodeFree {
    void operator()(void* node) const { ::plist_free(node); }
};
using Node = std::unique_ptr<void, NodeFree>;

struct CFree {
    void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using CMemory = std::unique_ptr<T, CFree>;

/// libplist reads and writes numbers by the locale of the thread, which the host may have set.
class NumbersOfC {
public:
    NumbersOfC() : _before(::uselocale(cLocale())) {}
    ~NumbersOfC() { ::uselocale(_before); }
    NumbersOfC(const NumbersOfC&) = delete;
    NumbersOfC& operator=(const NumbersOfC&) = delete;

private:
    static locale_t cLocale() {
        static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
        return locale;
    }
    const locale_t _before;
};

// Reading ----------------------------------------------------------------------------------------------------

std::string textOf(plist_t node) {
    std::uint64_t size = 0;
    const char* const text = ::plist_get_string_ptr(node, &size);
    return text == nullptr ? std::string() : std::string(text, size);
}

PropertyList valueOf(plist_t node);

PropertyList::Array arrayOf(plist_t node) {
    PropertyList::Array array;
    plist_array_iter iterator = nullptr;
    ::plist_array_new_iter(node, &iterator);
    const CMemory<void> owner(iterator);
    for (;;) {
        plist_t entry = nullptr;
        ::plist_array_next_item(node, iterator, &entry);
        if (entry == nullptr) return array;
        array.push_back(valueOf(entry));
    }
}

PropertyList::Dictionary dictionaryOf(plist_t node) {
    PropertyList::Dictionary dictionary;
    plist_dict_iter iterator = nullptr;
    ::plist_dict_new_iter(node, &iterator);
    const CMemory<void> owner(iterator);
    for (;;) {
        char* keyMemory = nullptr;
        plist_t entry = nullptr;
        ::plist_dict_next_item(node, iterator, &keyMemory, &entry);
        const CMemory<char> key(keyMemory);
        if (entry == nullptr) return dictionary;
        if (key != nullptr) dictionary.insert_or_assign(key.get(), valueOf(entry));
    }
}

/// `depth` of the nodes is bounded by the guard.
PropertyList valueOf(plist_t node) {
    switch (::plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            std::uint8_t value = 0;
            ::plist_get_bool_val(node, &value);
            return value != 0;
        }
        case PLIST_UINT: {
            std::uint64_t value = 0;
            ::plist_get_uint_val(node, &value);
            return static_cast<std::int64_t>(value);  // negative numbers come wrapped round
        }
        case PLIST_UID: {
            std::uint64_t value = 0;
            ::plist_get_uid_val(node, &value);
            return static_cast<std::int64_t>(value);
        }
        case PLIST_REAL: {
            double value = 0;
            ::plist_get_real_val(node, &value);
            return value;
        }
        case PLIST_STRING:
            return textOf(node);
        case PLIST_DATA: {
            std::uint64_t size = 0;
            const char* const bytes = ::plist_get_data_ptr(node, &size);
            return bytes == nullptr ? Data() : Data::copyOf(std::string_view(bytes, size));
        }
        case PLIST_DATE: {
            std::int32_t seconds = 0, microseconds = 0;
            ::plist_get_date_val(node, &seconds, &microseconds);
            return Date(kStartOf2001 + seconds);
        }
        case PLIST_ARRAY:
            return arrayOf(node);
        case PLIST_DICT:
            return dictionaryOf(node);
        default:
            return {};
    }
}

// Writing ----------------------------------------------------------------------------------------------------

Node nodeOf(const PropertyList& value);

Node arrayNode(const PropertyList::Array& array) {
    Node node(::plist_new_array());
    for (const auto& entry : array)
        if (auto child = nodeOf(entry)) ::plist_array_append_item(node.get(), child.release());
    return node;
}

Node dictionaryNode(const PropertyList::Dictionary& dictionary) {
    Node node(::plist_new_dict());
    for (const auto& [key, entry] : dictionary) {
        if (auto child = nodeOf(entry)) ::plist_dict_set_item(node.get(), key.c_str(), child.release());
    }
    return node;
}

Node dateNode(const Date& date) {
    using Limits = std::numeric_limits<std::int32_t>;
    const auto seconds =
        std::clamp<std::int64_t>(date.secondsSince1970() - kStartOf2001, Limits::min(), Limits::max());
    return Node(::plist_new_date(static_cast<std::int32_t>(seconds), 0));
}

/// Null for a value that has no form in a file.
Node nodeOf(const PropertyList& value) {
    if (const auto* const truth = value.get<bool>()) return Node(::plist_new_bool(*truth ? 1 : 0));
    if (const auto* const number = value.get<std::int64_t>())
        return Node(::plist_new_uint(static_cast<std::uint64_t>(*number)));
    if (const auto* const number = value.get<double>()) return Node(::plist_new_real(*number));
    if (const auto* const text = value.get<std::string>()) return Node(::plist_new_string(text->c_str()));
    if (const auto* const data = value.get<Data>())
        return Node(::plist_new_data(data->view().data(), data->size()));
    if (const auto* const date = value.get<Date>()) return dateNode(*date);
    if (const auto* const array = value.get<PropertyList::Array>()) return arrayNode(*array);
    if (const auto* const dictionary = value.get<PropertyList::Dictionary>())
        return dictionaryNode(*dictionary);
    return nullptr;
}

/// The library's writer names a document type by an address on the net.  No reader of property lists needs it,
/// and a general XML reader might go and fetch it.
std::string withoutDocumentType(std::string xml) {
    const auto start = xml.find("<!DOCTYPE");
    const auto root = xml.find("<plist");
    if (start < root && root != std::string::npos) xml.erase(start, root - start);
    return xml;
}

}  // namespace

std::optional<PropertyList> PropertyList::parse(const Data& data) {
    constexpr PropertyListLimits kLimits;
    const auto bytes = data.view();
    const bool isBinary = isBinaryPropertyList(bytes);
    if (bytes.empty()) return std::nullopt;
    if (!(isBinary ? binaryPropertyListKeepsWithin : xmlPropertyListKeepsWithin)(bytes, kLimits))
        return std::nullopt;
    const NumbersOfC numbers;
    plist_t node = nullptr;
    const auto size = static_cast<std::uint32_t>(bytes.size());  // the guard keeps it far below
    (isBinary ? ::plist_from_bin : ::plist_from_xml)(bytes.data(), size, &node);
    const Node owner(node);
    if (owner == nullptr) return std::nullopt;
    return valueOf(node);
}

std::string PropertyList::xml() const {
    const NumbersOfC numbers;
    const auto node = nodeOf(*this);
    if (node == nullptr) return {};
    char* text = nullptr;
    std::uint32_t size = 0;
    ::plist_to_xml(node.get(), &text, &size);
    const CMemory<char> owner(text);
    return text == nullptr ? std::string() : withoutDocumentType(std::string(text, size));
}

}  // namespace lorvale

#pragma once
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/values/data.h"
#include "lorvale/values/date.h"

namespace lorvale {

/// A value as property-list files hold it: a dictionary with text keys, an array, text, data, a date, a number
/// or a truth value; or nothing, which is what a missing key answers, so that a reader of a damaged or older
/// file asks on without checking each step:
///
///     const auto size = list["Accounts"][0]["MaximumSize"].integer(1000);
///
/// A value: copies share nothing but data, and a moved-from one is null.  One thread at a time, or several that
/// only read.
class LORVALE_EXPORT PropertyList {
public:
    using Array = std::vector<PropertyList>;
    using Dictionary = std::map<std::string, PropertyList, std::less<>>;

    PropertyList() = default;
    PropertyList(const PropertyList&) = default;
    /// The other list may be a part of this one.
    PropertyList& operator=(const PropertyList& other) {
        return this == &other ? *this : *this = PropertyList(other);
    }
    PropertyList(PropertyList&& other) noexcept : _value(std::exchange(other._value, std::monostate())) {}
    PropertyList& operator=(PropertyList&& other) noexcept {
        Value taken(std::exchange(other._value, std::monostate()));
        _value = std::move(taken);
        return *this;
    }
    ~PropertyList() = default;

    /// Exactly a bool: a pointer to anything would convert to one.
    template <std::same_as<bool> Bool>
    PropertyList(Bool value) : _value(value) {}
    template <std::integral Integer>
    requires(!std::same_as<Integer, bool>) PropertyList(Integer value)
        : _value(static_cast<std::int64_t>(value)) {}
    PropertyList(double value) : _value(value) {}
    /// Text; a null pointer makes a null value.
    PropertyList(const char* text) {
        if (text != nullptr) _value.emplace<std::string>(text);
    }
    PropertyList(std::string_view text) : _value(std::string(text)) {}
    PropertyList(std::string text) : _value(std::move(text)) {}
    PropertyList(Data data) : _value(std::move(data)) {}
    PropertyList(Date date) : _value(date) {}
    PropertyList(Array array) : _value(std::move(array)) {}
    PropertyList(Dictionary dictionary) : _value(std::move(dictionary)) {}

    /// Most bytes of a file, and most levels of arrays and dictionaries in each other.
    static constexpr std::size_t kMostBytes = 256 << 20, kMostLevels = 512;

    /// Reads the XML and the binary form; nullopt for anything else, and for what goes beyond kMostBytes,
    /// kMostLevels or, where a small binary file refers to the same values again and again, 16 MB and 64 times
    /// its size.
    [[nodiscard]] static std::optional<PropertyList> parse(const Data& data);
    /// The XML form, with the keys in their order.  Reading it gives the same value back, whatever bytes its
    /// texts are made of; but null values have no form there and are left out, and dates lose their zone and
    /// are read as UTC.  An empty text for a null value and, with a line in the log, beyond the limits.
    [[nodiscard]] std::string xml() const;

    bool isNull() const { return std::holds_alternative<std::monostate>(_value); }
    /// The value if it is of that kind (bool, std::int64_t, double, std::string, Data, Date, Array,
    /// Dictionary), else null.
    template <class Kind>
    const Kind* get() const {
        return std::get_if<Kind>(&_value);
    }
    template <class Kind>
    Kind* get() {
        return std::get_if<Kind>(&_value);
    }

    // Tolerant readers: settings are often edited by hand or given on a command line, as text.

    /// A truth value, a number other than 0, or a text: "YES", "true" and digits other than zero are true,
    /// "NO", "false" and "0" are false, in any case of letters.
    bool boolean(bool otherwise = false) const;
    /// A number, cut off at the limits; a truth value; a text that is a number.
    std::int64_t integer(std::int64_t otherwise = 0) const;
    double real(double otherwise = 0) const;
    /// A text, or a number, truth value or date (as "2002-08-22T10:46:23Z") as one.
    std::string string(std::string_view otherwise = {}) const;
    /// The texts of an array; what is no text, number or date in it is passed over.
    std::vector<std::string> strings() const;
    std::optional<Data> data() const;
    /// A date, or a text that is one as string() gives it.
    std::optional<Date> date() const;
    /// An empty one for another kind.
    const Array& array() const;
    const Dictionary& dictionary() const;

    /// The value under a key or at an index; a null one when there is none.
    const PropertyList& operator[](std::string_view key) const;
    const PropertyList& operator[](std::size_t index) const;
    const PropertyList& operator[](const char* key) const { return (*this)[std::string_view(key)]; }
    const PropertyList& operator[](int index) const { return (*this)[static_cast<std::size_t>(index)]; }

    /// Turns another kind into an empty dictionary first.  A null value removes the key.
    void set(std::string_view key, PropertyList value);
    void remove(std::string_view key);
    /// Turns another kind into an empty array first.
    void append(PropertyList value);

    friend bool operator==(const PropertyList&, const PropertyList&) = default;

private:
    using Value =
        std::variant<std::monostate, bool, std::int64_t, double, std::string, Data, Date, Array, Dictionary>;
    Value _value;
};

}  // namespace lorvale

#pragma once
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/values/data.h"

namespace lorvale {

/// What a server's answer is made of: a text, a list of such values, or NIL.  Numbers are texts.  Texts are the
/// server's bytes and share one block with all others of an answer, so that copies cost little.  A value; a
/// moved-from one is NIL.
class LORVALE_EXPORT IMAPValue {
public:
    using List = std::vector<IMAPValue>;

    IMAPValue() = default;  ///< NIL
    explicit IMAPValue(Data text) : _kind(Kind::text), _text(std::move(text)) {}
    explicit IMAPValue(List list) : _kind(Kind::list), _list(std::make_shared<const List>(std::move(list))) {}
    IMAPValue(const IMAPValue&) = default;
    IMAPValue& operator=(const IMAPValue&) = default;
    IMAPValue(IMAPValue&& other) noexcept
        : _kind(std::exchange(other._kind, Kind::nil)),
          _text(std::move(other._text)),
          _list(std::move(other._list)) {}
    IMAPValue& operator=(IMAPValue&& other) noexcept {
        IMAPValue taken(std::move(other));
        std::swap(_kind, taken._kind);
        std::swap(_text, taken._text);
        std::swap(_list, taken._list);
        return *this;
    }
    ~IMAPValue() = default;

    bool isNil() const { return _kind == Kind::nil; }
    bool isList() const { return _kind == Kind::list; }
    /// Empty for what is no text.  Good as long as this value or a copy of it.
    std::string_view text() const { return _text.view(); }
    const Data& data() const { return _text; }
    /// Empty for what is no list.
    std::span<const IMAPValue> list() const {
        return _list ? std::span<const IMAPValue>(*_list) : std::span<const IMAPValue>();
    }
    /// A number of up to 32 bits; nullopt for anything else.
    std::optional<std::uint32_t> number() const;
    /// The texts of a list, as for flags.
    std::vector<std::string_view> texts() const;

    /// For people: lists in parentheses, texts as they are.
    std::string description() const;

private:
    enum class Kind : std::uint8_t { nil, text, list };
    Kind _kind = Kind::nil;
    Data _text;
    std::shared_ptr<const List> _list;
};

}  // namespace lorvale

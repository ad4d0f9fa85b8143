#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "base/values/PropertyListForms.h"
#include "lorvale/values/text.h"

// libxml2 tells of tags and text one by one, and the value is put together from that; no tree is made.

namespace lorvale {

namespace {

std::optional<std::int64_t> integerIn(std::string_view text) {
    Cursor digits(trimmed(text));
    const bool negative = digits.skip('-');
    if (!negative) digits.skip('+');
    const int base = digits.skipIgnoringCase("0x") ? 16 : 10;
    std::uint64_t number = 0;
    const auto rest = digits.rest();
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number, base);
    if (error == std::errc::invalid_argument || end != rest.data() + rest.size()) return std::nullopt;
    constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const auto most = kMost + (negative ? 1 : 0);
    if (error == std::errc::result_out_of_range || number > most) number = most;
    return static_cast<std::int64_t>(negative ? 0 - number : number);
}

std::optional<double> realIn(std::string_view text) {
    text = trimmed(text);
    if (text.starts_with('+')) text.remove_prefix(1);
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

constexpr auto kBase64Values = [] {
    constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < kLetters.size(); ++i)
        values[static_cast<std::uint8_t>(kLetters[i])] = static_cast<std::int8_t>(i);
    return values;
}();

/// The bytes of base64 text with white space anywhere; nullopt for other characters.
std::optional<Data> base64In(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text.substr(0, text.find('='))) {
        const auto value = kBase64Values[static_cast<std::uint8_t>(c)];
        if (value < 0 && !isAsciiWhite(c)) return std::nullopt;
        if (value < 0) continue;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes += static_cast<char>(bits >> count);
    }
    return Data(std::move(bytes));
}

/// Puts a value together from tags and text.  Each operation answers false for what no property list holds.
class Builder {
public:
    bool open(std::string_view tag) {
        if (_isLeafOpen) return false;
        if (tag == "plist") return !std::exchange(_isPlistOpen, true) && _levels.empty() && !_result;
        _isLeafOpen = tag != "array" && tag != "dict";
        if (_isLeafOpen) return true;
        if (_levels.size() == PropertyList::kMostLevels) return false;
        _levels.push_back(
            {tag == "array" ? PropertyList(PropertyList::Array()) : PropertyList(PropertyList::Dictionary()),
             std::nullopt});
        return true;
    }

    bool addText(std::string_view text) {
        if (_isLeafOpen) _text += text;
        return _isLeafOpen || std::ranges::all_of(text, isAsciiWhite);
    }

    bool close(std::string_view tag) {
        if (tag == "plist") return true;
        if (std::exchange(_isLeafOpen, false)) return closeLeaf(tag, std::exchange(_text, {}));
        auto closed = std::move(_levels.back());
        _levels.pop_back();
        return !closed.key && add(std::move(closed.value));
    }

    std::optional<PropertyList> result() { return std::move(_result); }

private:
    struct Level {
        PropertyList value;
        std::optional<std::string> key;  // of a dictionary, read and still without its value
    };

    bool closeLeaf(std::string_view tag, std::string text) {
        if (tag == "key") return addKey(withBytesFromXml(std::move(text)));
        if (tag == "string") return add(withBytesFromXml(std::move(text)));
        if (tag == "integer") return addIf(integerIn(text));
        if (tag == "real") return addIf(realIn(text));
        if (tag == "true" || tag == "false") return add(tag == "true");
        if (tag == "data") return addIf(base64In(text));
        if (tag == "date") return addIf(dateFromIso8601(text));
        return false;
    }

    bool addKey(std::string key) {
        if (_levels.empty() || _levels.back().key || !_levels.back().value.get<PropertyList::Dictionary>())
            return false;
        _levels.back().key = std::move(key);
        return true;
    }

    template <class Value>
    bool addIf(std::optional<Value> value) {
        return value && add(PropertyList(*std::move(value)));
    }

    bool add(PropertyList value) {
        if (_levels.empty()) {
            if (_result) return false;
            _result = std::move(value);
            return true;
        }
        auto& [container, key] = _levels.back();
        if (auto* const array = container.get<PropertyList::Array>()) {
            array->push_back(std::move(value));
            return true;
        }
        if (!key) return false;
        container.get<PropertyList::Dictionary>()->insert_or_assign(*std::exchange(key, std::nullopt),
                                                                    std::move(value));
        return true;
    }

    std::vector<Level> _levels;
    std::string _text;  // of the open leaf
    bool _isLeafOpen = false, _isPlistOpen = false;
    std::optional<PropertyList> _result;
};

struct FreeParser {
    void operator()(xmlParserCtxtPtr parser) const {
        if (parser->myDoc != nullptr) ::xmlFreeDoc(parser->myDoc);
        ::xmlFreeParserCtxt(parser);
    }
};
using Parser = std::unique_ptr<xmlParserCtxt, FreeParser>;

/// What the parser's calls come with.  No exception may pass through the parser: it waits here.
struct Reading {
    Builder builder;
    xmlParserCtxtPtr parser;
    bool refused = false;
    std::exception_ptr failure;

    template <class Step>
    void run(Step step) noexcept {
        if (refused) return;
        try {
            refused = !step(builder);
        } catch (...) {
            failure = std::current_exception();
            refused = true;
        }
        if (refused) ::xmlStopParser(parser);
    }
};

Reading& reading(void* context) {
    return *static_cast<Reading*>(context);
}
std::string_view view(const xmlChar* name) {
    return reinterpret_cast<const char*>(name);
}

void refuseDefinition(void* context) {
    reading(context).run([](Builder&) { return false; });
}

/// A document may name a type, which is passed over; it may define nothing, so that a text is as long as it is
/// in the file, and nothing outside of the file is ever looked at.
xmlSAXHandler handler() {
    xmlSAXHandler calls{};
    calls.initialized = XML_SAX2_MAGIC;
    calls.startElementNs = [](void* context, const xmlChar* name, const xmlChar*, const xmlChar*, int,
                              const xmlChar**, int, int, const xmlChar**) {
        reading(context).run([&](Builder& builder) { return builder.open(view(name)); });
    };
    calls.endElementNs = [](void* context, const xmlChar* name, const xmlChar*, const xmlChar*) {
        reading(context).run([&](Builder& builder) { return builder.close(view(name)); });
    };
    calls.characters = [](void* context, const xmlChar* text, int length) {
        const auto bytes =
            std::string_view(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length));
        reading(context).run([&](Builder& builder) { return builder.addText(bytes); });
    };
    calls.cdataBlock = calls.characters;
    calls.entityDecl = [](void* context, const xmlChar*, int, const xmlChar*, const xmlChar*, xmlChar*) {
        refuseDefinition(context);
    };
    calls.attributeDecl = [](void* context, const xmlChar*, const xmlChar*, int, int, const xmlChar*,
                             xmlEnumerationPtr values) {
        ::xmlFreeEnumeration(values);  // ours now, unlike all else that the parser hands over
        refuseDefinition(context);
    };
    calls.elementDecl = [](void* context, const xmlChar*, int, xmlElementContentPtr) {
        refuseDefinition(context);
    };
    calls.reference = [](void* context, const xmlChar*) { refuseDefinition(context); };
    calls.serror = [](void*, auto) {};  // else they would be printed
    return calls;
}

}  // namespace

std::optional<PropertyList> propertyListFromXml(std::string_view bytes) {
    [[maybe_unused]] static const bool isSetUp = (::xmlInitParser(), true);
    const Parser parser(::xmlCreateMemoryParserCtxt(bytes.data(), static_cast<int>(bytes.size())));
    if (parser == nullptr) return std::nullopt;
    Reading reading{{}, parser.get(), false, nullptr};
    *parser->sax = handler();
    parser->userData = &reading;
    // Huge: long texts are allowed; the builder bounds the nesting.
    ::xmlCtxtUseOptions(parser.get(),
                        XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    ::xmlParseDocument(parser.get());
    if (reading.failure) std::rethrow_exception(reading.failure);
    if (parser->wellFormed == 0 || reading.refused) return std::nullopt;
    return reading.builder.result();
}

}  // namespace lorvale

#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "base/richtext/HtmlElements.h"
#include "base/richtext/HtmlFlow.h"
#include "base/richtext/HtmlStyle.h"
#include "lorvale/values/rich_text.h"

namespace lorvale {

/// The attributes of a start tag.  Borrows names and values, in pairs, as the parser hands them over: null at
/// the end, a null value for a name alone; the array itself may be null.
class HtmlAttributes {
public:
    explicit HtmlAttributes(const unsigned char* const* pairs) : _pairs(pairs) {}
    /// Empty when it is not there.
    std::string_view value(std::string_view name) const;
    bool has(std::string_view name) const;

private:
    const unsigned char* const* find(std::string_view name) const;
    const unsigned char* const* _pairs;
};

/// Makes attributed text of a page from its tags and its text, which come one by one.  Names are in lower case.
/// Each element that is opened is closed, the last one first; within kDeepest, which the caller sees to.
class HtmlReader {
public:
    static constexpr std::size_t kDeepest = 256;

    explicit HtmlReader(const AttachmentSource& pictures) : _pictures(pictures) {}

    void open(std::string_view name, const HtmlAttributes& attributes);
    void addText(std::string_view utf8);
    void close();

    AttributedText take() { return _flow.take(); }

private:
    /// An open element: how the text around it looks, and the list that it is.
    struct Open {
        const HtmlElement* element;
        HtmlStyle outside;
        bool isNumbered = false;
        int items = 0;
    };

    void applyElement(HtmlEffect effect, const HtmlAttributes& attributes);
    void applyAttributes(const HtmlElement& element, const HtmlAttributes& attributes);
    void applyLink(const HtmlAttributes& attributes);
    void show(HtmlEffect effect, const HtmlAttributes& attributes);
    void beginItem(const HtmlAttributes& attributes);
    void showPicture(const HtmlAttributes& attributes);
    void tellStyle();

    const AttachmentSource& _pictures;
    HtmlFlow _flow;
    HtmlStyle _style;
    std::vector<Open> _open;
    bool _dropNewline = false;  // that stands right behind <pre>
};

}  // namespace lorvale

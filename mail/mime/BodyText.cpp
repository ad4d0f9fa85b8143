#include "mail/mime/BodyText.h"

#include <exception>
#include <new>

#include "lorvale/platform/log.h"
#include "lorvale/platform/user_defaults.h"
#include "mail/model/ExceptionReason.h"

namespace lorvale {

namespace {

thread_local std::size_t nesting = 0;

struct OneLevel {
    OneLevel() { ++nesting; }
    ~OneLevel() { --nesting; }
    OneLevel(const OneLevel&) = delete;
    OneLevel& operator=(const OneLevel&) = delete;
};

}  // namespace

bool mayNestDeeper() {
    return nesting < MimeBodyPart::kDeepestLevel;
}

AttributedText fixedText(std::string_view text) {
    TextAttributes attributes;
    if (UserDefaults::standard().boolForKey("AutoSelectFont")) attributes.font = Font::userFixedPitch();
    return AttributedText(text, attributes);
}

bool inlinesTextAttachments() {
    return UserDefaults::standard().boolForKey("ShouldInlineMIMETextAttachments");
}

AttributedText MimeBodyPart::decodeBodyPartInDirectory(std::optional<std::string_view> directory) {
    const OneLevel level;
    // The directory may be this part's own text.
    auto own = directory ? std::optional<std::string>(*directory) : std::nullopt;
    _attachDir = std::move(own);
    try {
        return _dialect == MailDialect::classic ? ClassicBodyText(*this).text()
                                                : StandardBodyText(*this).text();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& exception) {
        log("Exception %@ while decoding mime message part.  Displaying as text/plain.", reasonOf(exception));
        return fixedText(body());
    }
}

}  // namespace lorvale

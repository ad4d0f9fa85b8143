#pragma once
#include <memory>
#include <string_view>

#include "lorvale/body/mime_body_part.h"

namespace lorvale {

/// Body parts out of texts and files, as the mail programs of today send and read them: one text, plain or also
/// with its attributes, and files behind it (RFC 2046, 2183, 2231, 2387, 3676).  Directories go as archives.
class StandardComposer {
public:
    static std::shared_ptr<MimeBodyPart> partForText(const AttributedText& text,
                                                     const MimeBodyPart::Files& files);
    static std::shared_ptr<MimeBodyPart> partForFile(const FileWrapper& file, std::string_view name);

private:
    static std::shared_ptr<MimeBodyPart> plainPart(const std::string& text);
    static std::shared_ptr<MimeBodyPart> richPart(const AttributedText& text);
    static std::shared_ptr<MimeBodyPart> regularFile(const Data& contents, std::string_view name);
    static std::shared_ptr<MimeBodyPart> reference(const FileWrapper& link, std::string_view name);
};

}  // namespace lorvale

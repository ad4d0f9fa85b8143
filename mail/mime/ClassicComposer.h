#pragma once
#include <cstddef>
#include <memory>
#include <string_view>

#include "lorvale/body/mime_body_part.h"

namespace lorvale {

/// Body parts out of texts and files, as the programs that were written for this system have always sent them:
/// text/enriched and attachments in turns, directories as "multipart/x-folder", links as references to a file.
class ClassicComposer {
public:
    static std::shared_ptr<MimeBodyPart> partForText(const AttributedText& text,
                                                     const MimeBodyPart::Files& files);
    static std::shared_ptr<MimeBodyPart> partForFile(const FileWrapper& file, std::string_view name,
                                                     std::size_t level = 0);

private:
    static std::shared_ptr<MimeBodyPart> plainPart(std::string_view text);
    static std::shared_ptr<MimeBodyPart> enrichedPart(const AttributedText& text);
    static std::shared_ptr<MimeBodyPart> onlyPart(const std::shared_ptr<MimeBodyPart>& child);
    static std::shared_ptr<MimeBodyPart> reference(const FileWrapper& link, std::string_view name);
    static std::shared_ptr<MimeBodyPart> readAnew(std::shared_ptr<MimeBodyPart> part);
};

}  // namespace lorvale

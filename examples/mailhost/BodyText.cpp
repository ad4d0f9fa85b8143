#include "BodyText.h"

#include "Mailbox.h"
#include "Parts.h"
#include "Terminal.h"

namespace mailhost {

lorvale::AttributedText decodedText(lorvale::Message& message) {
    const auto body = message.messageBody();
    // A tree of its own shows a MIME body without laying out its attachments anywhere.
    if (const auto root = partsOf(message)) return root->decodeBodyPartInDirectory(std::nullopt);
    const auto text = body ? body->decodedBody() : nullptr;
    if (!text) throwUnreadable("the body of the message");
    return *text;
}

std::string readableText(const lorvale::AttributedText& text) {
    std::string readable;
    bool lineEnds = false;  // behind an attachment
    for (const auto& run : text.runs()) {
        const auto& file = run.attributes.attachment;
        if ((lineEnds && !run.text.starts_with('\n')) || (file && !readable.empty() && readable.back() != '\n'))
            readable += '\n';
        lineEnds = file != nullptr;
        if (file) {
            const auto size = groupedNumber(file->regularFileContents().size());
            readable += "[" + file->preferredFilename() + ", " + size + " bytes]";
        } else {
            readable += run.text;
        }
    }
    return readable;
}

}  // namespace mailhost

/// Composes letters for other programs to read: compose_tool FOLDER writes each to a file, and beside it what
/// it must tell, in hexadecimal.
#include <random>

#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "tests/mail/dialect/ToolSupport.h"

namespace {

using namespace lorvale;

std::shared_ptr<FileWrapper> file(const std::string& name, std::string_view bytes) {
    auto made = FileWrapper::regularFile(Data::copyOf(bytes));
    return made->setPreferredFilename(name) ? made : nullptr;
}

class Letters {
public:
    explicit Letters(std::string folder) : _folder(std::move(folder)) {}

    void write(const AttributedText& text, const MimeBodyPart::Files& files = {},
               std::string_view zipped = "") {
        const auto letter = newLetter("\"Jan\u00E9, \u65E5\u672C\" <me@x.example>");
        const std::string subject =
            "\u65E5\u672C\u8A9E na\u00EFve =?utf-8?q?x?= " + std::string(60, 'w') + " end";
        letter->headers()->setObject(subject, "Subject");
        letter->headers()->setObject("a@x.example, \"B, C\" <b@x.example>", "To");
        completeLetter(*letter);
        const auto body = std::static_pointer_cast<MimeBody>(letter->messageBody());
        body->setFiles(files);
        body->setDecodedBody(text);
        const auto path = _folder + formatText("/%04d", _count++);
        std::ofstream(path + ".eml") << letter->messageData()->view();
        std::ofstream told(path + ".told");
        const bool isStandard = mailDialect() == MailDialect::standard;
        told << "dialect " << (isStandard ? "standard\n" : "classic\n");
        if (isStandard) told << "subject " << hex(subject) << "\n";
        AttributedText alone(text);
        alone.removeAllAttachments();
        const auto root = MimeBodyPart::bodyPartFromAttributedString(text, files);
        if (isStandard && *root->mimeType() != "multipart") told << "text " << hex(alone.string()) << "\n";
        tellLeaves(*root, told);
        if (!zipped.empty()) told << "zip " << hex(zipped) << "\n";
    }

private:
    static void tellLeaves(MimeBodyPart& part, std::ostream& told) {
        if (part.isMultipart()) {
            for (const auto& child : *part.bodyParts()) tellLeaves(*child, told);
            return;
        }
        const auto name = part.mimeParameterForKey("name").value_or("");
        // What changes from letter to letter is told by its type alone.
        const bool varies =
            *part.mimeType() == "message" || *part.mimeSubtype() == "html" || *part.mimeSubtype() == "zip";
        told << "leaf " << *part.mimeType() << "/" << *part.mimeSubtype() << " " << hex(name) << " "
             << (varies ? "*" : hex(part.bodyData()->view())) << "\n";
    }

    const std::string _folder;
    int _count = 0;
};

std::string randomBytes(std::mt19937& random, std::size_t most) {
    std::string bytes(random() % most, '\0');
    for (char& c : bytes) c = static_cast<char>(random() % 256);
    return bytes;
}

void writeAll(Letters& letters) {
    std::string allBytes;
    for (int i = 0; i < 256; ++i) allBytes += static_cast<char>(i);
    // One for each charset of the table, and what lines and paragraphs may be.
    for (const std::string& text :
         {std::string(), std::string("a"), std::string("\u00E9\n"), std::string("\u20AC\n"),
          std::string("\u0142\u0151\n"), std::string("\u0165\u2014\n"), std::string("\u65E5\u672C\u8A9E\n"),
          std::string("\u65E5 \u0142 \U0001F600\n"), std::string(3000, 'x'),
          "> q\n>> " + std::string(300, 'q') + " " + std::string(40, 'r') + " s\n -- \n-- \nme",
          std::string("From a\n.\n..\n b\n>c\n\td = e=41\n"), std::string("trailing \n \n")})
        letters.write(AttributedText(text));
    TextAttributes red;
    red.foregroundColor = Color{1, 0, 0, 1};
    letters.write(AttributedText("red \u65E5\n\n  x", red), {file("a.png", allBytes)});
    std::mt19937 random(3);
    for (int count : {1, 2, 3, 7, 50}) {
        AttributedText text("see");
        MimeBodyPart::Files files;
        static const std::string extensions[] = {".png", ".txt", "", ".tar.gz", ".html"};
        for (int i = 0; i < count; ++i) {
            const auto name =
                (i % 3 == 0 ? "\u65E5\u672C " : "a \"b\\ ") + std::to_string(i) + extensions[i % 5];
            const auto made = file(name, i == 0   ? allBytes
                                         : i == 1 ? ""
                                         : i == 2 ? "a\r\nb\n"
                                                  : randomBytes(random, 3000));
            i % 2 == 0 ? files.push_back(made) : text.append(AttributedText(made));
        }
        letters.write(text, files);
    }
    const auto folder = FileWrapper::directory(), inner = FileWrapper::directory();
    const auto link = FileWrapper::symbolicLink("to/\u65E5");
    if (!folder->setPreferredFilename("d") || !inner->setPreferredFilename("\u65E5") ||
        !link->setPreferredFilename("l"))
        return;
    inner->addFileWrapper(file("f.bin", allBytes));
    inner->addFileWrapper(link);
    folder->addFileWrapper(inner);
    letters.write(AttributedText("x"), {folder}, "d/ d/\u65E5/ d/\u65E5/f.bin d/\u65E5/l");
    letters.write(AttributedText(link));
    letters.write(AttributedText("x"), {file("m.eml", "Subject: s\n\nb\n")});
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    setLogSink([](std::string_view) {});
    Letters letters(argv[1]);
    for (const auto dialect : {MailDialect::standard, MailDialect::classic}) {
        setMailDialect(dialect);
        writeAll(letters);
    }
    return 0;
}

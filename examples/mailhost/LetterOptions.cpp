#include "LetterOptions.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>

#include "Commands.h"
#include "Json.h"
#include "Mailbox.h"
#include "Output.h"
#include "Terminal.h"
#include "lorvale/mime.h"
#include "lorvale/platform.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/rich_text.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

using lorvale::AttributedText;
using lorvale::FileWrapper;
using lorvale::Message;

std::string contentsOf(const std::string& path) {
    std::ifstream file;
    if (path != "-") file.open(path, std::ios::binary);
    auto& in = path == "-" ? std::cin : static_cast<std::istream&>(file);
    std::string contents{std::istreambuf_iterator<char>(in), {}};
    if (in.bad() || (path != "-" && !file.is_open())) throw Failure("cannot read " + path);
    return contents;
}

/// A file of the user's, with a link on the way to it followed.
std::shared_ptr<const FileWrapper> attachmentAt(const std::string& path) {
    std::error_code error;
    const auto place = std::filesystem::canonical(path, error);
    auto file = error ? nullptr : FileWrapper::withPath(place.string());
    if (file == nullptr) throw Failure("cannot read " + path);
    // By the name that the user gave, also where it is a link to another.
    const auto name = std::filesystem::path(path).filename().string();
    if (!name.empty() && name != "." && name != "..") static_cast<void>(file->setPreferredFilename(name));
    return file;
}

/// The pictures of a page that lie beside it, or in a folder there.  Other addresses are left alone.
lorvale::AttachmentSource picturesBeside(const std::string& page) {
    const auto folder = std::filesystem::path(page).parent_path();
    return [folder](std::string_view address) -> std::shared_ptr<const FileWrapper> {
        const std::filesystem::path relative(address);
        const auto way = relative.lexically_normal();
        std::error_code error;
        const bool isBeside = way.is_relative() && !way.empty() && *way.begin() != "..";
        if (!isBeside || !std::filesystem::is_regular_file(folder / way, error)) return nullptr;
        return attachmentAt((folder / way).string());
    };
}

AttributedText textFor(const Draft& draft, const Arguments& arguments) {
    if (const auto page = arguments.value(kPage))
        return lorvale::attributedTextFromHTML(lorvale::Data(contentsOf(*page)), std::nullopt,
                                               picturesBeside(*page));
    const auto file = arguments.value(kBody);
    if (!file && !draft.readsInput) return {};
    return AttributedText(lorvale::decodeCString(contentsOf(file.value_or("-"))));
}

/// All that an option was given, as one list.  Throws Failure where it names nobody.
std::optional<std::string> addresses(const Typed<std::string>& option, const Arguments& arguments) {
    std::vector<lorvale::Mailbox> all;
    for (const auto& list : arguments.values(option)) {
        for (auto& mailbox : lorvale::mailboxesInList(list)) {
            if (mailbox.address.empty()) throw Failure("\"" + list + "\" holds no address");
            all.push_back(std::move(mailbox));
        }
    }
    if (all.empty() && arguments.has(option)) throw Failure(std::string(option.name) + " names nobody");
    return all.empty() ? std::nullopt : std::optional(lorvale::mailboxListText(all));
}

void setHeaders(Message& letter, const Arguments& arguments) {
    const auto headers = letter.headers();
    if (const auto to = addresses(kRecipients, arguments)) headers->setObject(*to, "To");
    if (const auto cc = addresses(kCopies, arguments)) headers->setObject(*cc, "Cc");
    if (const auto subject = arguments.value(kLetterSubject)) headers->setObject(*subject, "Subject");
}

void setText(Message& letter, AttributedText text, const Arguments& arguments) {
    const auto body = letter.messageBody();
    if (const auto own = body->decodedBody(); own && !own->empty()) {
        if (!text.empty()) text.append(text.string().ends_with('\n') ? "\n" : "\n\n");
        text.append(*own);
    }
    lorvale::MimeBodyPart::Files files;
    for (const auto& path : arguments.values(kAttach)) files.push_back(attachmentAt(path));
    if (const auto mime = std::dynamic_pointer_cast<lorvale::MimeBody>(body)) {
        mime->setFiles(std::move(files));
    } else if (!files.empty()) {
        throw UsageError("a plain letter carries no files");
    }
    body->setDecodedBody(std::move(text));
}

void print(const lorvale::Data& bytes) {
    if (outputIsTerminal()) {
        const auto text = printableText(bytes.view());
        std::fwrite(text.data(), 1, text.size(), stdout);
    } else {
        std::fwrite(bytes.bytes(), 1, bytes.size(), stdout);
    }
}

void printAsJson(Message& letter, const lorvale::Data& bytes) {
    const auto all = letter.headers()->allHeaders();
    JsonObject object;
    for (const std::string_view key : {"from", "to", "cc", "subject", "date", "message-id"}) {
        const auto found = all->find(key);
        if (found != all->end() && !found->second.empty()) object.add(key, found->second.front());
    }
    auto base64 = lorvale::encodeBase64(bytes).toString();
    std::erase(base64, '\n');
    LineOutput().write(object.add("size", bytes.size()).add("base64", base64).text());
}

void writeToFile(const lorvale::Data& bytes, const std::string& path) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.bytes()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) throw Failure("cannot write " + path);
}

bool namesSomebody(Message& letter, const Arguments& arguments) {
    const auto all = letter.headers()->allHeaders();
    return all->contains("to") || all->contains("cc") || arguments.has(kBlindCopies);
}

}  // namespace

std::string senderFor(const Arguments& arguments) {
    if (const auto given = addresses(kSender, arguments)) return *given;
    const auto usual = lorvale::UserDefaults::standard().stringForKey("From");
    return usual.value_or(lorvale::loginName() + "@" + lorvale::hostName());
}

lorvale::SendFormat formatFor(const Arguments& arguments) {
    return arguments.value(kFormat) == "plain" ? lorvale::SendFormat::plain : lorvale::SendFormat::MIME;
}

int finishLetter(const Draft& draft, const Arguments& arguments) {
    auto& letter = *draft.letter;
    setHeaders(letter, arguments);
    const auto blind = addresses(kBlindCopies, arguments);
    if (!namesSomebody(letter, arguments)) throw UsageError("a letter needs --to, --cc or --bcc");
    setText(letter, textFor(draft, arguments), arguments);
    lorvale::completeLetter(letter);
    const auto bytes = letter.encodedBody() ? letter.messageData() : std::nullopt;
    if (!bytes) throw Failure("the letter cannot be composed; --verbose tells why");
    if (const auto path = arguments.value(kOutputFile)) {
        writeToFile(*bytes, *path);
    } else if (arguments.has(kDryRun)) {
        arguments.has(kJson) ? printAsJson(letter, *bytes) : print(*bytes);
    } else {
        const auto hidden = lorvale::addressList(blind.value_or(""));
        return sendLetter(draft.letter, hidden.value_or(std::vector<std::string>()), arguments);
    }
    return 0;
}

}  // namespace mailhost

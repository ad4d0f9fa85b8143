// A message in the older rich format, with the real programs behind it: whatever it holds, its body throws
// nothing, says the same each time, lays out plain files and directories in its own directory alone, and leaves
// none of them behind.  The first byte tells what follows: a whole message, or the header's value, a line end
// and an archive, which is packed here, since hardly a blob made by chance is.
#include <filesystem>

#include "fuzz/FuzzTarget.h"
#include "fuzz/mail/TarHeaders.h"
#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/mime.h"

using namespace lorvale;
namespace fs = std::filesystem;

namespace {

/// A directory around the attachments, to see what gets out of them.
class Surroundings {
public:
    Surroundings() : _path(fs::temp_directory_path() / "lorvale-fuzz-XXXXXX") {
        std::string name = _path.string();
        fuzz::require(::mkdtemp(name.data()) != nullptr);
        _path = name;
        fs::create_directory(attachments());
        MessageBody::setDefaultAttachmentDirectory(attachments().string());
        TarnMailBody::setTarCommand("/bin/tar");
        setLogSink([](std::string_view) {});
    }
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;
    ~Surroundings() { fs::remove_all(_path); }

    void requireNothingLeft() const { fuzz::require(fs::is_empty(attachments())); }
    void requirePlainFilesInOneDirectory() const {
        fuzz::require(std::distance(fs::directory_iterator(_path), {}) == 1);
        fuzz::require(std::distance(fs::directory_iterator(attachments()), {}) <= 1);
        for (const auto& entry : fs::recursive_directory_iterator(attachments())) {
            const auto type = entry.symlink_status().type();
            fuzz::require(type == fs::file_type::regular || type == fs::file_type::directory);
        }
    }

private:
    fs::path attachments() const { return _path / "attachments"; }
    fs::path _path;
};

/// In the form of compress, where each code has 9 bits, the lowest first: the bytes as they are, and the code
/// that clears the table whenever a new one would have 10.
std::string compressed(std::string_view bytes) {
    constexpr std::size_t kRun = 247;  // with the code behind it whole groups of eight codes
    std::string out("\x1F\x9D\x90");
    unsigned held = 0, bits = 0;
    const auto put = [&](unsigned code) {
        held |= code << bits;
        for (bits += 9; bits >= 8; bits -= 8, held >>= 8) out += static_cast<char>(held & 0xFF);
    };
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        put(static_cast<unsigned char>(bytes[i]));
        if (i % kRun == kRun - 1) put(256);
    }
    return bits > 0 ? out + static_cast<char>(held) : out;
}

std::string messageIn(std::string_view input) {
    if (input.empty() || input[0] % 2 == 0)
        return std::string(input.substr(std::min<std::size_t>(1, input.size())));
    const auto line = input.substr(1, input.substr(1).find('\n'));
    std::string archive(input.substr(std::min(line.size() + 2, input.size())));
    if (input[0] % 4 == 3) fuzz::mendChecksums(archive);
    const auto blob = uuencodedDataWithFile(Data::copyOf(compressed(archive)), line, 0600);
    return "Subject: a\ntarn-attachment: " + std::string(line) + "\n\n" + blob.toString();
}

std::string textOf(const std::shared_ptr<Message>& message, const Surroundings& surroundings) {
    const auto text = message->messageBody()->decodedBody();
    surroundings.requirePlainFilesInOneDirectory();
    return text ? text->string() : "";
}

}  // namespace

LORVALE_FUZZ_TARGET(input) {
    static const Surroundings surroundings;
    const auto data = Data::copyOf(messageIn(input));
    std::string texts[2];
    for (auto& text : texts) {
        const auto message = Message::messageWithData(data);
        if (!std::dynamic_pointer_cast<TarnMailBody>(message->messageBody())) return;
        text = textOf(message, surroundings);
        fuzz::require(message->messageBody()->encodedBody().has_value());
        message->messageBody()->flushCachedData();
        fuzz::require(textOf(message, surroundings) == text);
    }
    fuzz::require(texts[0] == texts[1]);
    surroundings.requireNothingLeft();
}

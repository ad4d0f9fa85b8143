#include "mail/mime/ArchiveCheck.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>

#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr std::size_t kBlock = 512;
constexpr int kMostMembers = 10'000;
constexpr std::uint64_t kRunsAsOther = 06000;  // bits of the mode

// Header of a member, one block (POSIX.1-1988, ustar).
//   offset  size
//        0   100  name       ended by a zero byte unless it is full
//      100     8  mode       octal digits
//      124    12  size       of the data behind the header: octal digits, then a blank or a zero byte
//      148     8  checksum   of all bytes, these taken as blanks: octal digits
//      156     1  kind
//      257     5  "ustar"
//      345   155  prefix     in front of the name and a "/", in ustar alone
struct Member {
    std::string name;
    std::uint64_t size = 0, mode = 0;
    char kind = '\0';

    bool isDirectory() const { return kind == '5' || name.ends_with('/'); }
    /// "7" is a file that wants to lie in one piece.
    bool isPlain() const { return kind == '0' || kind == '\0' || kind == '7' || kind == '5'; }
};

std::string_view field(std::string_view header, std::size_t offset, std::size_t size) {
    const auto all = header.substr(offset, size);
    return all.substr(0, all.find('\0'));
}

/// Nullopt for anything but octal digits; the binary form is for sizes that no letter has.
std::optional<std::uint64_t> octal(std::string_view digits) {
    digits = trimmed(digits, " ");
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 8);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return value;
}

bool hasItsChecksum(std::string_view header) {
    std::uint64_t sum = 8 * ' ';
    for (std::size_t i = 0; i < header.size(); ++i)
        if (i < 148 || i >= 156) sum += static_cast<unsigned char>(header[i]);
    return octal(field(header, 148, 8)) == sum;
}

std::optional<Member> memberOf(std::string_view header) {
    const auto size = octal(field(header, 124, 12)), mode = octal(field(header, 100, 8));
    if (!size || !mode || !hasItsChecksum(header)) return std::nullopt;
    Member member{std::string(field(header, 0, 100)), *size, *mode, header[156]};
    const auto prefix = field(header, 345, 155);
    if (header.substr(257, 6) == std::string_view("ustar\0", 6) && !prefix.empty())
        member.name = formatText("%@/%@", prefix, member.name);
    return member;
}

bool staysBelow(std::string_view name) {
    if (name.empty() || name.starts_with('/')) return false;
    return std::ranges::none_of(split(name, '/'), [](auto component) { return component == ".."; });
}

/// What a pax header (POSIX.1-2001) says instead of the next member's own header: lines "LENGTH KEY=VALUE\n".
struct Override {
    std::optional<std::string> name;
    std::optional<std::uint64_t> size;
};

/// False for lines that are none, and for keys that lead elsewhere.
bool readOverride(std::string_view lines, Override& into) {
    while (!lines.empty()) {
        std::size_t length = 0;
        const auto digits = std::from_chars(lines.data(), lines.data() + lines.size(), length);
        const auto start = static_cast<std::size_t>(digits.ptr - lines.data()) + 1;
        if (digits.ec != std::errc() || length > lines.size() || start >= length) return false;
        const auto line = lines.substr(start, length - start - 1);
        const auto key = line.substr(0, line.find('=')),
                   value = line.substr(std::min(key.size() + 1, line.size()));
        if (key == "path") {
            into.name = value;
        } else if (key == "size") {
            std::uint64_t size = 0;
            const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), size);
            if (error != std::errc() || end != value.data() + value.size()) return false;
            into.size = size;
        } else if (key == "linkpath" || key.starts_with("GNU.sparse.")) {
            return false;
        }
        lines.remove_prefix(length);
    }
    return true;
}

/// Walks the members; each step takes one header and its data.
class Walk {
public:
    explicit Walk(std::string_view archive) : _archive(archive), _rest(archive) {}

    std::optional<std::string_view> run(std::string& why) {
        while (!_rest.empty() && !isEndMark())
            if (!step()) return why = _why, std::nullopt;
        return _archive.substr(0, _archive.size() - _rest.size());
    }

private:
    bool refuse(std::string why) { return _why = std::move(why), false; }

    /// A block of zeros.
    bool isEndMark() const { return _rest.substr(0, kBlock).find_first_not_of('\0') == std::string_view::npos; }

    bool step() {
        const auto member = _rest.size() < kBlock ? std::nullopt : memberOf(_rest.substr(0, kBlock));
        if (!member) return refuse("a header that is none");
        if (++_members > kMostMembers) return refuse(formatText("more than %d members", kMostMembers));
        _rest.remove_prefix(kBlock);
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(member->size, _rest.size()));
        const auto data = _rest.substr(0, size);
        _rest.remove_prefix(std::min((size + kBlock - 1) / kBlock * kBlock, _rest.size()));
        if (!staysBelow(member->name)) return refuse(formatText("\"%@\", a path that leads out", member->name));
        return member->kind == 'L' || member->kind == 'x' || member->kind == 'g' ? takeExtension(*member, data)
                                                                                 : take(*member);
    }

    /// What stands in front of a member, to say more of it than its header can.
    bool takeExtension(const Member& member, std::string_view data) {
        Override said;
        if (member.kind == 'L') {  // GNU: a name
            said.name = std::string(data.substr(0, data.find('\0')));
        } else if (!readOverride(data, said)) {
            return refuse("a header that leads elsewhere");
        }
        if (said.name && !staysBelow(*said.name))
            return refuse(formatText("\"%@\", a path that leads out", *said.name));
        if (member.kind == 'g' && (said.name || said.size)) return refuse("a header for all members");
        if (said.name) _next.name = said.name;
        if (said.size) _next.size = said.size;
        return true;
    }

    bool take(Member member) {
        if (_next.size && *_next.size != member.size) return refuse("a member of two sizes");
        member.name = _next.name.value_or(member.name);
        _next = {};
        if (!member.isPlain()) return refuse(formatText("\"%@\", neither file nor directory", member.name));
        if (member.isDirectory() && member.size != 0) return refuse("a directory with bytes of its own");
        if ((member.mode & kRunsAsOther) != 0)
            return refuse(formatText("\"%@\", to be run as somebody else", member.name));
        return true;
    }

    const std::string_view _archive;
    std::string_view _rest;
    Override _next;
    int _members = 0;
    std::string _why;
};

}  // namespace

std::optional<std::string_view> harmlessArchive(std::string_view archive, std::string& why) {
    return Walk(archive).run(why);
}

}  // namespace lorvale

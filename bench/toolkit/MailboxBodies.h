#pragma once
#include <cstddef>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

/// What follows the first empty line of each message of a flat mailbox: text to index, as people write it.
inline std::vector<std::string> bodiesOf(const char* mailbox) {
    std::ostringstream all;
    all << std::ifstream(mailbox, std::ios::binary).rdbuf();
    const std::string mail = "\n" + all.str();
    std::vector<std::string> bodies;
    for (std::size_t at = mail.find("\nFrom "); at != mail.npos;) {
        const std::size_t next = mail.find("\nFrom ", at + 1);
        const std::string_view letter = std::string_view(mail).substr(at, next - at);
        const std::size_t head = letter.find("\n\n");
        if (head != letter.npos) bodies.emplace_back(letter.substr(head + 2));
        at = next;
    }
    return bodies;
}

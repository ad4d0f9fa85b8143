#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"

namespace lorvale {

/// One broken rule in the files of a mailbox.
struct MailboxFinding {
    enum class Severity {
        warning,  ///< unusual, or against the rules without harm to the reader
        error,    ///< some reader will not see the mail as it was written
    };
    Severity severity = Severity::warning;
    std::string rule;          ///< a short fixed name, for programs
    std::size_t message = 0;   ///< 1 is the first; 0: about the mailbox as a whole
    std::uint64_t offset = 0;  ///< in bytes from the start of the file that holds the messages
    std::string text;          ///< for people; may quote bytes of the file as they are
};

struct LORVALE_EXPORT MailboxReport {
    std::string failure;  ///< why there was nothing to check, with the path; empty when there was
    std::size_t messages = 0;
    std::uint64_t size = 0;  ///< in bytes, of the file that holds the messages
    std::vector<MailboxFinding> findings;

    explicit operator bool() const { return failure.empty(); }
    std::size_t count(MailboxFinding::Severity severity) const;
};

/// Walks the files of a mailbox and names every broken rule; of one rule that is broken over and over it gives
/// the first hundred cases and the number of the others.  Works on any flat mailbox, and on the flat file and
/// the attributes of a directory mailbox.  Takes no lock, changes nothing and needs no open store.  Any thread.
LORVALE_EXPORT MailboxReport checkMailbox(std::string_view path);

}  // namespace lorvale

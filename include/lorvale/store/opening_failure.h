#pragma once
#include <string>

namespace lorvale {

/// Why a store did not open; false when it did.
struct OpeningFailure {
    enum class Reason {
        none,
        emptyPath,
        noClass,     ///< nothing is there, or nothing that a class of stores can read
        missing,     ///< the files of the mailbox are not there
        locked,      ///< somebody else has the mailbox open, and the user said no
        unreadable,  ///< the files are there and cannot be read, or are no mailbox
        other,
    };
    Reason reason = Reason::none;
    std::string text;  ///< a sentence for people, with the path

    explicit operator bool() const { return reason != Reason::none; }
};

}  // namespace lorvale

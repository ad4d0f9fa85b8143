#pragma once
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Outgoing.h"
#include "lorvale/body.h"
#include "lorvale/message.h"

/// What the commands that write letters share: their options, and a letter made by them.

namespace mailhost {

inline constexpr auto kFormats = std::to_array<std::string_view>({"mime", "plain"});

inline constexpr auto kSender =
    textOption("--from", "ADDRESS", "who writes; else the user default From, else you at this machine");
constexpr Typed<std::string> addressesOption(std::string_view name, std::string_view help) {
    return {{.name = name, .placeholder = "ADDRESSES", .help = help, .takes = Takes::text, .repeats = true}};
}
inline constexpr auto kRecipients = addressesOption("--to", "who gets it, with commas between them");
inline constexpr auto kCopies = addressesOption("--cc", "who gets a copy");
inline constexpr auto kBlindCopies =
    addressesOption("--bcc", "who gets a copy that the others are not told of");
inline constexpr auto kLetterSubject = textOption("--subject", "TEXT", "the subject");
inline constexpr auto kBody = Typed<std::string>{{.name = "--body",
                                                  .placeholder = "FILE",
                                                  .help = "the text; - is standard input",
                                                  .takes = Takes::file,
                                                  .group = "text"}};
inline constexpr auto kPage = Typed<std::string>{{.name = "--html",
                                                  .placeholder = "FILE",
                                                  .help = "the text as a page, with the pictures beside it",
                                                  .takes = Takes::file,
                                                  .group = "text"}};
inline constexpr auto kAttach = Typed<std::string>{{.name = "--attach",
                                                    .placeholder = "FILE",
                                                    .help = "a file or folder that goes with it",
                                                    .takes = Takes::file,
                                                    .repeats = true}};
inline constexpr auto kFormat =
    choiceOption("--format", "FORMAT", kFormats, "plain sends the characters of the text and no more");
inline constexpr auto kDryRun = flag("--dry-run", "print the letter, send nothing", "sending");
inline constexpr auto kOutputFile = Typed<std::string>{{.name = "--output",
                                                        .placeholder = "FILE",
                                                        .help = "write the letter to a file, send nothing",
                                                        .takes = Takes::file,
                                                        .group = "sending"}};
inline constexpr auto kLetterOptions =
    joined(std::to_array<Parameter>({kSender, kRecipients, kCopies, kBlindCopies, kLetterSubject, kBody, kPage,
                                     kAttach, kFormat, kDryRun, kOutputFile}),
           kOutgoingOptions);

/// A letter with everything that is known before its options are looked at.
struct Draft {
    std::shared_ptr<lorvale::Message> letter;
    bool readsInput = false;  ///< whether its text is standard input where no option says otherwise
};

/// Of the person that the options name.
std::string senderFor(const Arguments& arguments);
lorvale::SendFormat formatFor(const Arguments& arguments);

/// Fills the letter in by the options, whose text stands before its own, and prints, writes or sends it. Throws
/// Failure for what cannot be read, and for a letter to nobody.
int finishLetter(const Draft& draft, const Arguments& arguments);

}  // namespace mailhost

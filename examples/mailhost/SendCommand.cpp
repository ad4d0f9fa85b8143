#include "Commands.h"
#include "LetterOptions.h"
#include "Mailbox.h"
#include "Work.h"

/// Letters: new ones, replies, and those that pass one on.

namespace mailhost {

namespace {

constexpr auto kNumber = numberWord("N", "the number of a message");
constexpr auto kAll = flag("--all", "to everybody who got the message");
constexpr auto kWords = std::to_array<Parameter>({kMailbox, kNumber});
constexpr auto kReplyOptions = joined(std::to_array<Parameter>({kAll}), kLetterOptions);

int runSend(const Arguments& arguments) {
    if (!arguments.has(kLetterSubject)) throw UsageError("send needs --subject");
    return finishLetter({lorvale::newLetter(senderFor(arguments), formatFor(arguments)), true}, arguments);
}

/// Makes a letter out of a message, and finishes it.
template <class Make>
int answer(const Arguments& arguments, Make make) {
    const Mailbox mailbox(arguments[kMailbox]);
    const auto number = arguments[kNumber];
    const auto original = mailbox.message(number);
    int status = 0;
    workOn(nameOfMessage(number), original->messageSize(), [&] {
        original->headers()->allHeaders();
        if (original->bytesAreMissing()) throwUnreadable(nameOfMessage(number));
        status = finishLetter({make(*original), false}, arguments);
    });
    return status;
}

int runReply(const Arguments& arguments) {
    const auto whom = arguments.has(kAll) ? lorvale::ReplyTo::all : lorvale::ReplyTo::sender;
    return answer(arguments, [&](lorvale::Message& original) {
        return lorvale::replyTo(original, whom, senderFor(arguments), formatFor(arguments));
    });
}

int runForward(const Arguments& arguments) {
    return answer(arguments, [&](lorvale::Message& original) {
        return lorvale::forwardOf(original, senderFor(arguments), formatFor(arguments));
    });
}

}  // namespace

const Command forwardCommand = {
    .name = "forward",
    .summary = "passes a message on, with its attachments",
    .description =
        "Composes a letter with the text and the attachments of message N of a mailbox behind its main "
        "headers, "
        "and sends it to those of --to. The text of --body or --html stands in front. The other options are "
        "those of send.",
    .words = kWords,
    .options = kLetterOptions,
    .run = runForward,
};

const Command replyCommand = {
    .name = "reply",
    .summary = "answers a message",
    .description =
        "Composes an answer to message N of a mailbox, to its sender or with --all to everybody who got it; "
        "--to names others. The text of --body or --html stands in front of the text of the message, which is "
        "quoted. Subject and references carry the thread on. The other options are those of send.",
    .words = kWords,
    .options = kReplyOptions,
    .run = runReply,
};

const Command sendCommand = {
    .name = "send",
    .summary = "writes a letter",
    .description =
        "Composes a letter and sends it. The text is that of --body, or the page of --html, whose pictures "
        "that "
        "lie beside it go with it; else it is read from standard input. What is to be seen of a page goes "
        "along "
        "as plain text too. A folder that is attached goes as an archive.\n\n"
        "Without --via and --host the user defaults DeliveryMethod, SMTPHost and Mailer say how it goes. Each "
        "recipient that the server refuses is named, with its words, and the exit status is 1; the others get "
        "the "
        "letter. In JSON the one line has the members complete, refused (objects with recipient and reply) and "
        "failure, where there was one.\n\n"
        "--dry-run prints the letter instead. In JSON that gives the members from, to, cc, subject, date, "
        "message-id, size (in bytes) and base64, the whole letter.",
    .words = {},
    .options = kLetterOptions,
    .run = runSend,
};

}  // namespace mailhost

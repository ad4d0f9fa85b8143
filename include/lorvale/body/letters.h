#pragma once
#include <memory>
#include <string>
#include <string_view>

#include "lorvale/defaults.h"
#include "lorvale/export.h"

/// Letters to send: new ones, replies, and those that pass another one on.  A letter is a message without a
/// mailbox; what a text and its files become is told in docs/composing.md.

namespace lorvale {

class AttributedText;
class Message;

/// An empty one, without text and recipients.  Plain: attributes and attachments of its text are not sent.
/// `from` is a mailbox ("Jane <jane@x.example>"), or empty.
LORVALE_EXPORT std::shared_ptr<Message> newLetter(std::string_view from = {},
                                                  SendFormat format = SendFormat::MIME);

enum class ReplyTo { sender, all };

/// A reply: to the addresses that ask for it, else to the sender, or to those the letter went to where it is
/// the user's own; with ReplyTo::all also to everybody else but the user and `from`.  "Re: " stands once in
/// front of the subject, "In-Reply-To:" and "References:" carry the thread on (RFC 5322, section 3.6.4), and
/// the text quotes the original, without its signature.
LORVALE_EXPORT std::shared_ptr<Message> replyTo(Message& original, ReplyTo whom = ReplyTo::sender,
                                                std::string_view from = {},
                                                SendFormat format = SendFormat::MIME);

/// A letter with the original's text and attachments behind a line for each of its main headers; "Fwd: " stands
/// in front of the subject.
LORVALE_EXPORT std::shared_ptr<Message> forwardOf(Message& original, std::string_view from = {},
                                                  SendFormat format = SendFormat::MIME);

/// "Date:" and "Message-ID:" where they are missing (RFC 5322, section 3.6), and what a listing shows of the
/// letter.  Called when all other headers are set.
LORVALE_EXPORT void completeLetter(Message& letter);

/// A text as a reply quotes it: its lines behind "> ", those that are quotes behind one more ">"; blanks at the
/// ends of lines, a signature and attachments go.
LORVALE_EXPORT std::string quotedText(const AttributedText& text);

}  // namespace lorvale

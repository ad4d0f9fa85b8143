#pragma once
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "lorvale/body.h"
#include "lorvale/imap.h"
#include "lorvale/message.h"

/// The tree of parts that a MIME message is.

namespace mailhost {

/// Null for a body of another kind; throws Failure when the bytes cannot be had.
std::shared_ptr<lorvale::MimeBodyPart> partsOf(lorvale::Message& message);
/// What a header block says of the body behind it.
std::shared_ptr<lorvale::MimeBodyPart> partOfHeaders(lorvale::MessageHeaders& headers);

/// "text/plain"; what a part without a type is taken for.
std::string typeOf(const lorvale::MimeBodyPart& part);
/// Nullopt when the parts cannot be had.
std::optional<std::size_t> attachmentCount(lorvale::Message& message);

/// A line for each part, inner ones indented.
void printParts(lorvale::MimeBodyPart& root);
/// As a server tells them, with their sizes as they are encoded.
void printParts(const lorvale::IMAPBodyPart& root);
/// An object with the members part, type, charset, transferEncoding, name, size, attachment and parts.
std::string partsAsJson(lorvale::MimeBodyPart& root);
std::string partsAsJson(const lorvale::IMAPBodyPart& root);

}  // namespace mailhost

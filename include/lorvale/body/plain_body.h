#pragma once
#include <memory>
#include <optional>
#include <string>

#include "lorvale/export.h"
#include "lorvale/message/body.h"

namespace lorvale {

class MessageHeaders;

/// A body that is text and nothing else.  It is not in the registry of classes, whose most willing one reads a
/// message: it would take all mail that says nothing of its body, and MimeBody reads that.  It is there for
/// those who ask for it by name, as Message::emptyMessageWithBodyClass().
class LORVALE_EXPORT PlainBody : public MessageBody {
public:
    static float willingnessToDecode(MessageHeaders& headers);
    /// For asking by name, and for a host that wants it in the registry after all.
    static const MessageBodyClass& bodyClass();

    std::string className() const override { return "PlainBody"; }

protected:
    std::shared_ptr<const AttributedText> decodeBody() override;
    std::optional<Data> encodeBody() override;

private:
    bool shouldDecodeSoftLinebreaks();
    Data encodeByStandard(const AttributedText& text);
};

}  // namespace lorvale

#pragma once
#include <memory>

#include "lorvale/body/mime_body.h"

namespace lorvale {

/// The tree of a body, taken for the work of one thread, and given back at the end unless the body was flushed
/// meanwhile.
class MimeBody::Tree {
public:
    explicit Tree(MimeBody& body);
    ~Tree();
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    /// Null when it cannot be made.
    const std::shared_ptr<MimeBodyPart>& root() const { return _root; }
    /// The part that is shown; null without a root.
    std::shared_ptr<MimeBodyPart> alternative() const;

private:
    MimeBody& _body;
    std::shared_ptr<MimeBodyPart> _root;
    int _version = 0;
};

}  // namespace lorvale

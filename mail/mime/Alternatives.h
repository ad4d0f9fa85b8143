#pragma once
#include <memory>

#include "lorvale/body/mime_body_part.h"

namespace lorvale {

/// Whether a part, or one inside it, can be shown as text.
bool canBeShown(MimeBodyPart& part);

/// The last child that can be shown (RFC 2046, section 5.1.4), else the last one; there is one.
std::shared_ptr<MimeBodyPart> bestAlternative(const MimeBodyPart::Parts& children);

}  // namespace lorvale

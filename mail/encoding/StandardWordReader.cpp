#include <algorithm>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "base/text/NamedCharset.h"
#include "lorvale/values/text.h"
#include "mail/encoding/EncodedWord.h"
#include "mail/encoding/HeaderWords.h"

namespace lorvale {

// RFC 2047, section 6.2: white space between two words goes, all other white space stays.  A word is read also
// where no white space parts it from the text around it, since much mail has it so.
std::string readStandardWords(std::string_view text, StringEncoding preferred) {
    const bool isUtf8 = isValidUtf8(text);
    std::string out;
    const auto appendPlain = [&](std::string_view plain) {
        isUtf8 ? out += plain : out += decodeUnlabelled(plain, preferred);
    };
    Cursor cursor(text);
    auto plainStart = cursor.position();
    while (!cursor.atEnd()) {
        cursor.takeUntil(kWordOpener);
        const auto plain = cursor.takenSince(plainStart);
        const auto read = takeWords(cursor, preferred);
        if (!read) {
            cursor.advance(kWordOpener.size());
            continue;
        }
        appendPlain(plain);
        out += *read;
        plainStart = cursor.position();
    }
    appendPlain(cursor.takenSince(plainStart));
    return out;
}

}  // namespace lorvale

// Reading any value gives text of bounded size.  Writing any value gives ASCII, and reading that gives the
// value back but for its white space, as long as it holds none of the marks that an encoded word gives a
// meaning to.  The standard dialect gives back any value, on lines that are short where they can be.
#include "fuzz/FuzzTarget.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"
#include "mail/encoding/MimeHeaderEncoding.h"
#include "mail/encoding/WordWriter.h"

using namespace lorvale;

namespace {

constexpr StringEncoding kPreferred[] = {StringEncoding::unknown, StringEncoding::utf8,
                                         StringEncoding::isoLatin2, StringEncoding::iso2022JP,
                                         StringEncoding::unicode};

std::string without(std::string text, std::string_view characters) {
    std::erase_if(text, [&](char c) { return characters.find(c) != std::string_view::npos; });
    return text;
}

void requireStandardTrip(std::string_view raw, StringEncoding preferred) {
    const auto written = encodeHeaderValue(raw, preferred, MailDialect::standard);
    fuzz::require(isAscii(written));
    for (const auto line : split(written, '\n')) fuzz::require(line.size() <= 998);
    fuzz::require(decodeHeaderValue(without(written, "\n"), preferred, MailDialect::standard) ==
                  harmlessText(raw));
}

/// A byte of a UTF-8 text costs at most three in another encoding, and none gives more than three.
void requireBounded(std::string_view text, std::size_t inputSize) {
    fuzz::require(text.size() <= 9 * inputSize);
}

}  // namespace

LORVALE_FUZZ_TARGET(raw) {
    const auto text = decodeCString(raw);  // as a header comes from the mail: one character a byte
    for (const auto preferred : kPreferred) {
        for (const auto dialect : {MailDialect::classic, MailDialect::standard}) {
            requireBounded(decodeHeaderValue(text, preferred, dialect), text.size());
            requireBounded(decodeHeaderValue(raw, preferred, dialect), raw.size());
        }
        requireStandardTrip(raw, preferred);
    }

    fuzz::require(isAscii(encodeHeaderValue(raw, StringEncoding::unknown)));
    if (!isValidUtf8(raw)) return;
    const auto plain = without(std::string(raw), "=?_ \t\n\v\f\r\x1B");
    const auto back =
        decodeHeaderValue(encodeHeaderValue(plain, StringEncoding::unknown), StringEncoding::unknown);
    fuzz::require(without(back, " \n") == plain);
}

#include "mail/mime/TransferDecoding.h"

#include <algorithm>
#include <array>

#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "mail/encoding/TransferDecoders.h"
#include "mail/mime/TextBlocks.h"

namespace lorvale {

namespace {

template <class Append>
Data decodedBy(Append append, const Data& data) {
    ByteBuffer out(data.size() / 4 * 3 + 3);
    append(out, data.view());
    return out.data();
}

std::optional<Data> decodeClassically(const Data& data, const std::optional<std::string>& encoding) {
    if (isIdentityEncoding(encoding)) return data;
    if (isKeyEqual(*encoding, "base64")) return decodeBase64(data);
    if (isKeyEqual(*encoding, "quoted-printable")) return decodeQuotedPrintable(data);
    if (isUuencode(encoding, MailDialect::classic)) return uudecodedDataIntoFile(data, nullptr, nullptr);
    log("No MIME reader known for \"%@\"--treating as %@", *encoding, "7bit");
    return data;
}

Data decodeByStandard(const Data& data, const std::optional<std::string>& encoding) {
    if (isIdentityEncoding(encoding)) return data;
    if (isKeyEqual(*encoding, "base64")) return decodedBy(appendStandardBase64, data);
    if (isKeyEqual(*encoding, "quoted-printable")) return decodedBy(appendStandardQuotedPrintable, data);
    if (isUuencode(encoding, MailDialect::standard)) {
        const auto block = firstUuencodedBlock(data);
        return block ? block->contents : data;
    }
    return data;
}

}  // namespace

bool isIdentityEncoding(const std::optional<std::string>& encoding) {
    constexpr auto kNames = std::to_array<std::string_view>({"7bit", "8bit", "binary"});
    return !encoding || std::ranges::any_of(kNames, [&](auto name) { return isKeyEqual(*encoding, name); });
}

bool isUuencode(const std::optional<std::string>& encoding, MailDialect dialect) {
    if (!encoding) return false;
    if (isKeyEqual(*encoding, "uuencode")) return true;
    return dialect == MailDialect::standard && isKeyEqual(*encoding, "uue");
}

std::optional<Data> decodeTransferEncoding(const Data& data, const std::optional<std::string>& encoding,
                                           MailDialect dialect) {
    return dialect == MailDialect::classic ? decodeClassically(data, encoding)
                                           : decodeByStandard(data, encoding);
}

}  // namespace lorvale

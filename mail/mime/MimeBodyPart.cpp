#include "lorvale/body/mime_body_part.h"

#include <algorithm>
#include <utility>

#include "base/files/FileSystem.h"
#include "base/text/ByteSet.h"
#include "base/text/NamedCharset.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/mime/Alternatives.h"
#include "mail/mime/ContentType.h"
#include "mail/mime/HeaderFields.h"
#include "mail/mime/LineEnds.h"
#include "mail/mime/Multipart.h"
#include "mail/mime/TransferDecoding.h"

namespace lorvale {

namespace {

constexpr std::string_view kContentType = "content-type";
constexpr std::string_view kTransferEncoding = "content-transfer-encoding";
constexpr std::string_view kDisposition = "content-disposition";

std::string keyOf(std::string_view name) {
    return isAscii(name) ? asciiLowered(name) : lowercased(name);
}

template <class Map>
std::optional<std::string> valueIn(const Map& map, std::string_view key) {
    const auto found = map.find(keyOf(key));
    return found == map.end() ? std::nullopt : std::optional(found->second);
}

bool isEmbeddedMessage(const std::optional<std::string>& type, const std::optional<std::string>& subtype) {
    return type == "message" && (subtype == "rfc822" || subtype == "global" || subtype == "news");
}

}  // namespace

MimeBodyPart::MimeBodyPart(MailDialect dialect) : _dialect(dialect) {
    if (dialect == MailDialect::standard) setMimeType("text", "plain");
}

MimeBodyPart::~MimeBodyPart() = default;

std::shared_ptr<MimeBodyPart> MimeBodyPart::bodyPartWithData(const std::optional<Data>& data,
                                                             MailDialect dialect) {
    return make(data, dialect, 0, false);
}

std::shared_ptr<MimeBodyPart> MimeBodyPart::bodyPartWithContentsOfFile(std::string_view path,
                                                                       MailDialect dialect) {
    const auto data = FileSystem::current().readFile(std::string(path));
    return data ? bodyPartWithData(data, dialect) : nullptr;
}

std::shared_ptr<MimeBodyPart> MimeBodyPart::make(const std::optional<Data>& data, MailDialect dialect,
                                                 std::size_t level, bool isInDigest) {
    auto part = std::make_shared<MimeBodyPart>(dialect);
    part->_level = level;
    if (data && !part->initWithData(*data, isInDigest)) {
        log("MimeBody: couldn't readBodyFromData");
        return nullptr;
    }
    return part;
}

bool MimeBodyPart::initWithData(const Data& data, bool isInDigest) {
    return _dialect == MailDialect::classic ? initClassically(data) : initByStandard(data, isInDigest);
}

bool MimeBodyPart::initClassically(const Data& data) {
    const auto view = data.view();
    if (view.starts_with('\n')) return readBodyPartFromData(data);
    const auto end = view.find("\n\n");
    if (end == std::string_view::npos) {
        log("MimeBody: couldn't find headers, treating as text/plain");
        return readBodyPartFromData(data);
    }
    _headerData = data.subdata(Range{0, end + 1});
    std::optional<std::string> contentType, transferEncoding;
    const bool isWhole = walkClassicFields(_headerData.view(), [&](auto name, auto value) {
        if (equalIgnoringAsciiCase(name, kContentType)) contentType = unfoldedClassicField(value);
        if (equalIgnoringAsciiCase(name, kTransferEncoding)) transferEncoding = unfoldedClassicField(value);
    });
    if (!isWhole) debugLog("setEncodedParamters: bogosity");
    // Without a type nothing is known of the body, so that it is left as it is, whatever its encoding is said
    // to be.
    if (contentType) {
        _mimeEncoding = transferEncoding ? std::optional(decodeCString(*transferEncoding)) : std::nullopt;
        auto type = ContentType::parseClassic(decodeCString(*contentType));
        _mimeType = std::move(type.type);
        _mimeSubtype = std::move(type.subtype);
        _mimeParams = std::move(type.parameters);
    }
    return readBodyPartFromData(data.subdata(Range{end + 2, data.size() - end - 2}));
}

bool MimeBodyPart::initByStandard(const Data& data, bool isInDigest) {
    const char lineEnd = lineEndIn(data.view());
    std::optional<std::string> contentType, disposition;
    const auto header = walkStandardFields(data.view(), lineEnd, [&](auto name, auto value) {
        if ((name[0] | 0x20) != 'c') return;
        const auto take = [&](std::string_view key, std::optional<std::string>& into) {
            if (!into && equalIgnoringAsciiCase(name, key)) into = unfoldedStandardField(value);
        };
        take(kContentType, contentType);
        take(kTransferEncoding, _mimeEncoding);
        take(kDisposition, disposition);
    });
    _headerData = data.subdata(Range{0, header});
    if (_mimeEncoding) _mimeEncoding = singleToken(*_mimeEncoding);
    if (_mimeEncoding && _mimeEncoding->empty()) _mimeEncoding.reset();
    if (contentType) {
        auto type = ContentType::parseStandard(*contentType);
        if (type.type) setMimeType(*type.type, *type.subtype);
        _mimeParams = std::move(type.parameters);
    } else if (isInDigest) {
        setMimeType("message", "rfc822");
    }
    if (disposition) {
        auto parsed = Disposition::parse(*disposition);
        if (!parsed.kind.empty())
            _disposition =
                parsed.kind == "inline" ? ContentDisposition::inlined : ContentDisposition::attachment;
        _dispositionParams = std::move(parsed.parameters);
    }
    return readBodyPartFromData(data.subdata(Range{header, data.size() - header}));
}

/// Decoding waits until somebody asks, but for the one encoding that may fail.
bool MimeBodyPart::readBodyPartFromData(Data data) {
    _encodedData = std::move(data);
    if (_dialect == MailDialect::standard) return true;
    if (isUuencode(_mimeEncoding, _dialect)) {
        _bodyData = decodeTransferEncoding(*_encodedData, _mimeEncoding, _dialect);
        if (!_bodyData) return false;
    }
    const auto charset = mimeParameterForKey("charset");
    _bodyEncoding = charset ? _encodingForCharset(*charset) : preferedMIMEStringEncoding();
    return true;
}

void MimeBodyPart::setMimeType(std::string_view type, std::string_view andSubtype) {
    _mimeType = lowercased(type);
    _mimeSubtype = lowercased(andSubtype);
}

bool MimeBodyPart::isMultipart() const {
    return _mimeType && isKeyEqual(*_mimeType, "multipart");
}

bool MimeBodyPart::isText() const {
    return _mimeType && isKeyEqual(*_mimeType, "text");
}

/// The headers of the block are read for the first one that somebody asks for.
const std::map<std::string, std::string, std::less<>>& MimeBodyPart::loadedHeaders() const {
    if (_hasMimeHeaders) return _mimeHeaders;
    _hasMimeHeaders = true;
    if (_dialect == MailDialect::classic) {
        walkClassicFields(_headerData.view(), [&](auto name, auto value) {
            _mimeHeaders.insert_or_assign(keyOf(decodeCString(name)),
                                          decodeCString(unfoldedClassicField(value)));
        });
    } else {
        walkStandardFields(_headerData.view(), lineEndIn(_headerData.view()), [&](auto name, auto value) {
            _mimeHeaders.try_emplace(asciiLowered(name), decodeUnlabelled(unfoldedStandardField(value),
                                                                          preferedMIMEStringEncoding()));
        });
    }
    return _mimeHeaders;
}

std::optional<std::string> MimeBodyPart::mimeHeaderForKey(std::string_view key) const {
    return valueIn(loadedHeaders(), key);
}

void MimeBodyPart::setMimeHeader(std::string_view value, std::string_view forKey) {
    loadedHeaders();
    _mimeHeaders.insert_or_assign(keyOf(forKey), std::string(value));
}

std::optional<std::string> MimeBodyPart::mimeParameterForKey(std::string_view key) const {
    return valueIn(_mimeParams, key);
}

void MimeBodyPart::setMimeParameter(std::string_view value, std::string_view forKey) {
    _mimeParams.insert_or_assign(keyOf(forKey), std::string(value));
}

/// Whether there is more than characters in the text, as far as the type tells.
bool MimeBodyPart::isRichBody() const {
    return !isText() || (_mimeSubtype && isKeyEqual(*_mimeSubtype, "enriched"));
}

void MimeBodyPart::setMimeEncoding(std::string_view encoding) {
    bodyData();  // behind the encoding that it came in
    if (_bodyData && !isMultipart()) _encodedData.reset();
    _mimeEncoding = encoding;
    _choseEncoding = false;
}

std::optional<Data> MimeBodyPart::bodyData() const {
    if (!_bodyData && _encodedData) _bodyData = decodeTransferEncoding(*_encodedData, _mimeEncoding, _dialect);
    return _bodyData;
}

void MimeBodyPart::setBodyData(std::optional<Data> data) {
    _encodedData.reset();
    _bodyData = std::move(data);
    _bodyString.reset();
    // What was chosen for other bytes.
    if (std::exchange(_choseEncoding, false)) _mimeEncoding.reset();
    if (std::exchange(_choseCharset, false)) _mimeParams.erase("charset");
}

void MimeBodyPart::setBodyParts(Parts parts) {
    setBodyData(std::nullopt);
    _bodyParts = std::move(parts);
    _hasBodyParts = true;
}

const std::string& MimeBodyPart::body() {
    if (!_bodyString) _bodyString = textOfBody();
    return *_bodyString;
}

std::string MimeBodyPart::textOfBody() {
    const auto data = bodyData().value_or(Data());
    if (_dialect == MailDialect::standard) return textOfBytes(data.view());
    const auto encoding = bodyEncoding();
    auto text = decode(data.view(), encoding);
    // A letter that says a charset and holds bytes of another one is still a letter.
    return text ? *std::move(text) : decodeCString(data.view());
}

/// In the standard dialect.
std::string MimeBodyPart::textOfBytes(std::string_view bytes) const {
    const auto charset = mimeParameterForKey("charset");
    auto text = charset ? decodeNamedCharset(bytes, *charset) : std::nullopt;
    if (!text) text = decodeUnlabelled(bytes, preferedMIMEStringEncoding());
    return withNewlines(*std::move(text));
}

StringEncoding MimeBodyPart::bodyEncoding() {
    using enum StringEncoding;
    auto encoding = _encodingForCharset(mimeParameterForKey("charset"));
    if (encoding == unknown) {
        if (_bodyEncoding != unknown) return _bodyEncoding;
        encoding = _bodyEncoding = _bodyString ? bestMIMEStringEncoding(*_bodyString) : isoLatin1;
    }
    if (encoding != isoLatin1) return encoding;
    const auto suspicious = ByteSet::suspiciousCodepage1252ByteSet();
    if (rangeOfByteFromSet(bodyData().value_or(Data()), suspicious).found())
        encoding = _bodyEncoding = windowsCP1252;
    return encoding;
}

const MimeBodyPart::Parts* MimeBodyPart::bodyParts() {
    if (!_hasBodyParts) {
        _hasBodyParts = true;
        if (isMultipart()) {
            _bodyParts = decodeMultipartBody();
        } else if (_dialect == MailDialect::standard && isEmbeddedMessage(_mimeType, _mimeSubtype)) {
            if (const auto message = bodyData(); message && _level < kDeepestLevel)
                _bodyParts = Parts{make(message, _dialect, _level + 1, false)};
        }
    }
    return _bodyParts ? &*_bodyParts : nullptr;
}

std::optional<MimeBodyPart::Parts> MimeBodyPart::decodeMultipartBody() const {
    if (_level >= kDeepestLevel) return std::nullopt;
    const auto boundary = mimeParameterForKey("boundary");
    std::optional<std::vector<Data>> pieces;
    if (_dialect == MailDialect::classic) {
        pieces = splitMultipartClassically(bodyData().value_or(Data()), boundary, kMostChildren);
    } else if (_encodedData || _bodyData) {
        const auto data = _encodedData ? *_encodedData : *_bodyData;
        pieces = splitMultipartByStandard(data, boundary, lineEndIn(data.view()), kMostChildren);
    }
    if (!pieces) return std::nullopt;
    const bool isDigest = _mimeSubtype && isKeyEqual(*_mimeSubtype, "digest");
    Parts parts;
    parts.reserve(pieces->size());
    for (const auto& piece : *pieces)
        if (auto part = make(piece, _dialect, _level + 1, isDigest)) parts.push_back(std::move(part));
    return parts;
}

std::size_t MimeBodyPart::numberOfAlternatives() {
    const bool hasAlternatives = isMultipart() && _mimeSubtype && isKeyEqual(*_mimeSubtype, "alternative");
    const auto* const parts = hasAlternatives ? bodyParts() : nullptr;
    return parts == nullptr ? 0 : parts->size();
}

std::shared_ptr<MimeBodyPart> MimeBodyPart::alternativeAtIndex(int index) {
    const auto count = numberOfAlternatives();
    if (count == 0) return shared_from_this();
    if (index >= 0 && static_cast<std::size_t>(index) < count)
        return (*_bodyParts)[static_cast<std::size_t>(index)];
    return _dialect == MailDialect::classic ? _bodyParts->back() : bestAlternative(*_bodyParts);
}

void MimeBodyPart::flushCachedData() {
    if (_bodyParts)
        for (const auto& part : *_bodyParts) part->flushCachedData();
    loadedHeaders();
    _headerData = Data();
    _encodedData.reset();
    _bodyData.reset();
    _bodyString.reset();
}

std::string MimeBodyPart::description() {
    std::string parts = "<no body parts>";
    if (_bodyParts) {
        parts.clear();
        for (const auto& part : *_bodyParts) parts += "\n" + part->description();
    }
    return formatText("type: %@/%@\nencoding: %@\nattachment:%@\nbody parts:%@\n",
                      _mimeType.value_or("<no type>"), _mimeSubtype.value_or("<no subtype>"),
                      _mimeEncoding.value_or("<no encoding>"), _bodyFile.value_or("<no attachment>"), parts);
}

}  // namespace lorvale

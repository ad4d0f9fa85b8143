#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>

#include "lorvale/export.h"

namespace brindle {

/// A four-character tag or failure code as a number: the first character is the highest byte.
consteval std::uint32_t IATag(const char (&text)[5]) {
    std::uint32_t tag = 0;
    for (int i = 0; i < 4; ++i) tag = tag << 8 | static_cast<unsigned char>(text[i]);
    return tag;
}

/// The one failure of the toolkit.  It carries its texts itself, so that raising it allocates nothing.
class LORVALE_EXPORT IAException : public std::exception {
public:
    static constexpr std::size_t MaxMessageLength = 250;
    static constexpr std::size_t MaxLocationLength = 50;

    /// A message longer than 250 characters is cut to 249.  The code is 0, the location empty.
    explicit IAException(const char* message);
    IAException(const IAException&) noexcept = default;
    IAException& operator=(const IAException&) noexcept = default;
    ~IAException() override;

    const char* what() const noexcept override;
    const char* What() const noexcept { return what(); }

    /// Appends to the location.  A text longer than 50 characters is cut to 49 first, and the whole
    /// location never grows beyond 50.
    void SetLocation(const char* location);
    const char* GetLocation() const noexcept { return location.data(); }

    void SetCode(std::int32_t newCode) noexcept { code = newCode; }
    std::int32_t GetCode() const noexcept { return code; }

private:
    std::array<char, MaxMessageLength + 1> message{};
    std::array<char, MaxLocationLength + 1> location{};
    std::int32_t code = 0;
};

/// Sees every failure right before it is thrown: message, location, code.  Null at the start.  The hook may
/// throw an exception of its own, which then takes the place of the IAException.
using IAExceptionHookProc = void (*)(const char* message, const char* location, std::int32_t code);
LORVALE_EXPORT void IASetExceptionHookProc(IAExceptionHookProc hook);
LORVALE_EXPORT IAExceptionHookProc IAGetExceptionHookProc();

/// Calls the hook, if there is one, then throws a copy.
[[noreturn]] LORVALE_EXPORT void IAThrowException(IAException exception);

/// Raises an IAException whose location is "file : line".  The condition is there for a debugger only.
[[noreturn]] LORVALE_EXPORT void IAAssertionFunc(const char* file, int line, const char* condition,
                                                 const char* message, std::int32_t code);

/// The name of a source file without its folder and its extension, made at compile time.
template <std::size_t N>
struct IAFileStem {
    char text[N]{};
    consteval explicit IAFileStem(const char (&path)[N]) {
        std::size_t begin = 0;
        for (std::size_t i = 0; i + 1 < N; ++i)
            if (path[i] == '/') begin = i + 1;
        for (std::size_t i = begin; i + 1 < N && path[i] != '.'; ++i) text[i - begin] = path[i];
    }
};

/// Raises `message` with `code`, at this line, unless `condition` holds.
#define IAAssertion(condition, message, code)                                                     \
    do {                                                                                          \
        if (!(condition)) [[unlikely]] {                                                          \
            static constexpr ::brindle::IAFileStem iaFileStem(__FILE__);                          \
            ::brindle::IAAssertionFunc(iaFileStem.text, __LINE__, #condition, (message), (code)); \
        }                                                                                         \
    } while (false)

/// Raises `message` with `code`, at this line.
#define IAFail(message, code)                                                              \
    do {                                                                                   \
        static constexpr ::brindle::IAFileStem iaFileStem(__FILE__);                       \
        ::brindle::IAAssertionFunc(iaFileStem.text, __LINE__, "false", (message), (code)); \
    } while (false)

consteval std::int32_t IACode(const char (&text)[5]) {
    return static_cast<std::int32_t>(IATag(text));
}

/// "QFLT": a failure inside the toolkit itself.
inline constexpr std::int32_t IAAssertionFailure = IACode("QFLT");

inline constexpr std::int32_t StoreError = IACode("VSEr");
inline constexpr std::int32_t StoreFull = IACode("VSFu");
inline constexpr std::int32_t StorePastBlockEnd = IACode("VSPB");
inline constexpr std::int32_t StorePastEOF = IACode("VSEo");

inline constexpr std::int32_t StorageInvalid = IACode("VSIV");
inline constexpr std::int32_t StorageNotInitialized = IACode("VSNI");
inline constexpr std::int32_t StorageNotOpen = IACode("VSNO");
inline constexpr std::int32_t StorageAlreadyOpen = IACode("VSAO");
inline constexpr std::int32_t StorageFull = IACode("VSDF");
inline constexpr std::int32_t StorageNotWritable = IACode("VSNW");
inline constexpr std::int32_t StorageBlockIDInvalid = IACode("VSBI");
inline constexpr std::int32_t StorageBlockNameAllocated = IACode("VSNT");
inline constexpr std::int32_t OrderedStorableSetEntryTooBig = IACode("VSBE");

inline constexpr std::int32_t IndexInvalid = IACode("VIIV");
inline constexpr std::int32_t IndexNotInitialized = IACode("VINI");
inline constexpr std::int32_t IndexNotOpen = IACode("VINO");
inline constexpr std::int32_t IndexAlreadyOpen = IACode("VIAO");
inline constexpr std::int32_t IndexDocAlreadyIndexed = IACode("VIAI");
inline constexpr std::int32_t IndexDocNotIndexed = IACode("VIDN");

inline constexpr std::int32_t InvalidDocument = IACode("VCID");
inline constexpr std::int32_t InvalidDocID = IACode("VIID");
inline constexpr std::int32_t InvalidTermID = IACode("VIIT");
inline constexpr std::int32_t CorpusIteratorOutOfOrder = IACode("VCIO");
inline constexpr std::int32_t AnalysisSpanUnavailable = IACode("VASU");
inline constexpr std::int32_t TextSpanUnavailable = IACode("VTSU");
inline constexpr std::int32_t NoInputTokenizer = IACode("VTNI");

inline constexpr std::int32_t IAAccessorAlreadyInitialized = IACode("VAAI");
inline constexpr std::int32_t IAAccessorNotInitialized = IACode("VANI");
inline constexpr std::int32_t IAAccessorInitInvalid = IACode("VAIV");
inline constexpr std::int32_t IAAccessorUpdateInvalid = IACode("VAUI");
inline constexpr std::int32_t IAAccessorInvalidQuery = IACode("VAIQ");

inline constexpr std::int32_t UFSDirectoryNotFound = IACode("VCUD");
inline constexpr std::int32_t UFSError = IACode("VCUE");
inline constexpr std::int32_t OutOfRangeSentenceNumber = IACode("ABSE");
inline constexpr std::int32_t IARouterAlreadyInitialized = IACode("VRAI");
inline constexpr std::int32_t IARouterNotInitialized = IACode("VRNI");

}  // namespace brindle

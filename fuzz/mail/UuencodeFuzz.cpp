// What was encoded comes back with its name and mode; what is decoded from anything is bounded by the input.
#include "fuzz/mail/CodecFuzz.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"

using namespace lorvale;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    [[maybe_unused]] static const auto before = setLogSink([](std::string_view) {});
    const auto data = Data::ofStatic(fuzz::viewOf(bytes, size));
    const int wanted = static_cast<int>(size & 0777);
    std::string name;
    int mode = -1;
    const auto back = uudecodedDataIntoFile(uuencodedDataWithFile(data, "a name", wanted), &name, &mode);
    fuzz::require(back && *back == data && name == "a name" && mode == wanted);

    name = "unset";
    const auto decoded = uudecodedDataIntoFile(data, &name, &mode);
    fuzz::require(decoded ? decoded->size() <= 63 * size : name == "unset");
    return 0;
}

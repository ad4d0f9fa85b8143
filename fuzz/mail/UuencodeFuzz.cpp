// What was encoded comes back with its name and mode; what is decoded from anything is bounded by the input.
#include "fuzz/FuzzTarget.h"
#include "lorvale/mime.h"

using namespace lorvale;

LORVALE_FUZZ_TARGET(input) {
    const auto data = Data::ofStatic(input);
    const int wanted = static_cast<int>(input.size() & 0777);
    std::string name;
    int mode = -1;
    const auto back = uudecodedDataIntoFile(uuencodedDataWithFile(data, "a name", wanted), &name, &mode);
    fuzz::require(back && *back == data && name == "a name" && mode == wanted);

    name = "unset";
    const auto decoded = uudecodedDataIntoFile(data, &name, &mode);
    fuzz::require(decoded ? decoded->size() <= 63 * input.size() : name == "unset");
}

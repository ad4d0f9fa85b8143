// A program linked to the shared library as any other program is.  Ends with 0 when each exception that the
// library throws is known by its class out here.

#include <iostream>

#include "lorvale/platform/exception.h"
#include "lorvale/toolkit.h"
#include "lorvale/values.h"

namespace {

template <class Wanted, class Action>
bool throws(const char* what, Action action) {
    try {
        action();
    } catch (const Wanted&) {
        return true;
    } catch (const std::exception& other) {
        std::cerr << what << " threw " << other.what() << '\n';
        return false;
    }
    std::cerr << what << " threw nothing\n";
    return false;
}

}  // namespace

int main() {
    const auto pastTheEnd = [] { static_cast<void>(lorvale::AttributedText().runAtIndex(0)); };
    bool good = throws<lorvale::RangeException>("a range", pastTheEnd);
    good = throws<lorvale::NamedException>("a base class", pastTheEnd) && good;
    good = throws<lorvale::InvalidArgumentException>(
               "an argument", [] { lorvale::FileWrapper::regularFile({})->addFileWrapper(nullptr); }) &&
           good;
    good = throws<brindle::IAException>("the toolkit",
                                        [] { brindle::IAAssertionFunc("file", 1, "false", "text", 0); }) &&
           good;
    return good ? 0 : 1;
}

#include "mail/mime/ComposedBoundary.h"

#include <ctime>
#include <random>

#include "lorvale/body/mime_body.h"
#include "lorvale/message/dates.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/values/format.h"

namespace lorvale {

namespace {

/// Numbers of 31 bits.  A generator of our own: the one of the C library is the host's to seed.
struct BoundaryCounter {
    Mutex mutex;
    int next LORVALE_GUARDED_BY(mutex) = 1;
    std::minstd_rand random LORVALE_GUARDED_BY(mutex);
};

}  // namespace

std::string MimeBody::makeMimeBoundary() {
    static BoundaryCounter counter;
    const MutexLock lock(counter.mutex);
    if (counter.next == 1) counter.random.seed(static_cast<std::minstd_rand::result_type>(std::time(nullptr)));
    const auto number = counter.random();
    return formatText("Orrin-Mail-%ld-%d", number, counter.next++);
}

std::string composedBoundary() {
    const auto id = makeMessageID("b");  // "<random@b>"
    return "=_" + id.substr(1, id.find('@') - 1);
}

}  // namespace lorvale

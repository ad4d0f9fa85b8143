#include "mail/stores/MboxPass.h"

#include <chrono>
#include <ctime>
#include <thread>

#include "mail/stores/MboxNumbers.h"

namespace lorvale {

void letClockTick(const FileAttributes& file) {
    const auto changed = std::chrono::seconds(file.changed) + std::chrono::nanoseconds(file.changedNanoseconds);
    for (int waited = 0; waited < 20; ++waited) {
        struct timespec time {};
        ::clock_gettime(CLOCK_REALTIME_COARSE, &time);
        const auto now = std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
        // A time in the future comes from another machine's clock, for which there is no waiting.
        if (now > changed || changed > now + std::chrono::seconds(1)) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

std::optional<Data> readMboxBytes(ReadableFile& file, MboxRange range, std::uint32_t digest) {
    ByteBuffer buffer(range.length);
    const auto room = reinterpret_cast<char*>(buffer.reserve(range.length));
    if (file.readInto({room, range.length}, range.location) != range.length) return std::nullopt;
    buffer.commit(range.length);
    if (digestOf(buffer.view()) != digest) return std::nullopt;
    return buffer.data();
}

MboxPass::Outcome MboxPass::begin() {
    const auto before = _file.attributes();
    if (!before) return Outcome::failed;
    _attributes = *before;
    _sizeAtBeginning = sizeOf(*before);
    if (sizeOf(*before) > kLargestMbox) return Outcome::tooLarge;
    letClockTick(*before);
    _block = std::make_unique_for_overwrite<char[]>(kMboxBlock);
    return Outcome::done;
}

bool MboxPass::step() {
    if (!_block) _outcome = begin();
    if (_outcome != Outcome::done) return false;
    const auto count = _file.readInto({_block.get(), kMboxBlock}, size());
    if (!count) return _outcome = Outcome::failed, false;
    _scanner.add({_block.get(), *count});
    if (*count == kMboxBlock && size() <= kLargestMbox) return true;
    _scanner.finish();
    _outcome = end();
    return false;
}

MboxPass::Outcome MboxPass::end() {
    const auto before = _attributes;
    const auto after = _file.attributes();
    if (!after) return Outcome::failed;
    _attributes = *after;
    if (sizeOf(*after) > _sizeAtBeginning && sizeOf(*after) >= size()) return Outcome::grown;
    return sizeOf(*after) == size() && sameTime(*after, before) ? Outcome::done : Outcome::disturbed;
}

}  // namespace lorvale

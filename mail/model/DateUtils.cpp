#include "mail/model/DateUtils.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <numeric>

#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"

namespace lorvale {

namespace {

constexpr auto kFormats = std::to_array<std::string_view>({
    "%a, %e %b %y %H:%M:%S %z", "%a, %e %b %y %H:%M:%S %Z", "%a %b %e %H:%M:%S %Y",
    "%d %b %y %H:%M:%S %z",     "%A, %d %B %Y %H:%M:%S %Z", "%Y-%m-%d %H:%M:%S %z",
    "%e %b %y %H:%M %z",        "%a, %e %b %Y %H:%M %Z",    "%a, %e %b %y %H:%M %Z",
    "%a, %e %b %Y %H:%M %z",    "%a, %e %b %Y %H:%M:%S %z", "%a, %e %b %Y %H:%M:%S %Z",
    "%a, %d %b %y %H:%M:%S %z", "%a, %d %b %Y %H:%M:%S %z", "%e %b %y %H:%M:%S %z",
    "%e %b %Y %H:%M:%S %z",     "%e %b %Y %H:%M:%S %Z",     "%e %b %y %H:%M:%S %Z",
    "%a, %d %b %Y %H:%M:%S",    "%d %b %y %H:%M:%S",
});
static_assert(kFormats.size() == 20);

/// The formats in an order that follows the mail: the last one that fitted stands in front.
class FormatTable {
public:
    using Order = std::array<std::uint8_t, kFormats.size()>;

    FormatTable() { std::iota(_order.begin(), _order.end(), std::uint8_t{0}); }

    std::optional<Date> read(std::string_view text) {
        // Nearly every date ends here, without a lock.
        const auto front = _front.load(std::memory_order_relaxed);
        if (const auto date = Date::dateWithString(text, kFormats[front])) return date;
        for (const auto format : order()) {
            if (format == front) continue;
            if (const auto date = Date::dateWithString(text, kFormats[format])) {
                moveToFront(format);
                return date;
            }
        }
        return std::nullopt;
    }

    Order order() const {
        const MutexLock lock(_mutex);
        return _order;
    }

private:
    /// The format changes places with the one in front.
    void moveToFront(std::uint8_t format) {
        const MutexLock lock(_mutex);
        std::swap(*std::ranges::find(_order, format), _order.front());
        _front.store(format, std::memory_order_relaxed);
    }

    mutable Mutex _mutex;
    Order _order LORVALE_GUARDED_BY(_mutex);
    std::atomic<std::uint8_t> _front = 0;  // _order.front(), for those that do not lock
};

FormatTable& formatTable() {
    static FormatTable table;
    return table;
}

}  // namespace

std::optional<Date> dateInCommonFormatsWithString(std::string_view text) {
    if (text.empty()) return std::nullopt;
    // No format knows comments, and every fifth date of real mail has one behind its zone.
    const bool hasComment = text.find('(') != std::string_view::npos;
    if (!hasComment) {
        if (const auto date = formatTable().read(text)) return date;
    }
    if (const auto date = dateInTolerantForm(text)) return date;
    constexpr std::size_t kEnoughToRecognise = 100;
    log("Can't read date: %@", text.substr(0, kEnoughToRecognise));
    return std::nullopt;
}

std::vector<std::string_view> commonDateFormats() {
    std::vector<std::string_view> formats;
    for (const auto format : formatTable().order()) formats.push_back(kFormats[format]);
    return formats;
}

}  // namespace lorvale

#include "lorvale/mime/dialect.h"

#include <atomic>

#include "lorvale/values/text.h"

namespace lorvale {

namespace {

std::atomic<MailDialect> choice{MailDialect::classic};

}  // namespace

MailDialect mailDialect() {
    return choice.load(std::memory_order_relaxed);
}

void setMailDialect(MailDialect dialect) {
    choice.store(dialect, std::memory_order_relaxed);
}

std::optional<MailDialect> mailDialectNamed(std::string_view name) {
    if (equalIgnoringAsciiCase(name, "classic")) return MailDialect::classic;
    if (equalIgnoringAsciiCase(name, "standard")) return MailDialect::standard;
    return std::nullopt;
}

}  // namespace lorvale

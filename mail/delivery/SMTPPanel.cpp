#include "lorvale/defaults.h"
#include "lorvale/delivery/smtp_delivery.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/user_interface.h"
#include "mail/delivery/DeliverySteps.h"

namespace lorvale {

SMTPPanel& SMTPPanel::defaultPanel() {
    static SMTPPanel& panel = *new SMTPPanel;
    return panel;
}

std::optional<std::string> SMTPPanel::getNewHostWithMessage(std::string_view message,
                                                            std::optional<std::string> oldHost) {
    auto& defaults = Defaults::sharedInstance();
    if (!defaults.canUseWindowKit()) {
        log("%@", withAdvice(message));
        return std::nullopt;
    }
    auto& interface = currentUserInterface();
    auto shown = oldHost ? *oldHost : defaults.SMTPHost();
    for (;;) {
        interface.beep();
        auto host = interface.askForHost(message, shown);
        if (!host || !host->empty()) return host;
        shown = defaults.SMTPHost();  // an empty field is no answer
    }
}

}  // namespace lorvale

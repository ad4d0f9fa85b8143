#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/user_interface.h"
#include "lorvale/store.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {

/// A host with windows while it lives, whose user presses one button.
class WindowHost : public UserInterface {
public:
    explicit WindowHost(AlertChoice choice = AlertChoice::alternateButton) : _choice(choice) {
        setCurrentUserInterface(this);
        Defaults::sharedInstance().setCanUseWindowKit(true);
    }
    ~WindowHost() override {
        Defaults::sharedInstance().setCanUseWindowKit(false);
        setCurrentUserInterface(nullptr);
    }

    AlertChoice runAlertPanel(std::string_view title, std::string_view message, std::string_view first,
                              std::string_view second, std::string_view third) override {
        for (const auto text : {title, message, first, second, third}) asked.emplace_back(text);
        return _choice;
    }
    void beep() override { ++beeps; }
    void terminate() override { ++terminations; }

    std::vector<std::string> asked;
    int beeps = 0, terminations = 0;

private:
    const AlertChoice _choice;
};

/// One message for a mailbox: an envelope line, a few headers, a body.
inline std::string mboxMessage(std::string_view name, std::string_view body = "hello\n") {
    std::string text("From ");
    text.append(name).append("@x.example Thu Aug 22 12:46:23 2002\nFrom: ").append(name);
    text.append("@x.example\nSubject: about ").append(name).append("\n\n").append(body).append("\n");
    return text;
}

inline std::shared_ptr<Message> messageOf(std::string_view bytes) {
    return Message::messageWithData(Data::copyOf(bytes));
}

inline std::string bytesOf(Message& message) {
    const auto store = message.messageStore();
    if (!store) return "(no store)";
    const auto head = store->allHeadersForMessage(message), body = store->bodyForMessage(message);
    return head && body ? head->toString() + body->toString() : "(no bytes)";
}

inline std::vector<std::string> bytesOf(const MessageList& messages) {
    std::vector<std::string> all;
    for (const auto& message : messages) all.push_back(bytesOf(*message));
    return all;
}

}  // namespace lorvale::testing

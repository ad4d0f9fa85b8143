#pragma once
#include "lorvale/platform/user_interface.h"

namespace mailhost {

/// Shows the library's progress on one line of the terminal; nothing where standard error is none.  Its button
/// is the interrupt, which the command deals with.  Set before Defaults is first asked it would count as a
/// program with windows, so it takes care that it does not.
class ConsoleProgress : public lorvale::UserInterface {
public:
    ConsoleProgress();
    ~ConsoleProgress() override;
    std::unique_ptr<lorvale::ProgressPanel> makeProgressPanel(std::function<void()> cancel) override;
};

}  // namespace mailhost

#pragma once
#include <memory>

#include "lorvale/account/local_account.h"

namespace lorvale {

/// LocalAccount::localAccount(), but null as long as none has been made.  Any thread.
std::shared_ptr<LocalAccount> localAccountIfAny();
/// As if none had been made in this process.
void forgetLocalAccount();

}  // namespace lorvale

#include "tests/support/StoreSupport.h"

#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace lorvale::testing {

int inChild(const std::function<int()>& work) {
    const auto child = ::fork();
    if (child == 0) ::_exit(work());
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        throw std::runtime_error("the child process failed");
    return WEXITSTATUS(status);
}

}  // namespace lorvale::testing

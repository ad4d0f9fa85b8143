#pragma once
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "RunProgram.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {

/// A user with a home of his own, and the command lines that he types there.
class MailhostUser : public ::testing::Test {
protected:
    std::string at(std::string_view name) const { return (folder / name).string(); }
    Outcome run(const std::string& commands) const {
        return runShell("cd " + shellWord(folder.path().string()) + "; export HOME=$PWD XDG_CONFIG_HOME=; " +
                        commands);
    }
    /// The output of what succeeds.
    std::string good(const std::string& commands) const {
        const auto outcome = run(commands);
        EXPECT_EQ(outcome.status, 0) << commands << "\n" << outcome.errors;
        return outcome.output;
    }
    /// The errors of what fails.
    std::string bad(const std::string& commands) const {
        const auto outcome = run(commands);
        EXPECT_EQ(outcome.status, 1) << commands << "\n" << outcome.output;
        return outcome.errors;
    }

    const TemporaryFolder folder;
};

}  // namespace lorvale::testing

#pragma once
#include <string>
#include <string_view>

namespace lorvale::testing {

struct Outcome {
    int status = -1;  ///< the exit status; 128 + the number of the signal that ended it
    std::string output, errors;
};

/// Runs a command line of the shell in the source folder, without input, under the same time zone and language
/// for everybody; `mailhost` in it is the one just built.
Outcome runShell(const std::string& commandLine);

/// A text as one word of the shell.
std::string shellWord(std::string_view text);

/// One JSON value and nothing else, in valid UTF-8.
bool isJson(std::string_view text);

}  // namespace lorvale::testing

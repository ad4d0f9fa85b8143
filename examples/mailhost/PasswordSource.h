#pragma once
#include <cstdint>
#include <string>

/// Where a password comes from when it is not typed, so that it stands in no list of processes.  Both throw
/// Failure when there is none to be had.

namespace mailhost {

/// The next line of a file descriptor that whoever starts this program has opened.
std::string passwordFromDescriptor(std::uint64_t descriptor);
/// The first line of what a command of the shell prints.
std::string passwordFromCommand(const std::string& command);

}  // namespace mailhost

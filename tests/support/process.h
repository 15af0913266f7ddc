// Running other programs, for tests.
#pragma once

#include <string>
#include <vector>

namespace nal_test {

struct ProcessResult {
    int exitCode = -1;  ///< -1 when the program could not be started or a signal ended it
    std::string output;
    std::string errors;
};

/// Runs a program to its end, with nothing on its standard input.
/// @param command      the program, looked up in PATH, and its arguments
/// @param environment  "NAME=value" texts that are added to this process's environment
/// @throws std::system_error when no process can be made
ProcessResult RunProcess(const std::vector<std::string>& command, const std::vector<std::string>& environment = {});

}  // namespace nal_test

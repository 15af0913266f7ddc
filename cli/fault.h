// How commands fail: what to say, what to do about it, and the exit code.
#pragma once

#include <exception>
#include <string>
#include <vector>

#include "nal/nal.h"

namespace cli {

/// The exit codes of the program. docs/nal.md describes them to operators.
enum ExitCode : int {
    kGood = 0,
    kCheckFailed = 1,  ///< a signature, certificate or other thing was checked and is not good
    kUsage = 2,        ///< the command line
    kInput = 3,        ///< a file that is missing, damaged or of another kind
    kKeys = 4,         ///< keys, containers, passwords
    kSystem = 5,       ///< no room, no access, closed output
};

/// A failure as the operator is told of it.
class Fault : public std::exception {
public:
    /// @param message  what happened, and to which file, in one line; empty when there is nothing that the operator need be told
    /// @param hint     what to do; may be empty
    /// @param status   the library's status, 0 when there is none
    /// @param details  lines to be listed below the message. Line ends within any of these are not the program's own, and are escaped
    Fault(ExitCode exit, std::string message, std::string hint = {}, int status = 0, std::vector<std::string> details = {})
        : m_exit(exit), m_message(std::move(message)), m_hint(std::move(hint)), m_status(status), m_details(std::move(details)) {}

    ExitCode Exit() const { return m_exit; }
    const std::string& Message() const { return m_message; }
    const std::string& Hint() const { return m_hint; }
    int Status() const { return m_status; }
    const std::vector<std::string>& Details() const { return m_details; }
    const char* what() const noexcept override { return m_message.c_str(); }

private:
    ExitCode m_exit;
    std::string m_message;
    std::string m_hint;
    int m_status;
    std::vector<std::string> m_details;
};

/// The operator stopped the program.
struct Stopped {};

/// The words for a status, with the name of what failed.
std::string StatusText(int status, const std::string& where);

/// The exit code that goes with a status.
ExitCode ExitOf(int status);
/// The exit code that goes with an errno of a path or descriptor: `wrong` when another one should have been named, else kSystem.
ExitCode ExitOfErrno(int error, ExitCode wrong = kInput);

/// What the library threw, or a status with its text, about one file. `file` may be empty.
/// @throws Stopped when the status says that the operator stopped it
Fault FaultOf(const XTOOStatus& status, const std::string& file);
Fault FaultOf(int status, const CTOOString& text, const std::string& file);

/// Throws the fault for a function that answered FALSE with a last error.
[[noreturn]] void FailWithLastError(const std::string& what, const std::string& file);

/// Runs `work`; what the library throws meanwhile becomes a fault about `file`.
template <class Work>
auto About(const std::string& file, Work&& work) {
    try {
        return work();
    } catch (const XTOOStatus& status) {
        throw FaultOf(status, file);
    }
}

}  // namespace cli

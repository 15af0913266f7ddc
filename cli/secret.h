// Passwords: from a prompt without echo, a file or a descriptor; wiped when they are done with.
#pragma once

#include <string>
#include <vector>

#include "cli/fault.h"

namespace cli {

class Options;

/// A text that is wiped with its owner. It never moves, so that no copy stays behind.
class Secret {
public:
    static constexpr std::size_t kMost = 1024;

    Secret() = default;
    ~Secret() { Wipe(); }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    const char* c_str() const { return m_text; }
    bool empty() const { return m_size == 0; }
    std::size_t size() const { return m_size; }
    /// @return false when it is full
    bool Append(char c);
    void Wipe();
    bool operator==(const Secret& other) const;

private:
    char m_text[kMost + 1] = {};
    std::size_t m_size = 0;
};

/// Where a password comes from, as the options say.
struct PasswordSource {
    std::string file;
    int descriptor = -1;
    bool none = false;  ///< there is to be none
    std::string name = "password";  ///< its options are --<name>-file, ...
    bool mayBeNone = false;

    /// Adds --<name>-file and --<name>-fd; with `allowNone` also --no-<name>. @param name  "password", "new-password", "pin"
    void Define(Options& options, const std::string& name, bool allowNone = false);
    bool IsGiven() const { return !file.empty() || descriptor >= 0 || none; }
    /// What it is called: "password", "new PIN".
    std::string Words() const;
};

/// Gets a password that exists: from its source or, without one, from the prompt.
///
/// A file or descriptor gives its first line, and must hold nothing behind it. A password with a zero byte is refused.
/// @throws Fault when there is neither source nor terminal; Stopped on Ctrl-C, with the terminal as it was
void GetPassword(const PasswordSource& source, const std::string& prompt, Secret& password);

/// Gets a new password; at the prompt it is typed twice. An empty one is refused: an option of the source says that none is wanted.
void GetNewPassword(const PasswordSource& source, const std::string& prompt, Secret& password);

/// Asks a question on the terminal, below lines that tell what it is about.
/// @throws Fault that names `option` when there is no terminal to ask at
bool Confirm(const std::string& question, const std::string& option, const std::vector<std::string>& about = {});

}  // namespace cli

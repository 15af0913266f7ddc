// Running a piece of a test in a process of its own.
#pragma once

#include <functional>
#include <string>

namespace nal_test {

enum class ChildEnd {
    success,  ///< the function returned
    thrown,   ///< it threw
    killed,   ///< SIGKILL ended it, as too_testing::KillAtStep does
    other,    ///< anything else: a crash, a sanitizer's report
};

/// Runs `function` in a forked child and waits for its end. The child leaves without destructors of the parent's
/// objects.
/// @throws std::system_error when no process can be made
ChildEnd RunInChild(const std::function<void()>& function);

/// A child that runs beside the test; its end is awaited when the object goes, at the latest.
class Child {
public:
    explicit Child(const std::function<void()>& function);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void Kill() const;
    ChildEnd Wait();

private:
    int m_process;
};

/// Bytes between a test and its children, who inherit both ends. @throws std::system_error
class Pipe {
public:
    Pipe();
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void Send(const std::string& bytes) const;
    /// Waits for bytes. @return at most 64 of them, none when nobody can send any more
    std::string Receive() const;
    /// Leaves the sending to the others.
    void CloseSending();

private:
    int m_ends[2];
};

}  // namespace nal_test

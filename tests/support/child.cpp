#include "support/child.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace nal_test {

namespace {
constexpr int c_thrown = 17;
}

Child::Child(const std::function<void()>& function) : m_process(fork()) {
    if (m_process < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (m_process != 0) return;
    try {
        function();
    } catch (...) {
        _exit(c_thrown);
    }
    _exit(0);
}

Child::~Child() {
    if (m_process > 0) Wait();
}

void Child::Kill() const {
    kill(m_process, SIGKILL);
}

ChildEnd Child::Wait() {
    int status = 0;
    while (waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
    }
    m_process = -1;
    if (WIFSIGNALED(status)) return WTERMSIG(status) == SIGKILL ? ChildEnd::killed : ChildEnd::other;
    if (WEXITSTATUS(status) == 0) return ChildEnd::success;
    return WEXITSTATUS(status) == c_thrown ? ChildEnd::thrown : ChildEnd::other;
}

Pipe::Pipe() {
    if (pipe(m_ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
}

Pipe::~Pipe() {
    close(m_ends[0]);
    CloseSending();
}

void Pipe::Send(const std::string& bytes) const {
    if (write(m_ends[1], bytes.data(), bytes.size()) < 0) throw std::system_error(errno, std::generic_category(), "write");
}

std::string Pipe::Receive() const {
    char bytes[64];
    const ssize_t size = read(m_ends[0], bytes, sizeof bytes);
    if (size < 0) throw std::system_error(errno, std::generic_category(), "read");
    return {bytes, static_cast<std::size_t>(size)};
}

void Pipe::CloseSending() {
    if (m_ends[1] >= 0) close(m_ends[1]);
    m_ends[1] = -1;
}

ChildEnd RunInChild(const std::function<void()>& function) {
    return Child(function).Wait();
}

}  // namespace nal_test

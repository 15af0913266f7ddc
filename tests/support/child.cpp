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

ChildEnd RunInChild(const std::function<void()>& function) {
    return Child(function).Wait();
}

}  // namespace nal_test

#include "support/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace nal_test {
namespace {

void Require(bool condition, const char* what) {
    if (!condition) throw std::system_error(errno, std::generic_category(), what);
}

// A file without a name takes a stream of the child, so that neither side ever waits for the other.
class Stream {
public:
    Stream() : m_descriptor(memfd_create("stream", MFD_CLOEXEC)) { Require(m_descriptor >= 0, "memfd_create"); }
    ~Stream() { close(m_descriptor); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    int Descriptor() const { return m_descriptor; }

    std::string Content() const {
        std::string content(static_cast<std::size_t>(lseek(m_descriptor, 0, SEEK_END)), '\0');
        Require(pread(m_descriptor, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()),
                "pread");
        return content;
    }

private:
    int m_descriptor;
};

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ProcessResult RunProcess(const std::vector<std::string>& command, const std::vector<std::string>& environment) {
    const Stream output;
    const Stream errors;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output.Descriptor(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors.Descriptor(), STDERR_FILENO);

    std::vector<std::string> arguments = command;
    std::vector<std::string> variables = environment;
    for (char** variable = environ; *variable; ++variable)
        variables.emplace_back(*variable);

    pid_t child = 0;
    const int failure = posix_spawnp(&child, arguments[0].c_str(), &actions, nullptr, Pointers(arguments).data(),
                                     Pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    ProcessResult result;
    if (failure == ENOENT) return result;
    errno = failure;
    Require(failure == 0, "posix_spawnp");

    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        Require(errno == EINTR, "waitpid");
    if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    result.output = output.Content();
    result.errors = errors.Content();
    return result;
}

}  // namespace nal_test

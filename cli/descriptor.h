// An open descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace cli {

/// Owns a descriptor; the standard ones stay open.
class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd > STDERR_FILENO) ::close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return m_fd; }
    int Release() { return std::exchange(m_fd, -1); }

private:
    int m_fd;
};

}  // namespace cli

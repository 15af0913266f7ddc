// The lock that a change of a container holds, against other threads and other processes.
#pragma once

#include <string>

namespace nalhost::provider {

class ContainerLock {
public:
    explicit ContainerLock(const std::string& path);
    ~ContainerLock();
    ContainerLock(const ContainerLock&) = delete;
    ContainerLock& operator=(const ContainerLock&) = delete;

private:
    int m_descriptor = -1;
};

}  // namespace nalhost::provider

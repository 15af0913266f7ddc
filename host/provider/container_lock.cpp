#include "host/provider/container_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "host/provider/failure.h"
#include "ork/constants.h"
#include "too/path.h"

namespace nalhost::provider {

// The lock is on the container's folder: it is always there, a rename of the file does not take it away, nothing is
// left behind, and processes that live under different NAL_HOME folders share it, which they do not with the runtime's
// named lockers. The descriptor is each lock's own, so threads exclude one another too.
ContainerLock::ContainerLock(const std::string& path) {
    CTOOString folder;
    CTOOString name;
    storedev::ParseFullPath(CTOOString(path), folder, name);
    m_descriptor = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    Require(m_descriptor >= 0, errno == EACCES ? ORK_E_ACCESS_DENIED : ORK_E_PATH_NOT_FOUND);
    int result = 0;
    do {
        result = flock(m_descriptor, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        close(m_descriptor);
        Fail(ORK_E_LOCKED);
    }
}

ContainerLock::~ContainerLock() {
    // A child that another thread forked meanwhile has the descriptor too: closing alone would leave the lock to it.
    flock(m_descriptor, LOCK_UN);
    close(m_descriptor);
}

}  // namespace nalhost::provider

#include "keycentre/service/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "too/status.h"

namespace keycentre {

FolderLock::FolderLock(const CTOOString& folder, bool wait) : m_folder(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!m_folder.IsOpen()) throw XTOOFile(TOOStatusFromErrno(errno, TOO_E_OPEN), folder, "cannot open the folder", errno);
    while (::flock(m_folder.Get(), LOCK_EX | (wait ? 0 : LOCK_NB)) != 0) {
        if (errno == EINTR) continue;
        if (errno == EWOULDBLOCK) throw XTOOFile(TOO_E_LOCK, folder, "another key centre is at work in the folder");
        throw XTOOFile(TOO_E_LOCK, folder, "cannot lock the folder", errno);
    }
}

}  // namespace keycentre

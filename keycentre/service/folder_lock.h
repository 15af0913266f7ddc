// One process at a time in a folder.
#pragma once

#include "keycentre/service/descriptor.h"
#include "too/string.h"

namespace keycentre {

/// Holds a folder until it goes. A process that dies holds nothing: the lock is a flock on the folder itself.
class FolderLock {
public:
    /// @param wait  whether to wait for another holder
    /// @throws XTOOFile 13 when another process holds it and this one does not wait; else why the folder cannot be opened
    FolderLock(const CTOOString& folder, bool wait);

private:
    Descriptor m_folder;
};

}  // namespace keycentre

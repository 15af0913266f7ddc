/// Locks between processes, and between the threads of one.
#pragma once

#include <memory>

#include "too/export.h"
#include "too/string.h"

namespace IPC {

/// A held lock; its end releases it. Ends in the thread that took it.
///
/// Locks of one name exclude one another by kind, in all processes of one TOOGetHomePath() and in all threads: readers
/// share, a writer is alone. A thread may take a lock that it holds again, and a writer also as a reader; each locker
/// counts. Once a writer of this process waits, new readers of this process wait behind it.
///
/// A lock is a flock on a file of its own in the folder "locks" of TOOGetHomePath(), so a process that dies leaves no
/// lock behind, whatever way it dies. The file stays and means nothing. A forked child holds none of its parent's
/// locks; the lockers that it inherits do nothing there.
class NAL_HOST_EXPORT CLocker {
public:
    CLocker(const CLocker&) = delete;
    CLocker& operator=(const CLocker&) = delete;
    virtual ~CLocker();

protected:
    CLocker() = default;
};

/// Waits for the lock `name` and takes it as one of its readers.
///
/// @param name  any bytes, at least one; long names are told apart by a hash
/// @throws XTOOStatus 28 for an empty name; XTOOFile 13, or another code that says why the lock file cannot be used
NAL_HOST_EXPORT std::unique_ptr<CLocker> CreateReadLockerDeprecated(const CTOOString& name);

/// Waits for the lock `name` and takes it as its only holder.
///
/// @throws as above; XTOOStatus 13 when this thread holds the lock as a reader only, which would wait for itself
NAL_HOST_EXPORT std::unique_ptr<CLocker> CreateWriteLockerDeprecated(const CTOOString& name);

}  // namespace IPC

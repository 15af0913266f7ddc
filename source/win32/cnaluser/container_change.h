// What every change of a container that has more than one step is made under.
#pragma once

#include <memory>

#include "nal/context.h"
#include "too/locker.h"

namespace nal {

/// Waits for a container's lock, between the processes and threads that use this library. Ends in the thread that took it.
/// @param container  its unique full name
/// @throws XTOOStatus when the lock cannot be used
std::unique_ptr<IPC::CLocker> LockContainer(const CTOOString& container);

/// Takes away the note of a container that had a just made container's name before. Waits for the lock: who opened the new container
/// meanwhile may have left a note of his own there, which is put right.
/// @throws XTOOStatus when the lock cannot be used, or as RepairHalfMadeRequest
void ForgetEarlierContainer(const CNALProvider& provider);

/// The lock of a context's container.
class ContainerChange {
public:
    /// Waits for the lock, and puts a request right that was left half-made (half_made_request.h).
    /// A provider whose containers have no unique name has no lock, and no such requests.
    /// @param needsRepair  whether a half-made request that cannot be put right is a failure; else it is logged, and stays. What makes
    ///                     a key needs it: by the note that stays, the next repair would take that key for the request's
    /// @throws XTOOStatus when the lock cannot be used, or as RepairHalfMadeRequest
    explicit ContainerChange(const CNALProvider& provider, bool needsRepair = false);

    /// The container's unique full name.
    const CTOOString& Container() const { return m_container; }

private:
    CTOOString m_container;
    std::unique_ptr<IPC::CLocker> m_lock;
};

}  // namespace nal

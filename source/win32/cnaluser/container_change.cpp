#include "win32/cnaluser/container_change.h"

#include "frame/log.h"
#include "win32/cnaluser/container_entries.h"
#include "win32/cnaluser/half_made_request.h"

namespace nal {

std::unique_ptr<IPC::CLocker> LockContainer(const CTOOString& container) {
    return IPC::CreateWriteLockerDeprecated("container " + container);
}

void ForgetEarlierContainer(const CNALProvider& provider) {
    const CTOOString container = UniqueNameOf(provider);
    if (container.empty() || !HalfMadeRequest::Exists(container)) return;
    const auto lock = LockContainer(container);
    // Without keys there is nothing that a note could tell of.
    if (ReadEntries(provider, CTOOString(), "HalfMadeRequest").empty())
        HalfMadeRequest::Remove(container);
    else
        RepairHalfMadeRequest(provider, container);
}

ContainerChange::ContainerChange(const CNALProvider& provider, bool needsRepair) : m_container(UniqueNameOf(provider)) {
    if (m_container.empty()) return;
    m_lock = LockContainer(m_container);
    try {
        RepairHalfMadeRequest(provider, m_container);
    } catch (const XTOOStatus& status) {
        if (needsRepair) throw;
        LogError(NAL_HERE("source/win32/cnaluser"), m_container + ": a half-made request cannot be put right: " + status.what());
    }
}

}  // namespace nal

#include "win32/cnaluser/container_change.h"

#include "win32/cnaluser/container_entries.h"

namespace nal {

ContainerChange::ContainerChange(const CNALProvider& provider) : m_container(UniqueNameOf(provider)) {
    if (!m_container.empty()) m_lock = IPC::CreateWriteLockerDeprecated("container " + m_container);
}

}  // namespace nal

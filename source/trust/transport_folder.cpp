#include "trust/transport_folder.h"

#include "nal/trust_storages.h"
#include "too/path.h"

namespace nal {

CTOOString StationFolder(const CTOOString& transportFolder) {
    return storedev::MakeFullPath(toolsunix::FilenameConvertor(transportFolder), "d_station");
}

CTOOString CurrentTransportFolder() {
    m_VPN_TrustStorages.Load();
    return m_VPN_TrustStorages.m_transportFolder;
}

}  // namespace nal

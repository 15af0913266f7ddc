// What containers hold, as it is shown to people.
#include <algorithm>

#include "frame/failure.h"
#include "model/provider_handles.h"
#include "nal/user.h"
#include "ork/csp.h"
#include "storage/cert_reader.h"
#include "too/folder.h"
#include "too/path.h"
#include "win32/cnaluser/container_change.h"
#include "win32/cnaluser/container_entries.h"
#include "win32/cnaluser/half_made_request.h"

namespace {

constexpr char c_listContext[] = "NALGetContainerList";
constexpr char c_infoContext[] = "NALGetContainerInfo";
constexpr char c_deleteContext[] = "NALDeleteContainer";
constexpr char c_userContext[] = "CNALUser::GetContainerInfo";

// Fills all but the name. @throws XTOOStatus
void Describe(const CNALProvider& provider, CNALUserContainerInfo& info, const char* failureText) {
    info.m_path = nal::UniqueNameOf(provider);
    nal::RequireDone(ORKGetProvParam(provider.GetProviderHandle(), ORK_PARAM_PROTECTION, info.m_protection), failureText);
    info.m_keys = nal::ReadEntries(provider, CTOOString(), failureText);
}

CNALUserContainerInfo Look(const CTOOString& name) {
    CNALUserContainerInfo info;
    info.m_name = name;
    nal::Report(&info.m_status, nullptr, [&] {
        CNALProvider provider;
        int status = TOO_OK;
        provider.Init(name.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_SILENT | ORK_OPEN_NO_PASSWORD, &status);
        if (status != TOO_OK) throw XTOOStatus(status, c_infoContext);
        Describe(provider, info, c_infoContext);
    });
    return info;
}

/// The names of the containers in the provider's directory.
std::list<CTOOString> NamesInDirectory() {
    std::list<CTOOString> names;
    CNALProvider provider;
    int status = TOO_OK;
    provider.Init(nullptr, ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY, &status);
    if (status != TOO_OK) throw XTOOStatus(status, c_listContext);
    nal::EntryWalk walk(provider.GetProviderHandle(), c_listContext);
    while (walk.Next()) names.push_back(walk.Name());
    return names;
}

std::list<CNALUserContainerInfo> LookInFolder(const CTOOString& folder) {
    if (!CTOOFolder::Exists(folder)) throw XTOOStatus(TOO_E_FILE_NOT_FOUND, c_listContext);
    std::list<CNALUserContainerInfo> list;
    const CTOOFindFile files(folder);
    for (const CTOOString& name : files.GetNames()) {  // sorted
        CNALUserContainerInfo info = Look(storedev::MakeFullPath(folder, name));
        // Here a file that is no container cannot be told from a damaged one.
        if (info.m_status != TOO_E_NO_CONTAINER) list.push_back(std::move(info));
    }
    return list;
}

}  // namespace

CNALCertPublicKeyInfo CNALUserKeyInfo::GetPublicKey() const {
    CNALCertPublicKeyInfo key;
    if (key.ReadData(m_publicKeyInfo.GetData(), m_publicKeyInfo.GetSize()) == 0) {
        throw XTOOStatus(TOO_E_BAD_STRUCTURE, "CNALUserKeyInfo::GetPublicKey");
    }
    return key;
}

unsigned CNALUserKeyInfo::GetKeyType() const {
    constexpr unsigned exchangeClass = 0xA000;  // of ALG_ID, as the signature class 0x2000
    unsigned algId = 0;
    unsigned keyAlgId = 0;
    const IdentObj oid = GetPublicKey().m_algorithm.m_algorithm;
    if (!GetAlgIDFromOID(oid.GetData(), oid.GetSize(), algId, keyAlgId)) return 0;
    return (algId & ORK_ALG_CLASS_MASK) == exchangeClass ? ORK_KEY_EXCHANGE : ORK_KEY_SIGNATURE;
}

void CNALUserKeyInfo::GetParams(CTOOString& algOID, CTOOString& keyParamOID) const {
    const CNALAlgorithmIdentifier algorithm = GetPublicKey().m_algorithm;
    if (algorithm.Is(c_NAL_OID_KEY_PRIVATE)) {
        algOID = c_NAL_OID_KEY_PRIVATE;
        keyParamOID.clear();
    } else {
        algorithm.GetParams(&algOID, &keyParamOID, nullptr, nullptr);
    }
}

bool CNALUserKeyInfo::GetValidity(CTOOFileTime& notBefore, CTOOFileTime& notAfter) const {
    if (!m_certificate.IsInitialized()) return false;
    try {
        const nal::Validity validity = nal::ValidityOf(*m_certificate.GetContext());
        notBefore = validity.notBefore;
        notAfter = validity.notAfter;
        return true;
    } catch (const XTOOStatus&) {
        return false;
    }
}

BOOL CNALUser::GetContainerInfo(CNALUserContainerInfo& info, int* err, CTOOString* msg) const {
    info = CNALUserContainerInfo();
    info.m_name = m_path;
    CNALUserContainerInfo found = info;
    return nal::Report(err, msg, [&] {
        if (m_provider.GetProviderHandle() == 0) throw XTOOStatus(TOO_E_NOT_INITIALIZED, c_userContext);
        Describe(m_provider, found, c_userContext);
        info = std::move(found);
    });
}

BOOL NALGetContainerList(const CTOOString& folder, std::list<CNALUserContainerInfo>& list, int* err, CTOOString* msg) {
    list.clear();
    return nal::Report(err, msg, [&] {
        if (!folder.empty()) {
            list = LookInFolder(folder);
            return;
        }
        for (const CTOOString& name : NamesInDirectory()) list.push_back(Look(name));
    });
}

BOOL NALGetContainerInfo(const CTOOString& path, CNALUserContainerInfo& info, int* err, CTOOString* msg) {
    info = Look(path);
    return nal::Report(err, msg, [&] {
        if (info.m_status != TOO_OK) throw XTOOStatus(info.m_status, c_infoContext);
    });
}

BOOL NALDeleteContainer(const CTOOString& path, int* err, CTOOString* msg) {
    return nal::Report(err, msg, [&] {
        // An empty name would be that of the default container, which nobody means to delete.
        if (path.empty()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_deleteContext);
        const CTOOString unique = Look(path).m_path;
        // Nobody makes a request in it meanwhile, and the note that goes is not that of a new container of this name.
        const auto lock = unique.empty() ? nullptr : nal::LockContainer(unique);
        nal::RequireDone(ORKAcquireContext(nullptr, path.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_DELETE), c_deleteContext);
        if (!unique.empty()) nal::HalfMadeRequest::Remove(unique);
    });
}

#include <map>
#include <set>
#include <string>
#include <string_view>

#include "frame/failure.h"
#include "nal/certificate.h"
#include "nal/trust_storages.h"
#include "storage/cert_reader.h"
#include "too/folder.h"
#include "too/path.h"
#include "trust/list_file.h"
#include "trust/network_identifier.h"
#include "trust/transport_folder.h"

namespace {

using Lock = boost::recursive_mutex::scoped_lock;

constexpr unsigned c_allChecks = 7;
constexpr unsigned c_noIssuer = CERT_STORE_NO_ISSUER_FLAG;
constexpr unsigned c_noCrl = CERT_STORE_NO_CRL_FLAG;
constexpr unsigned c_revoked = CERT_STORE_REVOCATION_FLAG;

/// The kinds of lists: what stands behind the network's identifier.
struct ListKind {
    unsigned kind;
    const char* suffix;
};
constexpr ListKind c_listKinds[] = {
    {NAL_STORAGE_TRUST_LIST, "_trl.p7s"},
    {NAL_STORAGE_UNSIGNED_LIST, ".trl"},
    {NAL_STORAGE_USERS, "_usr.p7b"},
};

/// The kind of a list's name; 0 for a name that no list has, so that no path is built from anything else.
unsigned KindOf(const CTOOString& name) {
    const std::string_view text = name.view();
    if (text.size() <= nal::c_networkIdLength || !nal::IsNetworkIdentifier(text.substr(0, nal::c_networkIdLength))) return 0;
    for (const ListKind& list : c_listKinds) {
        if (text.substr(nal::c_networkIdLength) == list.suffix) return list.kind;
    }
    return 0;
}

}  // namespace

struct CNALCertStorageCollection::Storages {
    std::unique_ptr<nal::ListFile> main;
    std::map<CTOOString, std::unique_ptr<nal::ListFile>> lists;  // by name
};

CNALCertStorageCollection m_VPN_TrustStorages;

CNALCertStorageCollection::CNALCertStorageCollection() : m_storages(std::make_unique<Storages>()) {}
CNALCertStorageCollection::~CNALCertStorageCollection() = default;

void CNALCertStorageCollection::Load() {
    const Lock lock(NALStorageLocker);
    if (m_state == NAL_TRUST_STATE_RELOAD) {
        *m_storages = Storages();
        m_state = 0;
    }
    if (m_storages->main == nullptr)
        m_storages->main = nal::MakeMainStorage(storedev::MakeFullPath(TOOGetHomePath(), "trust/trusted.dat"));
    m_storages->main->Refresh();
    m_initialized = 1;
}

void CNALCertStorageCollection::Reset() {
    const Lock lock(NALStorageLocker);
    *m_storages = Storages();
    m_initialized = 0;
    m_state = 0;
}

CNALCertStorage CNALCertStorageCollection::GetList(const CTOOString& name) {
    const Lock lock(NALStorageLocker);
    const unsigned kind = KindOf(name);
    if (kind == 0) return {};
    Load();
    std::unique_ptr<nal::ListFile>& list = m_storages->lists[name];
    if (list == nullptr) {
        const CTOOString path = storedev::MakeFullPath(nal::StationFolder(m_transportFolder), name);
        if (kind == NAL_STORAGE_TRUST_LIST) {
            const CTOOString accepted = storedev::MakeFullPath(storedev::MakeFullPath(TOOGetHomePath(), "trust"), name);
            list = nal::MakeTrustList(path, accepted, m_storages->main->GetStorage());
        } else {
            list = nal::MakeUnsignedList(path, kind);
        }
    }
    list->Refresh();
    return list->GetStorage();
}

std::list<CNALCertStorage> CNALCertStorageCollection::GetStorages(unsigned int kinds) {
    const Lock lock(NALStorageLocker);
    Load();
    std::list<CNALCertStorage> storages;
    if ((kinds & NAL_STORAGE_MAIN) != 0) storages.push_back(m_storages->main->GetStorage());
    for (const ListKind& list : c_listKinds) {
        if ((kinds & list.kind) == 0) continue;
        std::set<CTOOString> names{CTOOString(nal::c_commonLists) + list.suffix};
        for (const auto& loaded : m_storages->lists)
            names.insert(loaded.first);
        if ((kinds & NAL_STORAGE_ALL_NETWORKS) != 0) {
            const CTOOFindFile found(nal::StationFolder(m_transportFolder));
            names.insert(found.GetNames().begin(), found.GetNames().end());
        }
        for (const CTOOString& name : names) {
            if (KindOf(name) != list.kind) continue;
            if (CNALCertStorage storage = GetList(name); storage.IsOpened()) storages.push_back(storage);
        }
    }
    return storages;
}

BOOL CNALCertStorageCollection::FindIssuerCertificate(const CNALCertContext& subject, CNALCertContext& issuer, unsigned int* flags,
                                                      CNALCRLContext* crl) {
    if (!subject.IsInitialized()) return nal::Refuse(6);
    const Lock lock(NALStorageLocker);
    Load();
    const unsigned asked = flags != nullptr ? *flags : c_allChecks;
    unsigned found = asked;
    CNALCRLContext foundCrl;
    const auto searchIn = [&](const CNALCertStorage& storage) {
        found = asked;
        return storage.IsOpened() && storage.FindIssuerCertificate(subject, issuer, &found, &foundCrl);
    };
    const CTOOString id = NALGetNetworkIdentifier(subject);
    bool isFound = searchIn(m_storages->main->GetStorage());
    CNALCertStorage own;
    if (!isFound && !id.empty()) {
        own = GetList(id + "_trl.p7s");
        isFound = searchIn(own.IsOpened() ? own : GetList(id + ".trl"));
    }
    if (!isFound && (isFound = searchIn(GetList(CTOOString(nal::c_commonLists) + "_trl.p7s"))) && (found & c_noCrl) != 0 && own.IsOpened() &&
        own.GetCrlFromStorage(issuer, foundCrl)) {
        found &= ~(c_noCrl | c_revoked);
        if (subject.IsRevoced(foundCrl)) found |= c_revoked;
    }
    if (flags != nullptr) *flags = isFound ? found : asked | c_noIssuer;
    if (isFound && crl != nullptr) *crl = foundCrl;
    return isFound;
}

BOOL NALFindCertificate(std::list<CNALCertContext>& list, unsigned int kinds, unsigned int findType, const void* findPara) {
    bool isFound = false;
    SetLastError(NAL_STORE_E_NOT_FOUND);
    for (const CNALCertStorage& storage : m_VPN_TrustStorages.GetStorages(kinds)) {
        if (storage.FindCertList(list, findType, findPara)) isFound = true;
    }
    return isFound;
}

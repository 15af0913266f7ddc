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
#include "trust/transport_folder.h"

namespace {

using Lock = boost::recursive_mutex::scoped_lock;

constexpr char c_common[] = "0000";
constexpr std::size_t c_idLength = 4;
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

bool IsIdentifier(std::string_view text) {
    return text.size() == c_idLength && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

/// The kind of a list's name; 0 for a name that no list has, so that no path is built from anything else.
unsigned KindOf(const CTOOString& name) {
    const std::string_view text = name.view();
    if (text.size() <= c_idLength || !IsIdentifier(text.substr(0, c_idLength))) return 0;
    for (const ListKind& list : c_listKinds) {
        if (text.substr(c_idLength) == list.suffix) return list.kind;
    }
    return 0;
}

CTOOString TextOf(const CTOOCryptBitBlob& uniqueId) {
    std::string text;
    for (unsigned i = 0; i < uniqueId.m_data.GetSize(); ++i) {
        const char c = static_cast<char>(uniqueId.m_data.GetData()[i]);
        text += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return text;
}

/// The first four stored bytes as a number of eight digits.
CTOOString TextOf(const IdentObj& serial) {
    constexpr unsigned size = 16;
    constexpr unsigned numberSize = 4;
    const bool fits = serial.GetSize() == size || (serial.GetSize() == size + 1 && serial.GetData()[size] == 0);
    if (!fits) return {};
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned i = numberSize; i-- > 0;) {
        text += digits[serial.GetData()[i] >> 4];
        text += digits[serial.GetData()[i] & 15];
    }
    return text;
}

/// The text that tells a certificate's network, and more behind that; empty when there is none.
CTOOString IdentifyingTextOf(const CNALCertContext& cert) {
    if (!cert.IsInitialized()) return {};
    const CNALCertInfo info(*cert.GetContext());
    if (info.m_issuerUniqueId.m_data.GetSize() != 0) return TextOf(info.m_issuerUniqueId);
    if (info.m_subjectUniqueId.m_data.GetSize() != 0) return TextOf(info.m_subjectUniqueId);
    return TextOf(info.m_serialNumber);
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
        std::set<CTOOString> names{CTOOString(c_common) + list.suffix};
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
    if (!id.empty()) own = GetList(id + "_trl.p7s");
    if (!isFound && !id.empty()) isFound = searchIn(own.IsOpened() ? own : GetList(id + ".trl"));
    if (!isFound && (isFound = searchIn(GetList(CTOOString(c_common) + "_trl.p7s"))) && (found & c_noCrl) != 0 && own.IsOpened() &&
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

CTOOString NALGetNetworkIdentifier(const CNALCertContext& cert) {
    const CTOOString text = IdentifyingTextOf(cert);
    const std::string_view id = text.view().substr(0, c_idLength);
    return IsIdentifier(id) ? CTOOString(std::string(id)) : CTOOString();
}

CTOOString NALGetUsersListName(const CNALCertContext& cert) {
    // Identifiers of up to seven characters are those of a network alone, whose users are in the common list.
    constexpr std::size_t networkAlone = 7;
    const CTOOString text = IdentifyingTextOf(cert);
    const std::string_view id = text.view().substr(0, c_idLength);
    const bool isOwn = text.length() > networkAlone && IsIdentifier(id);
    return std::string(isOwn ? id : c_common) + "_usr.p7b";
}

// The functions on stores.
#include <cerrno>
#include <cstdint>
#include <iterator>

#include "certstorage/cert_store.h"
#include "frame/failure.h"
#include "too/folder.h"
#include "too/path.h"

namespace {

enum class Opens { Memory, NamedFile, SystemFile };

struct ProviderRule {
    std::uintptr_t number;
    Opens opens;
};

constexpr ProviderRule kProviders[] = {
    {2, Opens::Memory},       // memory
    {3, Opens::NamedFile},    // file
    {6, Opens::NamedFile},    // serialized
    {7, Opens::NamedFile},    // file name A
    {8, Opens::NamedFile},    // file name W; the path is narrow here too
    {4, Opens::SystemFile},   // registry
    {9, Opens::SystemFile},   // system A
    {10, Opens::SystemFile},  // system W
    {12, Opens::SystemFile},  // system registry A
    {13, Opens::SystemFile},  // system registry W
};

nal::CertStore* OpenSystemFile() {
    try {
        const CTOOString path(nal::SystemStorePath());
        CTOOString folder;
        CTOOString name;
        storedev::ParseFullPath(path, folder, name);
        CTOOFolder::MakeFolder(folder, 0700);
    } catch (const XTOOFile& failure) {
        errno = failure.GetSystemError() != 0 ? failure.GetSystemError() : ENOENT;
        return nullptr;
    } catch (const XTOOStatus&) {
        errno = ENOENT;  // nobody's home folder is known
        return nullptr;
    }
    return nal::CertStore::OpenFile(nal::SystemStorePath());
}

nal::CertStore* Open(Opens opens, const void* parameter) {
    switch (opens) {
        case Opens::Memory:
            return nal::CertStore::OpenMemory();
        case Opens::NamedFile:
            return nal::CertStore::OpenFile(parameter != nullptr ? static_cast<const char*>(parameter) : "");
        case Opens::SystemFile:
            break;
    }
    return OpenSystemFile();
}

}  // namespace

HCERTSTORE CertOpenStore(LPCSTR lpszStoreProvider, DWORD /*dwEncodingType*/, HCRYPTPROV /*hCryptProv*/, DWORD /*dwFlags*/,
                         const void* pvPara) {
    const auto number = reinterpret_cast<std::uintptr_t>(lpszStoreProvider);
    for (const ProviderRule& rule : kProviders) {
        if (rule.number != number) continue;
        nal::CertStore* store = Open(rule.opens, pvPara);
        return store != nullptr ? store->Handle() : nal::RefuseNull(static_cast<DWORD>(errno));
    }
    return nullptr;
}

// A name is not one of the numbers above, so every ordinary name gives null. Kept deliberately.
HCERTSTORE CertOpenSystemStore(HCRYPTPROV hProv, LPCSTR szSubsystemProtocol) {
    return CertOpenStore(szSubsystemProtocol, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, hProv, 0, nullptr);
}

BOOL CertCloseStore(HCERTSTORE hCertStore, DWORD /*dwFlags*/) {
    if (hCertStore == nullptr) return FALSE;
    nal::CertStore::FromHandle(hCertStore)->DropReference();
    return TRUE;
}

HCERTSTORE CertDuplicateStore(HCERTSTORE hCertStore) {
    if (hCertStore != nullptr) nal::CertStore::FromHandle(hCertStore)->AddReference();
    return hCertStore;
}

#include "win32/cnaluser/container_entries.h"

#include "frame/failure.h"
#include "frame/log.h"
#include "nal/wide_string.h"
#include "ork/csp.h"

namespace nal {
namespace {

constexpr char c_sourcePath[] = "source/win32/cnaluser";
constexpr DWORD c_pinParam = 17;  // of the key provider info

/// Tells where a certificate's private key is. The store keeps a copy, from which it leaves the PIN out when it has a file.
void SetKeyProviderInfo(CNALCertContext& cert, const CTOOString& entry, DWORD keyType, const CTOOString& pin) {
    std::wstring container = CNALString(entry).str();
    std::wstring provider = CNALString(ORK_PROVIDER_NAME).str();
    CRYPT_KEY_PROV_PARAM param{};
    param.dwParam = c_pinParam;
    param.pbData = reinterpret_cast<BYTE*>(const_cast<char*>(pin.data()));
    param.cbData = static_cast<DWORD>(pin.length());
    CRYPT_KEY_PROV_INFO info{};
    info.pwszContainerName = container.data();
    info.pwszProvName = provider.data();
    info.dwProvType = ORK_PROVIDER_TYPE;
    info.dwKeySpec = keyType;
    if (!pin.empty()) {
        info.cProvParam = 1;
        info.rgProvParam = &param;
    }
    cert.CNALSetContextProperty(CERT_KEY_PROV_INFO_PROP_ID, 0, &info);
}

}  // namespace

bool EntryWalk::Next() {
    const DWORD flags = m_isStarted ? 0 : ORK_ENUM_FIRST;
    m_isStarted = true;
    if (ORKGetProvParam(m_provider, ORK_PARAM_ENUM_ENTRIES, m_name, flags)) return true;
    RequireDone(GetLastError() == ORK_E_NO_MORE_ITEMS, m_failureText);
    return false;
}

KeyHandle EntryWalk::OpenKey() const {
    KeyHandle key;
    if (!ORKGetUserKey(m_provider, ORK_KEY_ANY, key.Receive())) key.Release();
    return key;
}

CNALUserKeyInfo EntryWalk::Read(const CTOOString& pin) const {
    IdentObj encoded;
    RequireDone(ORKGetProvParam(m_provider, ORK_PARAM_ENTRY_INFO, encoded), m_failureText);
    ASNContainerInfo record;
    record.ReadData(encoded.GetData(), encoded.GetSize());
    const ORKKeyInfo& key = record.GetKeyInfo();

    CNALUserKeyInfo info;
    info.m_name = IdentObj(m_name.data(), static_cast<unsigned>(m_name.length()));
    info.m_publicKeyInfo = key.m_publicKeyInfo;
    info.m_created = key.m_created;
    IdentObj certificate;
    if (!ORKGetProvParam(m_provider, ORK_PARAM_ENTRY_CERTIFICATE, certificate)) {
        RequireDone(GetLastError() == ORK_E_NOT_FOUND, m_failureText);
        return info;
    }
    try {
        if (info.m_certificate.CreateContext(certificate)) SetKeyProviderInfo(info.m_certificate, m_name, key.m_keyType, pin);
    } catch (const XTOOStatus& status) {
        LogError(NAL_HERE(c_sourcePath), m_name + ": the certificate is damaged: " + status.what());
    }
    return info;
}

std::list<CNALUserKeyInfo> ReadEntries(const CNALProvider& provider, const CTOOString& pin, const char* failureText) {
    std::list<CNALUserKeyInfo> keys;
    const auto lock = provider.Lock();
    EntryWalk walk(provider.GetProviderHandle(), failureText);
    while (walk.Next()) keys.push_back(walk.Read(pin));
    return keys;
}

bool GoToKey(const CNALProvider& provider, const IdentObj& publicKeyInfo, const char* failureText) {
    EntryWalk walk(provider.GetProviderHandle(), failureText);
    while (walk.Next()) {
        if (walk.Read(CTOOString()).m_publicKeyInfo == publicKeyInfo) return true;
    }
    return false;
}

void DeleteCurrentEntry(const CNALProvider& provider, const char* failureText) {
    RequireDone(ORKSetProvParam(provider.GetProviderHandle(), ORK_PARAM_DELETE_ENTRY, "", 0), failureText);
}

IdentObj PublicBitsOf(unsigned long hProv, unsigned long hKey, const char* failureText) {
    CNALCertPublicKeyInfo info;
    RequireDone(NALExportPKInfo(hProv, hKey, info), failureText);
    return info.m_publicKey.m_data;
}

CTOOString UniqueNameOf(const CNALProvider& provider) {
    CTOOString name;
    if (ORKGetProvParam(provider.GetProviderHandle(), ORK_PARAM_UNIQUE_NAME, name)) return name;
    const bool hasNone = GetLastError() == ORK_E_BAD_KEYSET || GetLastError() == ORK_E_BAD_TYPE;
    RequireDone(hasNone, "ORKGetProvParam");
    return {};
}

}  // namespace nal

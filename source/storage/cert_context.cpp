#include <cstring>
#include <cwchar>
#include <utility>

#include "nal/certificate.h"
#include "nal/context.h"
#include "nal/wide_string.h"
#include "storage/cert_reader.h"
#include "storage/signature_check.h"
#include "storage/store_change.h"

namespace {

constexpr DWORD c_encoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// What an accessor says about a certificate that does not decode.
template <class Value, class Read>
Value OrElse(Value otherwise, Read&& read) {
    try {
        return read();
    } catch (const XTOOStatus&) {
        return otherwise;
    }
}

bool IsCA(const CNALCertInfo& info) {
    CNALBasicConstraints constraints;
    if (constraints.ReadFrom(info.m_extensions, c_NAL_OID_BASIC_CONSTRAINTS)) return constraints.m_isCA;
    CNALOldBasicConstraints old;
    return old.ReadFrom(info.m_extensions, c_NAL_OID_OLD_BASIC_CONSTRAINTS) && old.IsCA();
}

CTOOString Narrow(const wchar_t* text) { return CNALString(text).ToBytes(); }

}  // namespace

CNALCertContext::CNALCertContext(const CERT_CONTEXT* context) : m_context(CertDuplicateCertificateContext(context)) {}

CNALCertContext::CNALCertContext(const IdentObj& encoded, unsigned int encodingType, const void* reserved) {
    CreateContext(encoded, encodingType, reserved);
}

CNALCertContext::CNALCertContext(const CNALCertContext& other)
    : m_storageType(other.m_storageType), m_status(other.m_status), m_context(CertDuplicateCertificateContext(other.m_context)) {
    if (!other.m_providerInfo.IsEmpty()) ReadProviderInfo();
}

CNALCertContext::CNALCertContext(CNALCertContext&& other) noexcept
    : m_storageType(other.m_storageType),
      m_status(other.m_status),
      m_context(std::exchange(other.m_context, nullptr)),
      m_providerInfo(std::move(other.m_providerInfo)) {
    other.m_providerInfo.Clear();
}

CNALCertContext& CNALCertContext::operator=(const CNALCertContext& other) {
    if (this == &other) return *this;
    if (m_context != other.m_context) {
        Take(CertDuplicateCertificateContext(other.m_context));
        if (!other.m_providerInfo.IsEmpty()) ReadProviderInfo();
    }
    m_storageType = other.m_storageType;
    m_status = other.m_status;
    return *this;
}

CNALCertContext& CNALCertContext::operator=(CNALCertContext&& other) noexcept {
    if (this == &other) return *this;
    Take(std::exchange(other.m_context, nullptr));
    m_storageType = other.m_storageType;
    m_status = other.m_status;
    m_providerInfo = std::move(other.m_providerInfo);
    other.m_providerInfo.Clear();
    return *this;
}

CNALCertContext& CNALCertContext::operator=(const CERT_CONTEXT* context) {
    if (m_context != context) Take(CertDuplicateCertificateContext(context));
    return *this;
}

CNALCertContext::~CNALCertContext() { Take(nullptr); }

CNALCertContext CNALCertContext::Adopt(PCCERT_CONTEXT context) {
    CNALCertContext adopted;
    adopted.Take(context);
    return adopted;
}

// Every way to another context goes through here: the old reference is given back, and nothing known of it stays.
void CNALCertContext::Take(PCCERT_CONTEXT context) {
    if (m_context != nullptr) CertFreeCertificateContext(m_context);
    m_context = context;
    m_status = -1;
    m_providerInfo.Wipe();
}

PCCERT_CONTEXT CNALCertContext::Detach() {
    m_providerInfo.Wipe();
    m_status = -1;
    return std::exchange(m_context, nullptr);
}

BOOL CNALCertContext::CreateContext(const IdentObj& encoded, unsigned int /*encodingType*/, const void* /*reserved*/) {
    Take(nullptr);
    if (encoded.IsEmpty()) return FALSE;
    Take(CertCreateCertificateContext(c_encoding, encoded.GetData(), encoded.GetSize()));
    return IsInitialized() ? TRUE : FALSE;
}

int CNALCertContext::Compare(const CNALCertContext& other) const {
    if (m_context == other.m_context) return 0;
    if (m_context == nullptr || other.m_context == nullptr) return m_context == nullptr ? -1 : 1;
    const asnt::View mine = nal::EncodingOf(*m_context);
    const asnt::View others = nal::EncodingOf(*other.m_context);
    if (mine.size != others.size) return mine.size < others.size ? -1 : 1;
    return std::memcmp(mine.data, others.data, mine.size);
}

bool CNALCertContext::ReadProviderInfo() const {
    m_providerInfo.Wipe();
    DWORD size = 0;
    if (!CertGetCertificateContextProperty(m_context, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size)) return false;
    m_providerInfo.SetSize(size);
    if (CertGetCertificateContextProperty(m_context, CERT_KEY_PROV_INFO_PROP_ID, m_providerInfo.GetData(), &size)) return true;
    m_providerInfo.Wipe();
    return false;
}

const CRYPT_KEY_PROV_INFO* CNALCertContext::GetProviderInfo() const {
    if (m_context == nullptr || (m_providerInfo.IsEmpty() && !ReadProviderInfo())) return nullptr;
    return reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(m_providerInfo.GetData());
}

BOOL CNALCertContext::CNALSetContextProperty(unsigned int id, unsigned int flags, const void* data) {
    if (m_context == nullptr) return FALSE;
    const auto set = [&] { return CertSetCertificateContextProperty(m_context, id, flags, data); };
    const bool inFile = nal::CertStore::FromHandle(m_context->hCertStore)->HasFile();
    if (!(inFile ? nal::ChangeStore(m_context->hCertStore, set) : set())) return FALSE;
    ReadProviderInfo();
    return TRUE;
}

BOOL CNALCertContext::CNALGetContextProperty(unsigned int id, void* data, DWORD* size) const {
    return CertGetCertificateContextProperty(m_context, id, data, size);
}

unsigned int CNALCertContext::GetPrivateKeyType() const {
    const CRYPT_KEY_PROV_INFO* info = GetProviderInfo();
    return info != nullptr ? info->dwKeySpec : NAL_UNKNOWN;
}

unsigned int CNALCertContext::GetProviderType() const {
    const CRYPT_KEY_PROV_INFO* info = GetProviderInfo();
    return info != nullptr ? info->dwProvType : NAL_UNKNOWN;
}

CTOOString CNALCertContext::GetContainer() const {
    const CRYPT_KEY_PROV_INFO* info = GetProviderInfo();
    return info != nullptr ? Narrow(info->pwszContainerName) : CTOOString();
}

CTOOString CNALCertContext::GetProviderName() const {
    const CRYPT_KEY_PROV_INFO* info = GetProviderInfo();
    return info != nullptr ? Narrow(info->pwszProvName) : CTOOString();
}

BOOL CNALCertContext::SetPrivateKeyType(unsigned int type) {
    const CRYPT_KEY_PROV_INFO* present = GetProviderInfo();
    CRYPT_KEY_PROV_INFO info = present != nullptr ? *present : CRYPT_KEY_PROV_INFO{};
    info.dwKeySpec = type;
    return CNALSetContextProperty(CERT_KEY_PROV_INFO_PROP_ID, 0, &info);
}

BOOL CNALCertContext::SetContainer(const char* container) {
    const CRYPT_KEY_PROV_INFO* present = GetProviderInfo();
    CRYPT_KEY_PROV_INFO info = present != nullptr ? *present : CRYPT_KEY_PROV_INFO{};
    std::wstring name = CNALString(container).str();
    info.pwszContainerName = name.data();
    return CNALSetContextProperty(CERT_KEY_PROV_INFO_PROP_ID, 0, &info);
}

bool CNALCertContext::IsValidTime(const CTOOFileTime* time) const {
    if (m_context == nullptr) return false;
    return OrElse(false, [&] {
        const CTOOFileTime at = time != nullptr ? *time : CTOOFileTime::Now();
        const nal::Validity validity = nal::ValidityOf(*m_context);
        return validity.notBefore <= at && at <= validity.notAfter;
    });
}

bool CNALCertContext::IsRevoced(const CNALCRLContext& crl) const {
    if (m_context == nullptr || !crl.IsInitialized()) return false;
    return OrElse(false, [&] {
        const IdentObj serial = nal::SerialOf(*m_context);
        const CRL_INFO& list = *crl.GetContext()->pCrlInfo;
        for (DWORD i = 0; i < list.cCRLEntry; ++i) {
            const CRYPT_INTEGER_BLOB& revoked = list.rgCRLEntry[i].SerialNumber;
            if (asnt::View(revoked.pbData, revoked.cbData) == asnt::View(serial)) return true;
        }
        return false;
    });
}

IdentObj CNALCertContext::GetSubjectKeyId() const {
    if (m_context == nullptr) return {};
    return OrElse(IdentObj(), [&] {
        const nal::CertFields fields = nal::ReadCertFields(nal::EncodingOf(*m_context));
        if (fields.hasSubjectKeyId && !fields.subjectKeyId.empty()) return fields.subjectKeyId.Copy();
        return nal::PublicKeyOf(*m_context).GetKeyID();
    });
}

unsigned int CNALCertContext::GetCertificateType() const {
    if (m_context == nullptr) return NAL_UNKNOWN;
    return OrElse<unsigned>(NAL_CERT_TYPE_END, [&]() -> unsigned {
        const CNALCertInfo info(*m_context);
        if (!IsCA(info)) return NAL_CERT_TYPE_END;
        return info.m_subject == info.m_issuer ? NAL_CERT_TYPE_ROOT : NAL_CERT_TYPE_CA;
    });
}

bool CNALCertContext::IsValidSignature(const CNALCertContext& issuer) const {
    if (m_context == nullptr || issuer.m_context == nullptr) return false;
    return OrElse(false, [&] { return nal::IsSignedBy(*m_context, nal::PublicKeyOf(*issuer.m_context)); });
}

unsigned int NALGetStorageType(CNALCertContext& cert) { return cert.m_storageType; }

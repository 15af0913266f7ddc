#include "certstorage/cert_context.h"

#include <cstring>
#include <stdexcept>

namespace nal {
namespace {

CRYPT_ALGORITHM_IDENTIFIER ToRecord(const AlgorithmFields& algorithm, Arena& arena) {
    return {arena.OidText(algorithm.oid), BlobOf(algorithm.parameters)};
}

CRYPT_BIT_BLOB ToRecord(const asnt::BitString& bits) {
    return {static_cast<DWORD>(bits.bytes.size), const_cast<BYTE*>(bits.bytes.data), bits.unusedBits};
}

}  // namespace

CertContext::CertContext(DWORD encodingType, asnt::View encoded)
    : CERT_CONTEXT{}, m_encoded(std::make_unique_for_overwrite<unsigned char[]>(encoded.size)) {
    std::memcpy(m_encoded.get(), encoded.data, encoded.size);
    dwCertEncodingType = encodingType;
    pbCertEncoded = m_encoded.get();
    cbCertEncoded = static_cast<DWORD>(encoded.size);
    pCertInfo = &m_info;
    FillInfo();
}

CertContext::~CertContext() {
    if (m_store != nullptr && !m_boundToStore) m_store->DropReference();
}

CertContext::Reference CertContext::Create(DWORD encodingType, asnt::View encoded, CertStore* store) {
    if (encoded.data == nullptr || encoded.empty()) {
        throw std::invalid_argument("Check passed certificate encoded argument");
    }
    Reference context(std::make_unique<CertContext>(encodingType, encoded).release());
    if (store != nullptr) {
        context->m_store = store->Attach();
        context->m_boundToStore = true;
    } else {
        context->OpenPrivateStore();
    }
    context->hCertStore = context->m_store->Handle();
    return context;
}

void CertContext::OpenPrivateStore() {
    HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_MEMORY, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, m_hCryptProv, 0, nullptr);
    if (store != nullptr) m_store = CertStore::FromHandle(store)->Attach();
    if (m_store == nullptr || m_store->storeCert(m_key, Encoded()) != kTreeOk) {
        throw std::logic_error("Open certificate storage failed");
    }
}

void CertContext::DropReference() {
    if (m_refCount.Drop()) const std::unique_ptr<CertContext> last(this);
}

// Decodes the certificate; a certificate without a key identifier of 20 bytes leaves the info zero and is no error here.
void CertContext::FillInfo() {
    const CertFields fields = ReadCertFields(Encoded());
    if (!fields.hasSubjectKeyId || fields.subjectKeyId.size != m_key.size()) return;
    m_key = ToKeyIdentifier(fields.subjectKeyId);

    m_info.dwVersion = fields.version;
    m_info.SerialNumber = m_arena.ReversedBlob(fields.serial);
    m_info.SignatureAlgorithm = ToRecord(fields.signatureAlgorithm, m_arena);
    m_info.Issuer = BlobOf(fields.issuer);
    m_info.NotBefore = fields.notBefore;
    m_info.NotAfter = fields.notAfter;
    m_info.Subject = BlobOf(fields.subject);
    m_info.SubjectPublicKeyInfo = {ToRecord(fields.keyAlgorithm, m_arena), ToRecord(fields.publicKey)};
    m_info.IssuerUniqueId = ToRecord(fields.issuerUniqueId);
    m_info.SubjectUniqueId = ToRecord(fields.subjectUniqueId);

    m_info.cExtension = fields.extensionCount;
    m_info.rgExtension = m_arena.Array<CERT_EXTENSION>(m_info.cExtension);
    PCERT_EXTENSION next = m_info.rgExtension;
    ExtensionFields extension;
    for (asnt::Reader reader(fields.extensions); NextExtension(reader, extension); ++next) {
        *next = {m_arena.OidText(extension.oid), extension.critical ? TRUE : FALSE, BlobOf(extension.value)};
    }
}

}  // namespace nal

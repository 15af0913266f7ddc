#include "certstorage/crl_context.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "certstorage/crl_decoder.h"

namespace nal {
namespace {

CRYPT_ALGORITHM_IDENTIFIER ToRecord(const CNALAlgorithmIdentifier& algorithm, Arena& arena) {
    return {arena.CopyText(algorithm.GetID().str()), arena.CopyBlob(algorithm.m_parameters)};
}

PCERT_EXTENSION ToRecords(const CNALCertExtensionList& extensions, Arena& arena) {
    PCERT_EXTENSION records = arena.Array<CERT_EXTENSION>(extensions.size());
    for (std::size_t i = 0; i < extensions.size(); ++i) {
        const CNALCertExtension& extension = extensions[i];
        records[i] = {arena.CopyText(extension.m_oid.str()), extension.m_critical ? TRUE : FALSE,
                      arena.CopyBlob(extension.m_value)};
    }
    return records;
}

}  // namespace

CrlContext::CrlContext(DWORD encodingType, asnt::View encoded, const CNAL_CRL_Info& crl, const CrlKey& key)
    : CRL_CONTEXT{}, m_key(key), m_encoded(std::make_unique_for_overwrite<unsigned char[]>(encoded.size)) {
    std::memcpy(m_encoded.get(), encoded.data, encoded.size);
    dwCertEncodingType = encodingType;
    pbCrlEncoded = m_encoded.get();
    cbCrlEncoded = static_cast<DWORD>(encoded.size);
    pCrlInfo = &m_info;
    FillInfo(crl);
}

CrlContext::~CrlContext() = default;

CrlContext::Reference CrlContext::Create(DWORD encodingType, asnt::View encoded, CertStore* store) {
    if (encoded.data == nullptr || encoded.empty()) throw std::invalid_argument("Check passed CRL encoded argument");
    const CNAL_CRL_List crl = DecodeCrl(encoded);
    const std::optional<IdentObj> issuerKeyID = IssuerKeyIDOf(crl.m_info);
    if (!issuerKeyID) asnt::ThrowBadStructure("CrlContext");
    const CrlKey key = ToCrlKey(*issuerKeyID, crl.m_info.GetSerial(),
                                {"sizeof(m_issuerID) == issuerKeyID.cbData", "sizeof(m_crlSerial) == crlSerial.cbData"});
    Reference context(std::make_unique<CrlContext>(encodingType, encoded, crl.m_info, key).release());
    if (store != nullptr) context->BindTo(*store);
    return context;
}

CrlContext::Reference CrlContext::FromRecord(DWORD encodingType, const RecordKey& record, asnt::View encoded) {
    const CNAL_CRL_List crl = DecodeCrl(encoded);
    const CrlKey key{record.identifier, record.crlSerial};
    const std::optional<IdentObj> issuerKeyID = IssuerKeyIDOf(crl.m_info);
    if (!issuerKeyID || asnt::View(*issuerKeyID) != asnt::View(key.issuerID.data(), key.issuerID.size()) ||
        asnt::View(crl.m_info.GetSerial()) != asnt::View(key.crlSerial.data(), key.crlSerial.size())) {
        asnt::ThrowBadStructure("CrlContext");
    }
    return Reference(std::make_unique<CrlContext>(encodingType, encoded, crl.m_info, key).release());
}

void CrlContext::BindTo(CertStore& store) {
    m_store = store.Attach();
    hCertStore = store.Handle();
    m_store->ForIdentifier(m_key.issuerID, [&](const RecordKey& key, asnt::View value) {
        if (key.crlSerial == m_key.crlSerial && key.IsCrlProp()) {
            m_properties[key.kind] = {key.kind, static_cast<std::uint32_t>(value.size), {value.begin(), value.end()}};
        }
        return false;
    });
}

void CrlContext::DropReference() {
    if (m_refCount.Drop()) const std::unique_ptr<CrlContext> last(this);
}

void CrlContext::FillInfo(const CNAL_CRL_Info& crl) {
    m_info.dwVersion = crl.m_version;
    m_info.SignatureAlgorithm = ToRecord(crl.m_signatureAlgorithm, m_arena);
    m_info.Issuer = m_arena.CopyBlob(crl.m_issuer);
    m_info.ThisUpdate = crl.m_thisUpdate;
    m_info.NextUpdate = crl.m_nextUpdate;
    FillEntries(crl);
    m_info.cExtension = static_cast<DWORD>(crl.m_extensions.size());
    m_info.rgExtension = ToRecords(crl.m_extensions, m_arena);
}

void CrlContext::FillEntries(const CNAL_CRL_Info& crl) {
    m_info.cCRLEntry = static_cast<DWORD>(crl.GetEntryCount());
    m_info.rgCRLEntry = m_arena.Array<CRL_ENTRY>(crl.GetEntryCount());
    CNALCertExtensionList extensions;
    for (DWORD i = 0; i < m_info.cCRLEntry; ++i) {
        const CNAL_CRL_EntryView entry = crl.ViewEntry(i);
        CRL_ENTRY& record = m_info.rgCRLEntry[i];
        record.SerialNumber = m_arena.ReversedBlob(entry.m_serialOctets);
        record.RevocationDate = entry.m_revocationDate;
        if (entry.m_extensions.empty()) continue;
        extensions.Clear();
        extensions.ReadData(entry.m_extensions.data, static_cast<unsigned>(entry.m_extensions.size));
        record.cExtension = static_cast<DWORD>(extensions.size());
        record.rgExtension = ToRecords(extensions, m_arena);
    }
}

int CrlContext::storeProperties(CertStore* target) {
    if (target == nullptr) return EINVAL;
    if (target == m_store.get()) return 0;
    const std::lock_guard lock(m_propertiesMutex);
    for (const auto& [kind, prop] : m_properties) {
        const asnt::View value(prop.data.data(), prop.data.size());
        if (target->storeProp(m_key.issuerID, kind, value, &m_key.crlSerial) != kTreeOk) return errno;
    }
    return 0;
}

}  // namespace nal

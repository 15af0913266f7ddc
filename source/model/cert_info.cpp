#include <utility>

#include "asnt/time.h"
#include "model/bit_string.h"
#include "model/cert_info_decoder.h"
#include "model/integer_order.h"
#include "nal/certificate.h"
#include "nal/pkcs10.h"

namespace {

IdentObj ToBytes(const CRYPTOAPI_BLOB& blob) {
    return asnt::View(blob.pbData, blob.cbData).Copy();
}

CTOOCryptBitBlob DecodeUniqueId(asnt::View content) {
    asnt::BitString bits;
    if (!asnt::DecodeBitString(content, bits)) asnt::ThrowBadStructure("");
    return nal::ToBitBlob(bits);
}

FILETIME ToTime(const asnt::Element& element) {
    FILETIME time{};
    if (!asnt::DecodeTime(element.tag, element.content, time)) asnt::ThrowBadStructure("");
    return time;
}

bool Equal(const FILETIME& a, const FILETIME& b) {
    return a.dwLowDateTime == b.dwLowDateTime && a.dwHighDateTime == b.dwHighDateTime;
}

// A store leaves CERT_INFO all zero when it cannot key a certificate; every certificate has an issuer field.
bool IsFilled(const CERT_INFO* info) {
    return info != nullptr && info->Issuer.cbData != 0;
}

[[noreturn]] void ThrowUnsupported() {
    throw XTOOStatus(TOO_E_UNSUPPORTED, "Function is currently unsupported in unix environment");
}

}  // namespace

namespace nal {

void DecodeTbs(const TbsFields& fields, CNALCertInfo& info) {
    CNALCertInfo read;
    std::uint64_t version = 0;
    if (!fields.version.empty() && (!asnt::DecodeUnsigned(fields.version, version) || version > 0xFFFFFFFFu)) {
        asnt::ThrowBadStructure("");
    }
    read.m_version = static_cast<DWORD>(version);
    read.m_serialNumber = Reversed(fields.serial);
    asnt::Reader algorithm(fields.signatureAlgorithm);
    read.m_signatureAlgorithm.ReadData(algorithm);
    read.m_issuer = fields.issuer.Copy();
    read.m_notBefore = ToTime(fields.notBefore);
    read.m_notAfter = ToTime(fields.notAfter);
    read.m_subject = fields.subject.Copy();
    read.m_publicKeyInfo.ReadData(fields.publicKeyInfo.data, static_cast<unsigned>(fields.publicKeyInfo.size));
    if (!fields.issuerUniqueId.empty()) read.m_issuerUniqueId = DecodeUniqueId(fields.issuerUniqueId);
    if (!fields.subjectUniqueId.empty()) read.m_subjectUniqueId = DecodeUniqueId(fields.subjectUniqueId);
    read.m_extensions.ReadData(fields.extensions.data, static_cast<unsigned>(fields.extensions.size));

    read.m_state = info.m_state;
    read.m_stateDetail = info.m_stateDetail;
    read.m_friendlyName = std::move(info.m_friendlyName);
    read.m_privateKeyType = info.m_privateKeyType;
    info = std::move(read);
}

}  // namespace nal

CNALCertInfo::CNALCertInfo(const CERT_INFO& info) {
    *this = info;
}

CNALCertInfo::CNALCertInfo(const CERT_CONTEXT& context) {
    *this = context;
}

CNALCertInfo::~CNALCertInfo() = default;

CNALCertInfo& CNALCertInfo::operator=(const CERT_INFO& info) {
    CNALCertInfo read;
    read.m_state = 1;
    read.m_stateDetail = 1;
    read.m_version = info.dwVersion;
    read.m_serialNumber = ToBytes(info.SerialNumber);
    read.m_signatureAlgorithm = info.SignatureAlgorithm;
    read.m_issuer = ToBytes(info.Issuer);
    read.m_notBefore = info.NotBefore;
    read.m_notAfter = info.NotAfter;
    read.m_subject = ToBytes(info.Subject);
    read.m_publicKeyInfo = info.SubjectPublicKeyInfo;
    read.m_issuerUniqueId = nal::ToBitBlob(info.IssuerUniqueId);
    read.m_subjectUniqueId = nal::ToBitBlob(info.SubjectUniqueId);
    for (DWORD i = 0; i < info.cExtension; ++i) read.m_extensions.Add(CNALCertExtension(info.rgExtension[i]));
    read.m_friendlyName = std::move(m_friendlyName);
    read.m_privateKeyType = m_privateKeyType;
    return *this = std::move(read);
}

CNALCertInfo& CNALCertInfo::operator=(const CERT_CONTEXT& context) {
    if (IsFilled(context.pCertInfo)) return *this = *context.pCertInfo;
    nal::CertificateFields fields;
    if (!nal::StepOverCertificate({context.pbCertEncoded, context.cbCertEncoded}, fields)) asnt::ThrowBadStructure("");
    nal::DecodeTbs(fields.tbs, *this);
    m_state = 1;
    m_stateDetail = 1;
    return *this;
}

CNALCertInfo& CNALCertInfo::operator=(const CNALPKCS10Data& request) {
    CNALCertInfo read;
    read.m_subject = request.m_subject;
    read.m_publicKeyInfo = request.m_publicKey;
    read.m_extensions = request.GetExtensions();
    read.m_friendlyName = std::move(m_friendlyName);
    read.m_privateKeyType = m_privateKeyType;
    return *this = std::move(read);
}

bool CNALCertInfo::DecodeInfo(const IdentObj& der) {
    nal::TbsFields fields;
    if (!nal::StepOverTbs(der, fields)) asnt::ThrowBadStructure("");
    nal::DecodeTbs(fields, *this);
    return true;
}

void CNALCertInfo::GetKeyParam(unsigned& keySpec, CTOOString& keyParamOID, CTOOString& hashParamOID,
                               CTOOString& encParamOID) const {
    keySpec = AT_SIGNATURE;
    keyParamOID.clear();
    hashParamOID.clear();
    encParamOID.clear();
    CNALKeyUsage usage;
    const CNALCertExtension* extension = m_extensions.FindExtension(c_NAL_OID_KEY_USAGE);
    if (extension != nullptr && usage.TryRead(*extension) &&
        usage.HasAny(CNALKeyUsage::KeyEncipherment | CNALKeyUsage::DataEncipherment)) {
        keySpec = AT_KEYEXCHANGE;
    }
    const CNALAlgorithmIdentifier& algorithm = m_publicKeyInfo.m_algorithm;
    if (!algorithm.m_parameters.IsEmpty()) algorithm.GetParams(nullptr, &keyParamOID, &hashParamOID, &encParamOID);
}

IdentObj CNALCertInfo::GetEncodetInfo() const {
    ThrowUnsupported();
}

void CNALCertInfo::CreateCertReq(CNALX509Name& /*subject*/, CNALAlgorithmIdentifier& /*algorithm*/, unsigned /*keyType*/,
                                 unsigned short /*months*/, unsigned /*flags*/, CNALCertPublicKeyInfo& /*key*/,
                                 const char* /*container*/, IdentObj& /*request*/, CNALX509Name& /*issuer*/,
                                 unsigned char /*usage*/, XTOOStatus* /*status*/) {
    ThrowUnsupported();
}

bool CNALCertInfo::AddCRLPoint(CNALCertInfo& /*info*/, const CTOOString& /*point*/) {
    return false;
}

bool CNALCertInfo::AddCRLPoints(CNALCertInfo& /*info*/, int /*count*/, const CNALString** /*points*/) {
    return false;
}

bool CNALCertInfo::AddAiaPoints(CNALCertInfo& /*info*/, int /*ocspCount*/, const CNALString** /*ocsp*/,
                                int /*issuerCount*/, const CNALString** /*issuers*/) {
    return false;
}

bool CNALCertInfo::AddUsageToReq(CNALCertInfo& /*info*/, unsigned /*usage*/, unsigned /*extendedUsage*/,
                                 bool /*critical*/) {
    return false;
}

bool CNALCertInfo::operator==(const CNALCertInfo& other) const {
    return m_version == other.m_version && m_serialNumber == other.m_serialNumber &&
           m_signatureAlgorithm == other.m_signatureAlgorithm && m_issuer == other.m_issuer &&
           m_subject == other.m_subject && Equal(m_notBefore, other.m_notBefore) &&
           Equal(m_notAfter, other.m_notAfter) && m_publicKeyInfo == other.m_publicKeyInfo &&
           m_issuerUniqueId == other.m_issuerUniqueId && m_subjectUniqueId == other.m_subjectUniqueId &&
           m_extensions == other.m_extensions && m_privateKeyType == other.m_privateKeyType;
}

bool CNALCertInfo::operator<(const CNALCertInfo& other) const {
    return m_version < other.m_version && m_serialNumber < other.m_serialNumber &&
           m_signatureAlgorithm < other.m_signatureAlgorithm && m_issuer.Compare(other.m_issuer) < 0 &&
           m_subject.Compare(other.m_subject) < 0 && m_publicKeyInfo < other.m_publicKeyInfo &&
           m_issuerUniqueId < other.m_issuerUniqueId && m_subjectUniqueId < other.m_subjectUniqueId &&
           m_extensions < other.m_extensions && m_privateKeyType < other.m_privateKeyType;
}

#include <utility>

#include "certstorage/crl_context.h"
#include "nal/context.h"
#include "nal/crl.h"
#include "storage/cert_reader.h"
#include "too/status.h"

namespace {

constexpr DWORD c_encoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

}  // namespace

CNALCRLContext::CNALCRLContext(const CRL_CONTEXT* context) : m_context(CertDuplicateCRLContext(context)) {}

CNALCRLContext::CNALCRLContext(const IdentObj& encoded, unsigned int encodingType) { CreateCRLContext(encoded, encodingType); }

CNALCRLContext::CNALCRLContext(const CNALCRLContext& other)
    : m_name(other.m_name),
      m_data(other.m_data),
      m_context(CertDuplicateCRLContext(other.m_context)),
      m_checkStatus(other.m_checkStatus) {}

CNALCRLContext::CNALCRLContext(CNALCRLContext&& other) noexcept
    : m_name(std::move(other.m_name)),
      m_data(std::move(other.m_data)),
      m_context(std::exchange(other.m_context, nullptr)),
      m_checkStatus(other.m_checkStatus) {}

CNALCRLContext& CNALCRLContext::operator=(const CNALCRLContext& other) {
    CNALCRLContext copy(other);
    return *this = std::move(copy);
}

CNALCRLContext& CNALCRLContext::operator=(CNALCRLContext&& other) noexcept {
    std::swap(m_context, other.m_context);
    std::swap(m_checkStatus, other.m_checkStatus);
    std::swap(m_name, other.m_name);
    std::swap(m_data, other.m_data);
    return *this;
}

CNALCRLContext& CNALCRLContext::operator=(const CRL_CONTEXT* context) {
    Take(CertDuplicateCRLContext(context));
    return *this;
}

CNALCRLContext::~CNALCRLContext() { Take(nullptr); }

CNALCRLContext CNALCRLContext::Adopt(PCCRL_CONTEXT context) {
    CNALCRLContext adopted;
    adopted.Take(context);
    return adopted;
}

void CNALCRLContext::Take(PCCRL_CONTEXT context) {
    if (m_context != nullptr) CertFreeCRLContext(m_context);
    m_context = context;
    m_checkStatus = TOO_OK;
    m_data.Clear();
}

PCCRL_CONTEXT CNALCRLContext::Detach() { return std::exchange(m_context, nullptr); }

BOOL CNALCRLContext::CreateCRLContext(const IdentObj& encoded, unsigned int /*encodingType*/) {
    Take(nullptr);
    if (encoded.IsEmpty()) return FALSE;
    // A CRL that no store can key would end the process in the call below; here it is an error.
    CNAL_CRL_List list;
    list.ReadData(encoded.GetData(), encoded.GetSize());
    NALCheckCRLKey(list.m_info);
    Take(CertCreateCRLContext(c_encoding, encoded.GetData(), encoded.GetSize()));
    return IsInitialized() ? TRUE : FALSE;
}

bool CNALCRLContext::operator==(const CNALCRLContext& other) const {
    if (m_context == other.m_context) return true;
    if (m_context == nullptr || other.m_context == nullptr) return false;
    return nal::EncodingOf(*m_context) == nal::EncodingOf(*other.m_context);
}

IdentObj CNALCRLContext::GetSerialNumber() const {
    if (m_context == nullptr) return {};
    const nal::CrlSerial& serial = nal::CrlContext::From(m_context)->Key().crlSerial;
    return asnt::View(serial.data(), serial.size()).Copy();
}

unsigned int CNALCRLContext::GetCheckStatus() const {
    if (m_checkStatus != TOO_OK) return m_checkStatus;
    if (m_context == nullptr) return TOO_E_NOT_INITIALIZED;
    const FILETIME now = CTOOFileTime::Now();
    if (CertVerifyCRLTimeValidity(&now, m_context->pCrlInfo) > 0) m_checkStatus = TOO_E_EXPIRED;
    return m_checkStatus;
}

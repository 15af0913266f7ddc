#include "certstorage/crl_decoder.h"

#include <algorithm>

#include "certstorage/invariant.h"

namespace nal {

CNAL_CRL_List DecodeCrl(asnt::View encoded) {
    CNAL_CRL_List crl;
    if (crl.ReadData(encoded.data, static_cast<unsigned>(encoded.size)) != encoded.size) {
        asnt::ThrowBadStructure("CNAL_CRL_List::ReadData");
    }
    return crl;
}

std::optional<IdentObj> IssuerKeyIDOf(const CNAL_CRL_Info& crl) {
    CNALIssuerPublicKeyID issuer;
    if (!issuer.ReadFrom(crl.m_extensions, c_NAL_OID_AUTHORITY_KEY_ID)) return std::nullopt;
    return issuer.GetKeyID();
}

CrlKey ToCrlKey(const IdentObj& issuerKeyID, const IdentObj& crlSerial, const CrlKeyTexts& texts) {
    CrlKey key;
    NAL_STORE_INVARIANT(key.issuerID.size() == issuerKeyID.GetSize(), texts.issuerID);
    NAL_STORE_INVARIANT(key.crlSerial.size() == crlSerial.GetSize(), texts.crlSerial);
    std::copy_n(issuerKeyID.GetData(), key.issuerID.size(), key.issuerID.begin());
    std::copy_n(crlSerial.GetData(), key.crlSerial.size(), key.crlSerial.begin());
    return key;
}

}  // namespace nal

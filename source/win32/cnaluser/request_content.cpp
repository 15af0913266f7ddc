#include "win32/cnaluser/request_content.h"

#include <cstring>

#include "asnt/writer.h"
#include "model/encoding.h"
#include "nal/user.h"
#include "ork/provider.h"
#include "trust/network_identifier.h"

namespace nal {
namespace {

// The forms of alternative names that came later go the same way as the older ones.
constexpr const char* c_carriedExtensions[] = {
    c_NAL_OID_OLD_SUBJECT_ALT_NAME, c_NAL_OID_OLD_ISSUER_ALT_NAME, c_NAL_OID_SUBJECT_ALT_NAME,
    c_NAL_OID_ISSUER_ALT_NAME,      c_NAL_OID_KEY_USAGE,           c_NAL_OID_EXTENDED_KEY_USAGE,
};

CTOOFileTime AfterMonths(const CTOOFileTime& time, unsigned short months) {
    SYSTEMTIME fields = CTOODateTime(time).GetFields();
    AddMonthToTime(&fields, months);
    return CTOODateTime(fields).GetFileTime();
}

/// The key identifier alone: name and serial number of the issuer's certificate are for the issuer to say.
void AddAuthority(const CNALCertInfo& from, CNALCertExtensionList& extensions) {
    CNALIssuerPublicKeyID authority;
    if (!authority.ReadFrom(from.m_extensions) || authority.GetKeyID().IsEmpty()) return;
    extensions.Add(CNALIssuerPublicKeyID(authority.GetKeyID()).ToExtension(c_NAL_OID_AUTHORITY_KEY_ID, false));
}

CNALCertExtensionList ExtensionsFor(const CNALCertInfo& from, const CNALCertPublicKeyInfo& key, const RequestPeriod& period) {
    CNALCertExtensionList extensions;
    for (const char* oid : c_carriedExtensions) {
        if (const CNALCertExtension* extension = from.m_extensions.FindExtension(oid)) extensions.Add(*extension);
    }
    extensions.Add(CNALSubjectKeyID(key.GetKeyID()).ToExtension(c_NAL_OID_SUBJECT_KEY_ID, false));
    AddAuthority(from, extensions);
    CKeyUsagePeriod usage;
    usage.m_hasNotBefore = usage.m_hasNotAfter = true;
    usage.m_notBefore = period.notBefore;
    usage.m_notAfter = period.notAfter;
    extensions.Add(usage.ToExtension(c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD, false));
    return extensions;
}

}  // namespace

RequestPeriod RequestPeriod::Complete(CTOOFileTime notBefore, CTOOFileTime notAfter, const char* failureText) {
    RequestPeriod period{notBefore, notAfter};
    try {
        if (period.notBefore.IsZero()) period.notBefore = CTOOFileTime::Now();
        if (period.notAfter.IsZero()) period.notAfter = AfterMonths(period.notBefore, NAL_REQUEST_MONTHS);
    } catch (const XTOOStatus&) {
        throw XTOOStatus(TOO_E_BAD_ARGUMENT, failureText);
    }
    if (period.notAfter <= period.notBefore) throw XTOOStatus(TOO_E_BAD_ARGUMENT, failureText);
    return period;
}

IdentObj MakeRequestIdentity(const CTOOString& network, DWORD number) {
    constexpr unsigned size = 16;
    constexpr unsigned randomAt = 8;
    const DWORD networkNumber = IsNetworkIdentifier(network.view()) ? static_cast<DWORD>(std::stoul(network.str(), nullptr, 16)) << 16 : 0;
    IdentObj identity;
    identity.SetSize(size);
    std::memcpy(identity.GetData(), &networkNumber, sizeof networkNumber);
    std::memcpy(identity.GetData() + sizeof networkNumber, &number, sizeof number);
    const DWORD reason = ORKSCApi_GetRandomByteOctet(identity.GetData() + randomAt, size - randomAt, nullptr);
    if (reason != 0) throw XTOOStatus(WinErr2ToolsErr(reason), "ORKSCApi_GetRandomByteOctet");
    return identity;
}

CNALPKCS10Data MakeRequestContent(const CNALCertInfo& from, const CNALCertPublicKeyInfo& key, const RequestPeriod& period,
                                  const IdentObj& identity) {
    CNALPKCS10Data data;
    data.m_subject = from.m_subject;
    data.m_publicKey = key;
    data.SetExtensions(ExtensionsFor(from, key, period));
    data.m_attributes.Add(c_NAL_OID_REQUEST_IDENTITY, Encoded([&](asnt::Writer& writer) { writer.OctetString(asnt::View(identity)); }));
    data.m_attributes.Add(c_NAL_OID_SIGNING_TIME, Encoded([&](asnt::Writer& writer) { writer.Time(CTOOFileTime::Now()); }));
    return data;
}

}  // namespace nal

// Whether a certificate and its private key may make signatures.
#include <algorithm>
#include <optional>

#include "frame/failure.h"
#include "nal/verify.h"

namespace {

/// Whether a certificate is for signing: not a CA, and with the key usage.
/// @throws XTOOStatus when a name or an extension does not decode
bool IsForSigning(const CNALCertInfo& info) {
    bool isCA = info.m_subject == info.m_issuer;
    CNALBasicConstraints constraints;
    CNALOldBasicConstraints old;
    if (constraints.ReadFrom(info.m_extensions, c_NAL_OID_BASIC_CONSTRAINTS)) {
        isCA = isCA || constraints.m_isCA;
    } else if (old.ReadFrom(info.m_extensions, c_NAL_OID_OLD_BASIC_CONSTRAINTS)) {
        isCA = isCA || old.IsCA();
    }
    CNALKeyUsage usage;
    const bool allowed =
        usage.ReadFrom(info.m_extensions, c_NAL_OID_KEY_USAGE) && usage.HasAny(CNALKeyUsage::DigitalSignature);
    return allowed && !isCA;
}

/// @throws XTOOStatus when the extension does not decode
std::optional<CKeyUsagePeriod> KeyPeriodOf(const CNALCertInfo& info) {
    CKeyUsagePeriod period;
    if (!period.ReadFrom(info.m_extensions, c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD)) return std::nullopt;
    return period;
}

bool Holds(const CKeyUsagePeriod& period, const CTOOFileTime& at) {
    return !(period.m_hasNotBefore && at < CTOOFileTime(period.m_notBefore)) &&
           !(period.m_hasNotAfter && at > CTOOFileTime(period.m_notAfter));
}

}  // namespace

BOOL NALCanSignByCert(const CNALCertContext& cert, bool useTime, const CTOOFileTime& time) {
    if (!cert.IsInitialized()) return nal::Refuse(NAL_VERIFY_E_NOT_ALLOWED);
    bool isForSigning = false;
    bool timeInvalid = false;
    bool periodInvalid = false;
    try {
        const CNALCertInfo info(*cert.GetContext());
        const CTOOFileTime now = CTOOFileTime::Now();
        isForSigning = IsForSigning(info);
        timeInvalid = now < CTOOFileTime(info.m_notBefore) || now > CTOOFileTime(info.m_notAfter);
        const std::optional<CKeyUsagePeriod> period = KeyPeriodOf(info);
        if (useTime && time.IsZero()) {
            periodInvalid = timeInvalid;
        } else {
            periodInvalid = period && !Holds(*period, useTime ? time : now);
        }
    } catch (const XTOOStatus&) {
        return nal::Refuse(NAL_VERIFY_E_NOT_ALLOWED);
    }
    if (periodInvalid) return nal::Refuse(NAL_VERIFY_E_KEY_PERIOD);
    if (timeInvalid) return nal::Refuse(NAL_VERIFY_E_TIME);
    return isForSigning ? TRUE : nal::Refuse(NAL_VERIFY_E_NOT_ALLOWED);
}

BOOL NALCanSignByCert_old(const CNALCertContext& cert) {
    try {
        if (cert.IsInitialized() && IsForSigning(CNALCertInfo(*cert.GetContext()))) return TRUE;
    } catch (const XTOOStatus&) {
        // Refused below: what cannot be read allows nothing.
    }
    return nal::Refuse(NAL_VERIFY_E_NOT_ALLOWED);
}

BOOL NALIsSignKeyPeriodValid(const CNALCertInfo& info, long& secondsLeft, FILETIME& keyNotAfter, const CTOOFileTime& at) {
    secondsLeft = -1;
    keyNotAfter = {0, 0};
    std::optional<CKeyUsagePeriod> period;
    try {
        period = KeyPeriodOf(info);
    } catch (const XTOOStatus&) {
        secondsLeft = 0;
        return nal::Refuse(NAL_VERIFY_E_NOT_ALLOWED);
    }
    if (!period) return TRUE;
    const CTOOFileTime reference = at.IsZero() ? CTOOFileTime::Now() : at;
    keyNotAfter = period->m_notAfter;
    if (!Holds(*period, reference)) {
        secondsLeft = 0;
        return nal::Refuse(NAL_VERIFY_E_KEY_PERIOD);
    }
    if (period->m_hasNotAfter) {
        const std::uint64_t ticks = CTOOFileTime(period->m_notAfter).GetTicks() - reference.GetTicks();
        secondsLeft = static_cast<long>(ticks / CTOOFileTime::c_ticksPerSecond);
    }
    return TRUE;
}

void NALCertGetValidUsages(const std::vector<CNALCertContext>& certs, std::list<CTOOString>& usages, bool& allUsages) {
    usages.clear();
    allUsages = false;
    bool isRestricted = false;
    for (const CNALCertContext& cert : certs) {
        std::list<CTOOString> own;
        bool all = false;
        NALGetEnhancedKeyUsage(cert.GetContext(), 0, own, all);
        if (all) continue;
        if (!isRestricted) {
            usages = std::move(own);
            isRestricted = true;
            continue;
        }
        usages.remove_if([&](const CTOOString& usage) { return std::find(own.begin(), own.end(), usage) == own.end(); });
    }
    allUsages = !certs.empty() && !isRestricted;
}

void NALGetEnhancedKeyUsage(const CERT_CONTEXT* /*cert*/, unsigned /*flags*/, std::list<CTOOString>& /*usages*/, bool& /*allUsages*/) {}

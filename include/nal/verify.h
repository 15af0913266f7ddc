/// Rules for one certificate, beside those of its chain (nal/chain.h): is it signed by that issuer, may it sign, how long does its
/// private key live.
///
/// All functions may be called from any threads at once.
#pragma once

#include <list>
#include <vector>

#include "nal/certificate.h"
#include "nal/context.h"
#include "nal/export.h"
#include "nal/storage.h"
#include "nal/wincrypt.h"
#include "too/string.h"
#include "too/time.h"
#include "too/types.h"

/// Last errors of NALCanSignByCert.
#define NAL_VERIFY_E_NOT_ALLOWED 106U   ///< the certificate is not for signing, or an extension of it does not decode
#define NAL_VERIFY_E_TIME 203U          ///< it is not valid now
#define NAL_VERIFY_E_KEY_PERIOD 233U    ///< its private key's usage period is over or has not begun
/// Last error of NALVerifySubjectCertificateContext for a subject that does not decode.
#define NAL_VERIFY_E_BAD_SUBJECT 0x800B0006U

/// Verifies a certificate by one issuer.
///
/// Time: the subject's validity has begun before the issuer's ends, and the subject is valid now; a certificate whose last moment is
/// now is not. Revocation: the CRL of the issuer whose number is longer than four bytes and begins with the first four bytes of the
/// issuer's serial number, as stores keep both (least significant byte first), or else any CRL of the issuer; only one that the issuer
/// signed and whose this-update is not in the future, and of several the latest (CNALCertStorage::GetCrlFromStorage).
///
/// @param flags       in: the checks to make, CERT_STORE_SIGNATURE_FLAG, CERT_STORE_TIME_VALIDITY_FLAG, CERT_STORE_REVOCATION_FLAG; out:
///                    those that failed, and CERT_STORE_NO_CRL_FLAG in the place of the last when there is no CRL
/// @param crlStorage  where the CRL is sought; null or closed: in the issuer's own store, which is then read anew by each call
/// @param crlOut      receives the CRL that was used, or is emptied; may be null
/// @return TRUE when the checks were made: the verdict is in `flags`, and 0 is the only good one. FALSE with last error 87 when a
///         context or `flags` is missing, NAL_VERIFY_E_BAD_SUBJECT, or 230 for a signature algorithm outside the GOST family
NAL_EXPORT BOOL NALVerifySubjectCertificateContext(const CNALCertContext& subject, const CNALCertContext& issuer, unsigned* flags,
                                                   CNALCertStorage* crlStorage = nullptr, CNALCRLContext* crlOut = nullptr);

/// Tells whether signatures may be made with a certificate, or, of a signature made at `time`, whether it may have been.
///
/// It may when its key usage (extension "2.5.29.15", which must be there) has digitalSignature, when it is no CA (neither self-issued
/// nor one by "2.5.29.19" or the older "2.5.29.10"), when it is valid now, and when the private key's usage period ("2.5.29.16") holds
/// the time in question. The chain is not looked at.
///
/// @param useTime  false: the key's period is held against the present time
/// @param time     with `useTime`: the time that it is held against; zero: the certificate's validity now stands for it
/// @return TRUE; else FALSE with last error NAL_VERIFY_E_KEY_PERIOD, or else NAL_VERIFY_E_TIME, or else NAL_VERIFY_E_NOT_ALLOWED: the
///         first that applies, but an extension that does not decode, and an empty `cert`, are NAL_VERIFY_E_NOT_ALLOWED at once
/// Source: RFC 5280 sections 4.2.1.3, 4.2.1.9; RFC 3280 section 4.2.1.4.
NAL_EXPORT BOOL NALCanSignByCert(const CNALCertContext& cert, bool useTime, const CTOOFileTime& time);
/// The older form: key usage and CA alone, no times. @return FALSE with last error NAL_VERIFY_E_NOT_ALLOWED
NAL_EXPORT BOOL NALCanSignByCert_old(const CNALCertContext& cert);

/// Tells whether a certificate's private key may be used at a time, and how long still.
///
/// @param secondsLeft  receives whole seconds from `at` to the end of the period; 0 outside it; -1 when the certificate has no private-key
///                     usage period or that has no end
/// @param keyNotAfter  receives the end of the period; zero when there is none
/// @param at           the time; zero means now. Both bounds of the period belong to it
/// @return FALSE outside the period, and, with last error NAL_VERIFY_E_NOT_ALLOWED and 0 seconds, when the extension does not decode
NAL_EXPORT BOOL NALIsSignKeyPeriodValid(const CNALCertInfo& info, long& secondsLeft, FILETIME& keyNotAfter, const CTOOFileTime& at);

/// The usages that all of some certificates have, by NALGetEnhancedKeyUsage.
/// @param usages     emptied, then receives the OIDs
/// @param allUsages  receives true when every certificate, and at least one, is good for everything
NAL_EXPORT void NALCertGetValidUsages(const std::vector<CNALCertContext>& certs, std::list<CTOOString>& usages, bool& allUsages);
/// Does nothing on this platform and leaves its outputs as they are: kept deliberately. CNALExtendedKeyUsage (nal/extensions.h) reads
/// the extension.
NAL_EXPORT void NALGetEnhancedKeyUsage(const CERT_CONTEXT* cert, unsigned flags, std::list<CTOOString>& usages, bool& allUsages);

/// What verifications hash with: a hash algorithm, a provider opened for checking, and a hash made in it.
class NAL_EXPORT CNALVerifyParams {
public:
    /// @param hashOID  dotted; null or empty means "1.2.643.2.2.9", GOST R 34.11-94
    /// @throws XTOOStatus with the provider's status and the text "CNALProvider::Init" (also for a hash that no provider here has) or
    ///         "ORKCreateHash"
    explicit CNALVerifyParams(const char* hashOID);
    /// Copies share the provider and have no hash.
    CNALVerifyParams(const CNALVerifyParams& other);
    CNALVerifyParams& operator=(const CNALVerifyParams& other);
    ~CNALVerifyParams();

    const CTOOString& GetHashOID() const { return m_hashOID; }
    /// The hash's ALG_ID; 0 for one that is not known.
    DWORD GetHashAlgId() const { return m_hashAlgId; }
    const CNALProvider& GetProvider() const { return m_provider; }
    /// The hash, still owned by this object; 0 in a copy.
    unsigned long GetHash() const { return m_hash; }

private:
    void DestroyHash();

    CTOOString m_hashOID;
    DWORD m_hashAlgId = 0;
    CNALProvider m_provider;
    unsigned long m_hash = 0;
};

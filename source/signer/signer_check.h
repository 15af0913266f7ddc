// Checking one SignerInfo with one certificate. Chains, and whether a certificate may sign, are the callers'.
#pragma once

#include "nal/algorithm.h"
#include "nal/context.h"
#include "nal/signature_check.h"
#include "nal/signed_data.h"
#include "signer/content_hash.h"

namespace nal {

/// The hash algorithm of a signer info; 0 when its digest algorithm is no hash that is known.
DWORD HashAlgorithmOf(const CNALMessageSignerInfo& signer);

/// One signer of a message. What does not depend on the certificate is found once; then candidates are tried.
class SignerCheck {
public:
    /// @param hProv        any context of the provider
    /// @param signer       must outlive this, as must the next one
    /// @param content      finished, with the signer's algorithm in it if the provider has it
    /// @param contentType  the message's eContentType
    SignerCheck(unsigned long hProv, const CNALMessageSignerInfo& signer, const ContentHashes& content,
                const CTOOString& contentType);

    /// 0; or c_NAL_SIGNATURE_INVALID or c_NAL_CONTENT_TYPE_INVALID, which no certificate mends: the attributes are missing, repeated, not
    /// single-valued, or speak of another content.
    DWORD AttributesStatus() const { return m_status; }

    /// The signing time, or without the attribute the time at which this object was made.
    const CTOOFileTime& SigningTime() const { return m_signingTime; }

    /// Checks against a candidate, which IsSignerOf has accepted.
    /// @return AttributesStatus() when it is not 0; c_NAL_SIGNING_TIME_INVALID, c_NAL_SIGNATURE_INVALID, or 0 when the signature holds
    ///         under the certificate's key
    /// @throws XTOOStatus when the provider cannot check (out of memory); nothing for damaged certificates or signatures
    DWORD CheckWith(const CNALCertContext& cert) const;

    /// The same whenever the certificate was valid.
    DWORD CheckSignature(const CNALCertContext& cert) const;
    /// The same under a key.
    DWORD CheckSignature(const CNALCertPublicKeyInfo& publicKey) const;

private:
    DWORD ReadAttributes(const ContentHashes& content, const CTOOString& contentType);
    bool HoldsUnder(const KeyHandle& key, const IdentObj& attributes) const;

    unsigned long m_provider;
    const CNALMessageSignerInfo& m_signer;
    const ContentHash* m_hash;
    CTOOFileTime m_signingTime;
    DWORD m_status;
};

}  // namespace nal

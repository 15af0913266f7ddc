// Checking one SignerInfo with one certificate. Chains, and whether a certificate may sign, are the callers'.
#pragma once

#include "nal/algorithm.h"
#include "nal/context.h"
#include "nal/signed_data.h"
#include "signer/content_hash.h"

namespace nal {

// What a check of a signer gives; 0 is a signature that holds.
inline constexpr DWORD c_signerHolds = 0;
inline constexpr DWORD c_signerUnknown = 0x80096002;      ///< no certificate of the signer was found
inline constexpr DWORD c_signerOutOfTime = 0x80096005;    ///< the signing time lies outside the certificate's validity
inline constexpr DWORD c_signatureFails = 0x80090006;     ///< other content, other attributes, or a signature that does not hold
inline constexpr DWORD c_contentTypeDiffers = 0x80090005; ///< the signed content type is not the message's
inline constexpr DWORD c_signerMayNotSign = 0x800B0110;   ///< the certificate is not one for signing

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

    /// 0; or c_signatureFails or c_contentTypeDiffers, which no certificate mends: the attributes are missing, repeated, not
    /// single-valued, or speak of another content.
    DWORD AttributesStatus() const { return m_status; }

    /// The signing time, or without the attribute the time at which this object was made.
    const CTOOFileTime& SigningTime() const { return m_signingTime; }

    /// Checks against a candidate, which IsSignerOf has accepted.
    /// @return AttributesStatus() when it is not 0; c_signerOutOfTime, c_signatureFails, or 0 when the signature holds under the
    ///         certificate's key
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

/// A key pair of an issuer or a user, in a container of the provider.
#pragma once

#include "nal/algorithm.h"
#include "nal/context.h"
#include "nal/signed_envelope.h"
#include "ork/constants.h"
#include "ork/handles.h"
#include "too/ident_obj.h"
#include "too/string.h"

namespace keycentre {

/// A key pair in use. Its private half never leaves the provider. Moves hand it over; for one thread at a time.
///
/// Everything throws XTOOStatus with the provider's status and the container's name: 86 wrong password, 121 no such container,
/// 122 there is one already, 32 it has no such key.
class KeyPair {
public:
    /// Makes a container with one key pair.
    ///
    /// @param container  its path, or a bare name in the provider's directory; must not exist
    /// @param password   protects it; empty for none. No copy of it stays
    /// @param algId      ORK_KEY_SIGNATURE or ORK_KEY_EXCHANGE (both GOST R 34.10-2001 unless `paramOid` says otherwise), or the
    ///                   ALG_ID of a key, as ORKGenKey takes it
    /// @param paramOid   parameter set; null for the default one of the kind
    static KeyPair Create(const CTOOString& container, const char* password, DWORD algId = ORK_KEY_SIGNATURE,
                          const char* paramOid = nullptr);
    /// Opens the first key pair of a container. The password is tried at once.
    static KeyPair Open(const CTOOString& container, const char* password);

    /// The provider context and the private key, still owned here.
    unsigned long GetProvider() const { return m_provider.GetProviderHandle(); }
    CNALProvider GetOpenProvider() const { return m_provider; }
    unsigned long GetKey() const { return m_key.Get(); }
    const CTOOString& GetContainer() const { return m_container; }
    /// The public half, as certificates and requests hold it.
    const CNALCertPublicKeyInfo& GetPublicKey() const { return m_publicKey; }

    /// The algorithm that Sign uses. @throws XTOOStatus(73) for a key that does not sign
    CNALAlgorithmIdentifier GetSignatureAlgorithm() const { return CNALSignedData::GetSignatureAlgorithm(m_key.Get()); }
    /// The envelope of certificates, CRLs and requests around `toBeSigned`, DER.
    IdentObj Sign(IdentObj toBeSigned) const;
    /// Stores a certificate beside the key in its container.
    void Bind(const IdentObj& certificate) const;

private:
    KeyPair() = default;
    void Export();

    CTOOString m_container;
    CNALProvider m_provider;
    ork::KeyHandle m_key;
    CNALCertPublicKeyInfo m_publicKey;
};

}  // namespace keycentre

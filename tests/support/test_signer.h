// A key pair that signs what the builders make, so that it verifies.
#pragma once

#include "model/provider_handles.h"
#include "nal/signed_envelope.h"
#include "support/cert_builder.h"
#include "support/temp_folder.h"

namespace nal_test {

/// A GOST R 34.10-2001 key that lives as long as this object.
class TestSigner {
public:
    /// @throws XTOOStatus when the provider refuses
    TestSigner();

    /// The public key as certificates hold it, DER.
    const IdentObj& PublicKeyInfo() const { return m_publicKeyInfo; }
    /// The same certificate or CRL, signed with this key.
    IdentObj Sign(const IdentObj& built) const;

    /// The signature over these bytes, as certificates hold it, with its algorithm.
    CNALSignedData SignBytes(const IdentObj& bytes) const;

    /// A certificate whose key is `subject`'s, signed with this one.
    IdentObj Issue(CertBuilder builder, const TestSigner& subject) const;

private:
    TempFolder m_folder;  // of its container
    nal::ContextHandle m_provider;
    nal::KeyHandle m_key;
    IdentObj m_publicKeyInfo;
};

}  // namespace nal_test

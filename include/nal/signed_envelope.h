/// The bare signed envelope: what certificates, CRLs and certification requests have in common.
///
///     SEQUENCE { toBeSigned ANY, signatureAlgorithm AlgorithmIdentifier, signatureValue BIT STRING }
///
/// Source: RFC 5280 sections 4.1 and 5.1, RFC 2986 section 4.2; signatures of the GOST family as RFC 4491 section 2.2 writes them.
#pragma once

#include "asnt/view.h"
#include "asnt/writer.h"
#include "nal/algorithm.h"
#include "nal/export.h"
#include "too/bit_blob.h"
#include "too/ident_obj.h"

/// Bytes to be signed, the algorithm and the signature; signs and checks itself.
///
/// Functions with `err` store a status there and return 0 or an empty object on failure; with a null `err` they throw
/// XTOOStatus(status, context) instead. Success stores 0. A value: distinct objects may be used by several threads at once.
class NAL_EXPORT CNALSignedData {
public:
    /// Reads an envelope from the start of `data`.
    /// @return the bytes consumed; 0, with nothing changed, on failure and for a null pointer or a size of 0 (which is not one)
    /// Status: 206, context "CNALSignedData::ReadData", for anything but the three elements.
    unsigned ReadData(const unsigned char* data, unsigned size, int* err);

    /// The envelope's DER.
    /// Status: 42, context "CNALSignedData::WriteData", when there is nothing to be signed, no algorithm or no signature;
    /// 36 when they cannot be encoded.
    IdentObj WriteData(int* err) const;

    /// Signs m_data with a private key of the provider: sets m_algorithm to the signature algorithm of that key, without
    /// parameters (RFC 4491 section 2.2), and m_signature. Nothing changes on failure.
    ///
    /// A structure that names its signature algorithm inside m_data takes it from GetSignatureAlgorithm first.
    ///
    /// @param hProv  the provider context that the key belongs to
    /// @param hKey   a private key opened in it
    /// @return 1, or 0 on failure
    /// Status: 28 for a zero handle; 73 when a provider call fails or the key's algorithm does not sign. The context is
    /// "CNALSignedData::ReadObject".
    int SignData(unsigned long hProv, unsigned long hKey, int* err);

    /// Checks the signature over m_data. See NALCheckSignature.
    /// @return 1 when it holds, else 0
    int CheckSignature(unsigned long hProv, const CNALCertPublicKeyInfo& signer, int* err) const;

    /// The algorithm that SignData records for a key.
    /// @throws XTOOStatus(28) for a zero handle; XTOOStatus(73) when the provider refuses the handle or the key does not
    ///         sign; the context is "CNALSignedData::GetSignatureAlgorithm"
    static CNALAlgorithmIdentifier GetSignatureAlgorithm(unsigned long hKey);

    IdentObj m_data;                      ///< the bytes to be signed: one complete DER element
    CNALAlgorithmIdentifier m_algorithm;  ///< the signature algorithm
    CTOOCryptBitBlob m_signature;         ///< the BIT STRING as encoded: s, then r, most significant byte first
};

/// Checks a signature of the kind that certificates, CRLs and requests carry.
///
/// @param hProv      a provider context; one without a container is enough
/// @param data       the signed bytes; not copied
/// @param algorithm  the signature algorithm; only its OID counts
/// @param signature  the BIT STRING as encoded
/// @param signer     the signer's public key
/// @param err        receives 0; 28 for a zero handle; 73 for an algorithm that is not of the GOST family, or not one for this
///                   key; 58 for a signature that does not hold; else the status of the provider's failure. May not be null
///                   unless the caller wants XTOOStatus(status, "NALCheckSignature") thrown
/// @return 1 exactly when the signature holds
/// Thread-safe, with one provider context too.
NAL_EXPORT int NALCheckSignature(unsigned long hProv, asnt::View data, const CNALAlgorithmIdentifier& algorithm,
                                 const CTOOCryptBitBlob& signature, const CNALCertPublicKeyInfo& signer, int* err);

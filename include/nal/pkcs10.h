/// Certification requests. Source: RFC 2986.
///
/// A request is signed with the new key that it asks a certificate for. One that renews a key, or that is made for somebody
/// else, also carries the signature of a key that has a certificate already, in an attribute of its own:
///
///     second signature  1.3.6.1.4.1.47474.2.1.4.2, one value:
///     SEQUENCE {
///         signer              SEQUENCE { issuer Name, serialNumber INTEGER },
///         keyIdentifier       OCTET STRING,        -- the signer certificate's subject key identifier
///         signatureAlgorithm  AlgorithmIdentifier,
///         signature           BIT STRING }
///
/// It covers the CertificationRequestInfo as it stands without this attribute. The signature of the new key, made last, covers
/// it in turn. Who checks a request checks the outer signature, takes the attribute out, encodes what is left and checks the
/// inner signature over that.
///
/// The request's identity travels with it, in an attribute whose one value is an OCTET STRING of 16 bytes:
///
///     identity  1.3.6.1.4.1.47474.2.1.2.1
///     bytes 0-3 network number << 16, 4-7 certificate number (both least significant byte first), 8-15 random
///
/// The certificate that is issued takes its serial number from it. The period that a key is wanted for is asked for by the extension
/// "2.5.29.16" (private-key usage period).
///
/// All classes are values; distinct objects may be used by several threads at once.
#pragma once

#include "asnt/writer.h"
#include "nal/algorithm.h"
#include "nal/attributes.h"
#include "nal/export.h"
#include "nal/extensions.h"
#include "nal/name.h"
#include "nal/signed_envelope.h"
#include "too/bit_blob.h"
#include "too/ident_obj.h"
#include "too/types.h"

/// The value of the second-signature attribute.
class NAL_EXPORT CNALSecondSignature {
public:
    /// @return the bytes consumed; 0, with nothing changed, for a null pointer or a size of 0
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, "CNALSecondSignature::ReadData"); nothing is changed then
    unsigned ReadData(const void* data, unsigned size);
    IdentObj WriteData() const;
    unsigned GetObjectSize() const;

    /// Which certificate signed.
    CNALX509Name m_issuer;
    IdentObj m_serialNumber;   ///< least significant byte first
    IdentObj m_keyIdentifier;

    CNALAlgorithmIdentifier m_algorithm;
    CTOOCryptBitBlob m_signature;  ///< the BIT STRING as encoded
};

/// The content of a request (CertificationRequestInfo): subject, public key and attributes.
class NAL_EXPORT CNALPKCS10Data {
public:
    /// @return the bytes consumed; 0, with nothing changed, for a null pointer or a size of 0
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, "CNALPKCS10Data::ReadData") for anything but a version 1 request; nothing is
    ///         changed then
    unsigned ReadData(const void* data, unsigned size);
    /// The content's DER; the attributes keep their order, and their field is there when there are none.
    /// @throws XTOOStatus(TOO_E_NOT_INITIALIZED) without a public key
    IdentObj WriteData() const;
    unsigned GetObjectSize() const;

    /// The extensions that the request asks for (attribute 1.2.840.113549.1.9.14, RFC 2985 section 5.4.2); none when it asks
    /// for none.
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE) when the attribute is repeated, has not one value, or does not decode
    CNALCertExtensionList GetExtensions() const;
    /// Puts the attribute in the place of any such; an empty list takes it out.
    void SetExtensions(const CNALCertExtensionList& extensions);

    /// Signs the content as it stands without a second signature, and adds that signature as the last attribute in the place
    /// of any older one. Nothing is changed on failure.
    ///
    /// @param signature  names the signer's certificate; receives algorithm and signature
    /// @param err        as in CNALSignedData::SignData, whose statuses it gives; also 42 for an incomplete name of the signer
    /// @return 1, or 0 on failure
    int AddSecondSignature(CNALSecondSignature& signature, unsigned long hProv, unsigned long hKey, int* err);
    /// @param signature  receives the second signature; untouched when the result is false
    /// @return false when the request has none
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE) when the attribute is repeated, has not one value, or does not decode
    bool GetSecondSignature(CNALSecondSignature& signature) const;
    /// As GetSecondSignature, and takes the attribute out.
    bool TakeSecondSignature(CNALSecondSignature& signature);
    /// Checks the second signature under the key of the certificate that it names, which the caller has found and verified.
    /// @param err  as in NALCheckSignature; also 194 when the request has no second signature, 206 when it is damaged
    /// @return 1 exactly when it holds
    int CheckSecondSignature(unsigned long hProv, const CNALCertPublicKeyInfo& signer, int* err) const;

    CNALX509Name m_subject;
    CNALCertPublicKeyInfo m_publicKey;
    CNALAttributesList m_attributes{0, false};
};

/// A request: its content, signed.
class NAL_EXPORT CNALPKCS10Request {
public:
    /// @return the bytes consumed; 0, with nothing changed, for a null pointer or a size of 0
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, "CNALPKCS10Request::ReadData" or as CNALPKCS10Data::ReadData); nothing is
    ///         changed then
    unsigned ReadData(const void* data, unsigned size);
    /// The request's DER. @throws XTOOStatus(TOO_E_NOT_INITIALIZED) before it was read or signed
    IdentObj WriteData() const { return m_envelope.WriteData(nullptr); }
    unsigned GetObjectSize() const { return WriteData().GetSize(); }

    /// Makes the request for `data`: encodes it and signs it with the new key. Nothing is changed on failure.
    /// @param err  as in CNALSignedData::SignData; also the statuses of CNALPKCS10Data::WriteData
    /// @return 1, or 0 on failure
    int SignData(const CNALPKCS10Data& data, unsigned long hProv, unsigned long hKey, int* err);
    /// Checks the signature over the bytes that were read or signed, under the request's own public key.
    /// @param err  as in NALCheckSignature
    /// @return 1 exactly when it holds
    int CheckSignature(unsigned long hProv, int* err) const;

    const CNALPKCS10Data& GetData() const { return m_data; }
    /// The signed bytes, the algorithm and the signature.
    const CNALSignedData& GetEnvelope() const { return m_envelope; }

private:
    CNALPKCS10Data m_data;
    CNALSignedData m_envelope;
};

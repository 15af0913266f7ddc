// Signing and checking: the members of the model's classes that need the provider. Everything else in this folder is codecs.

#include <utility>

#include "frame/failure.h"
#include "model/integer_order.h"
#include "model/provider_handles.h"
#include "model/signature_numbers.h"
#include "nal/crl.h"
#include "nal/pkcs10.h"
#include "nal/signed_envelope.h"
#include "ork/provider.h"
#include "too/status.h"

namespace {

// Signing reports under the name of another operation; callers know it by this text.
constexpr char c_signContext[] = "CNALSignedData::ReadObject";
constexpr char c_checkContext[] = "NALCheckSignature";
constexpr char c_addSecondContext[] = "CNALPKCS10Data::AddSecondSignature";
constexpr char c_checkSecondContext[] = "CNALPKCS10Data::CheckSecondSignature";

bool HashData(unsigned long hProv, DWORD hashAlgId, unsigned long hKey, asnt::View data, nal::HashHandle& hash) {
    return ORKCreateHash(hProv, hashAlgId, hKey, hash.Receive(), 0) &&
           ORKHashData(hash.Get(), data.data, static_cast<DWORD>(data.size), 0);
}

bool FindSignatureAlgorithm(DWORD keyAlgId, CNALAlgorithmIdentifier& algorithm) {
    CNALAlgorithmIdentifier found;  // RFC 4491 section 2.2: without parameters
    if (!GetOIDFromAlgID(found.m_algorithm, nal::HashForKey(keyAlgId), nal::SignatureKeyFor(keyAlgId))) return false;
    algorithm = std::move(found);
    return true;
}

IdentObj WithoutSecondSignature(CNALPKCS10Data data) {
    data.m_attributes.Remove(c_NAL_OID_SECOND_SIGNATURE);
    return data.WriteData();
}

}  // namespace

int CNALSignedData::SignData(unsigned long hProv, unsigned long hKey, int* err) {
    nal::Outcome outcome;
    // A provider that cannot name its hash parameters does not sign. The answer goes nowhere: the algorithm identifier of a
    // GOST signature has no parameters.
    IdentObj hashParams;
    DWORD keyAlgId = 0;
    nal::HashHandle hash;
    IdentObj signature;
    CNALAlgorithmIdentifier algorithm;
    if (hProv == 0 || hKey == 0) {
        outcome.Fail(TOO_E_BAD_ARGUMENT, c_signContext);
    } else if (!ORKGetProvParam(hProv, ORK_PARAM_HASH_PARAMS, hashParams) ||
               !ORKGetKeyParam(hKey, ORK_KEY_PARAM_ALGID, keyAlgId) || !FindSignatureAlgorithm(keyAlgId, algorithm) ||
               !HashData(hProv, nal::HashForKey(keyAlgId), hKey, m_data, hash) ||
               !ORKSignHash(hash.Get(), ORK_KEY_ANY, 0, signature)) {
        outcome.Fail(TOO_E_UNKNOWN_ALGORITHM, c_signContext);
    } else {
        m_algorithm = std::move(algorithm);
        m_signature = CTOOCryptBitBlob(nal::ToProviderOrder(signature));
    }
    return outcome.Finish(err);
}

int CNALSignedData::CheckSignature(unsigned long hProv, const CNALCertPublicKeyInfo& signer, int* err) const {
    return NALCheckSignature(hProv, m_data, m_algorithm, m_signature, signer, err);
}

CNALAlgorithmIdentifier CNALSignedData::GetSignatureAlgorithm(unsigned long hKey) {
    constexpr char context[] = "CNALSignedData::GetSignatureAlgorithm";
    if (hKey == 0) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
    DWORD keyAlgId = 0;
    CNALAlgorithmIdentifier algorithm;
    if (!ORKGetKeyParam(hKey, ORK_KEY_PARAM_ALGID, keyAlgId) || !FindSignatureAlgorithm(keyAlgId, algorithm)) {
        throw XTOOStatus(TOO_E_UNKNOWN_ALGORITHM, context);
    }
    return algorithm;
}

int NALCheckSignature(unsigned long hProv, asnt::View data, const CNALAlgorithmIdentifier& algorithm,
                      const CTOOCryptBitBlob& signature, const CNALCertPublicKeyInfo& signer, int* err) {
    nal::Outcome outcome;
    nal::SignatureNumbers numbers{};
    nal::SignatureNumbers signerNumbers{};
    nal::HashHandle hash;
    nal::KeyHandle key;
    if (hProv == 0) {
        outcome.Fail(TOO_E_BAD_ARGUMENT, c_checkContext);
    } else if (!nal::FindSignatureNumbers(algorithm, numbers) || !nal::FindSignatureNumbers(signer.m_algorithm, signerNumbers) ||
               numbers.key != signerNumbers.key) {
        outcome.Fail(TOO_E_UNKNOWN_ALGORITHM, c_checkContext);
    } else if (!HashData(hProv, numbers.hash, 0, data, hash) || !NALIportPKInfo(hProv, signer, key.Receive())) {
        outcome.FailProvider(c_checkContext);
    } else if (signature.m_unusedBits != 0) {
        outcome.Fail(TOO_E_BAD_SIGNATURE, c_checkContext);
    } else if (!ORKVerifySignature(hash.Get(), nal::ToProviderOrder(signature.m_data), key.Get(), 0)) {
        // A signature of another length than the key's is one that does not hold, too.
        const DWORD reason = GetLastError();
        const bool refused = reason == ORK_E_BAD_SIGNATURE || reason == ORK_E_BAD_LENGTH;
        if (refused) {
            outcome.Fail(TOO_E_BAD_SIGNATURE, c_checkContext);
        } else {
            outcome.FailProvider(c_checkContext);
        }
    }
    return outcome.Finish(err);
}

int CNAL_CRL_List::CheckSignature(unsigned long hProv, const CNALCertPublicKeyInfo& issuer, int* err) const {
    if (m_signatureAlgorithm.m_algorithm != m_info.m_signatureAlgorithm.m_algorithm) {
        nal::Outcome outcome;
        outcome.Fail(TOO_E_BAD_STRUCTURE, "CNAL_CRL_List::CheckSignature");
        return outcome.Finish(err);
    }
    return NALCheckSignature(hProv, m_signedPart, m_signatureAlgorithm, m_signature, issuer, err);
}

int CNALPKCS10Data::AddSecondSignature(CNALSecondSignature& signature, unsigned long hProv, unsigned long hKey, int* err) {
    nal::Outcome outcome;
    if (signature.m_issuer.IsEmpty() || signature.m_serialNumber.IsEmpty()) {
        outcome.Fail(TOO_E_NOT_INITIALIZED, c_addSecondContext);
        return outcome.Finish(err);
    }
    try {
        CNALSignedData inner;
        inner.m_data = WithoutSecondSignature(*this);
        inner.SignData(hProv, hKey, nullptr);
        CNALSecondSignature made = signature;
        made.m_algorithm = std::move(inner.m_algorithm);
        made.m_signature = std::move(inner.m_signature);
        CNALAttributesSet attribute(c_NAL_OID_SECOND_SIGNATURE, made.WriteData());
        m_attributes.Remove(c_NAL_OID_SECOND_SIGNATURE);
        m_attributes.Add(std::move(attribute));
        signature = std::move(made);
    } catch (const XTOOStatus& status) {
        outcome.Fail(status);
    }
    return outcome.Finish(err);
}

int CNALPKCS10Data::CheckSecondSignature(unsigned long hProv, const CNALCertPublicKeyInfo& signer, int* err) const {
    nal::Outcome outcome;
    try {
        CNALSecondSignature signature;
        if (!GetSecondSignature(signature)) {
            outcome.Fail(TOO_E_NOT_FOUND, c_checkSecondContext);
        } else {
            const IdentObj signedPart = WithoutSecondSignature(*this);
            NALCheckSignature(hProv, signedPart, signature.m_algorithm, signature.m_signature, signer, nullptr);
        }
    } catch (const XTOOStatus& status) {
        outcome.Fail(status);
    }
    return outcome.Finish(err);
}

int CNALPKCS10Request::SignData(const CNALPKCS10Data& data, unsigned long hProv, unsigned long hKey, int* err) {
    nal::Outcome outcome;
    try {
        CNALPKCS10Request made;
        made.m_envelope.m_data = data.WriteData();
        made.m_envelope.SignData(hProv, hKey, nullptr);
        made.m_data = data;
        *this = std::move(made);
    } catch (const XTOOStatus& status) {
        outcome.Fail(status);
    }
    return outcome.Finish(err);
}

int CNALPKCS10Request::CheckSignature(unsigned long hProv, int* err) const {
    return m_envelope.CheckSignature(hProv, m_data.m_publicKey, err);
}

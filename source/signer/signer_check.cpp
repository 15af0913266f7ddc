#include "signer/signer_check.h"

#include "model/integer_order.h"
#include "model/signature_numbers.h"
#include "ork/constants.h"
#include "signer/provider_calls.h"
#include "storage/cert_reader.h"

namespace nal {
namespace {

constexpr char c_context[] = "SignerCheck";

/// Whether a signer info's algorithms and a certificate's key belong together.
bool FitKey(const CNALMessageSignerInfo& signer, DWORD hashAlgId, const CNALCertPublicKeyInfo& key) {
    SignatureNumbers named{};
    SignatureNumbers has{};
    if (!FindSignatureNumbers(signer.signatureAlgorithm, named) || !FindSignatureNumbers(key.m_algorithm, has)) return false;
    return named.key == has.key && (hashAlgId != ORK_ALG_PRIVATE_HASH || has.hash == hashAlgId);
}

}  // namespace

DWORD HashAlgorithmOf(const CNALMessageSignerInfo& signer) {
    unsigned algId = 0;
    unsigned extra = 0;
    const IdentObj& oid = signer.digestAlgorithm.m_algorithm;
    const bool known = GetAlgIDFromOID(oid.GetData(), oid.GetSize(), algId, extra);
    return known && extra == 0 && (algId & ORK_ALG_CLASS_MASK) == ORK_ALG_CLASS_HASH ? algId : 0;
}

SignerCheck::SignerCheck(unsigned long hProv, const CNALMessageSignerInfo& signer, const ContentHashes& content,
                         const CTOOString& contentType)
    : m_provider(hProv),
      m_signer(signer),
      m_hash(content.Find(HashAlgorithmOf(signer))),
      m_signingTime(CTOOFileTime::Now()),
      m_status(c_NAL_SIGNATURE_INVALID) {
    try {
        m_status = ReadAttributes(content, contentType);
    } catch (const XTOOStatus&) {
        // An attribute that is repeated, has not one value, or one of another type.
    }
}

DWORD SignerCheck::ReadAttributes(const ContentHashes& content, const CTOOString& contentType) {
    if (m_hash == nullptr) return c_NAL_SIGNATURE_INVALID;
    const CNALAttributesList& attributes = m_signer.signedAttrs;
    if (attributes.empty()) {
        // The signature is over the content, and says nothing of its type (RFC 5652 section 5.3). With hash 0x8029 the attributes
        // follow the content in one hash, so without them a part of the content could once have been attributes.
        const bool isPlain = contentType == c_NAL_OID_DATA && m_hash->algId != ORK_ALG_PRIVATE_HASH;
        return isPlain && !content.LooksLikeAttributes() ? c_NAL_SIGNATURE_VALID : c_NAL_SIGNATURE_INVALID;
    }
    asnt::View digest;
    asnt::View time;
    asnt::View type;
    const bool hasTime = attributes.GetSingleValue(c_NAL_OID_SIGNING_TIME, time);
    const bool hasType = attributes.GetSingleValue(c_NAL_OID_CONTENT_TYPE, type);
    if (hasTime) m_signingTime = asnt::Reader(time).Time();
    if (!attributes.GetSingleValue(c_NAL_OID_MESSAGE_DIGEST, digest)) return c_NAL_SIGNATURE_INVALID;
    if (asnt::Reader(digest).Octets() != asnt::View(m_hash->value)) return c_NAL_SIGNATURE_INVALID;
    return hasType && asnt::Reader(type).Oid() != contentType ? c_NAL_CONTENT_TYPE_INVALID : c_NAL_SIGNATURE_VALID;
}

DWORD SignerCheck::CheckWith(const CNALCertContext& cert) const {
    if (m_status != c_NAL_SIGNATURE_VALID) return m_status;
    return cert.IsValidTime(&m_signingTime) ? CheckSignature(cert) : c_NAL_SIGNING_TIME_INVALID;
}

DWORD SignerCheck::CheckSignature(const CNALCertContext& cert) const {
    if (!cert.IsInitialized()) return c_NAL_SIGNATURE_INVALID;
    CNALCertPublicKeyInfo publicKey;
    try {
        publicKey = PublicKeyOf(*cert.GetContext());
    } catch (const XTOOStatus&) {
        return c_NAL_SIGNATURE_INVALID;
    }
    return CheckSignature(publicKey);
}

DWORD SignerCheck::CheckSignature(const CNALCertPublicKeyInfo& publicKey) const {
    if (m_status != c_NAL_SIGNATURE_VALID) return m_status;
    if (!FitKey(m_signer, m_hash->algId, publicKey)) return c_NAL_SIGNATURE_INVALID;
    const KeyHandle key = ImportPublicKey(m_provider, publicKey, c_context);
    if (!key) return c_NAL_SIGNATURE_INVALID;
    if (HoldsUnder(key, m_signer.GetBytesToSign())) return c_NAL_SIGNATURE_VALID;
    const CNALAttributesList& attributes = m_signer.signedAttrs;
    const bool mayHaveSorted = !attributes.empty() && !attributes.IsSorted();
    return mayHaveSorted && HoldsUnder(key, m_signer.GetBytesToSign(asnt::Order::Sorted)) ? c_NAL_SIGNATURE_VALID : c_NAL_SIGNATURE_INVALID;
}

bool SignerCheck::HoldsUnder(const KeyHandle& key, const IdentObj& attributes) const {
    const SNALCryptInfo info{m_provider, 0, m_hash->running.Get(), m_hash->algId};
    const HashHandle hash = HashOfAttributes(info, attributes);
    const bool isReversed = m_hash->algId == ORK_ALG_PRIVATE_HASH;
    return VerifyHash(hash, isReversed ? Reversed(m_signer.signature) : m_signer.signature, key, c_context);
}

}  // namespace nal

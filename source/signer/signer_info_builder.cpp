#include "signer/signer_info_builder.h"

#include <algorithm>

#include "model/encoding.h"
#include "model/integer_order.h"
#include "ork/provider.h"
#include "signer/provider_calls.h"
#include "storage/cert_reader.h"
#include "too/status.h"

namespace nal {
namespace {

constexpr char c_signContext[] = "ORKSignHash ";
constexpr DWORD c_defaultKeyType = ORK_KEY_SIGNATURE;

CNALAttributesList MakeAttributes(const SignedClaims& claims) {
    CNALAttributesList attributes;
    const auto addTime = [&] {
        attributes.Add(c_NAL_OID_SIGNING_TIME, Encoded([&](asnt::Writer& writer) { writer.Time(claims.signingTime); }));
    };
    attributes.Add(c_NAL_OID_CONTENT_TYPE, Encoded([&](asnt::Writer& writer) { writer.Oid(claims.contentType); }));
    if (claims.order == AttributeOrder::TimeThenDigest) addTime();
    attributes.Add(c_NAL_OID_MESSAGE_DIGEST, Encoded([&](asnt::Writer& writer) { writer.OctetString(asnt::View(claims.digest)); }));
    if (claims.order == AttributeOrder::DigestThenTime) addTime();
    return attributes;
}

void NameSigner(const CERT_CONTEXT& cert, DWORD hashAlgId, CNALMessageSignerInfo& signer) {
    // Kept deliberately: with this hash the signer is named by its own name, not by its issuer's.
    const asnt::View name = hashAlgId == ORK_ALG_PRIVATE_HASH ? SubjectNameOf(cert) : IssuerNameOf(cert);
    signer.issuer = CNALX509Name(name.Copy());
    signer.serialNumber = Reversed(SerialOf(cert));
}

DWORD KeyTypeOf(const CNALCertContext& cert) {
    const unsigned type = cert.GetPrivateKeyType();
    return type == NAL_UNKNOWN ? c_defaultKeyType : type;
}

// The signature stays most significant byte first with this hash: kept deliberately.
IdentObj ToStoredOrder(DWORD hashAlgId, const IdentObj& signature) {
    return hashAlgId == ORK_ALG_PRIVATE_HASH ? Reversed(signature) : signature;
}

}  // namespace

CNALMessageSignerInfo PrepareSigner(const CNALCertContext& cert, DWORD hashAlgId, const SignedClaims& claims, DWORD flags,
                                    const char* context) {
    CNALMessageSignerInfo signer;
    if (!GetOIDFromAlgID(signer.digestAlgorithm.m_algorithm, hashAlgId, 0xFFFF)) throw XTOOStatus(TOO_E_UNKNOWN_ALGORITHM, context);
    signer.signatureAlgorithm.m_algorithm = PublicKeyOf(*cert.GetContext()).m_algorithm.m_algorithm;
    if ((flags & c_NAL_SIGN_BY_KEY_ID) != 0) {
        signer.version = 3;
        signer.subjectKeyIdentifier = cert.GetSubjectKeyId();
    } else {
        NameSigner(*cert.GetContext(), hashAlgId, signer);
    }
    signer.signedAttrs = MakeAttributes(claims);
    return signer;
}

void SignSigner(const CNALCertContext& cert, const SNALCryptInfo& info, CNALMessageSignerInfo& signer) {
    const HashHandle hash = HashOfAttributes(info, signer.GetBytesToSign());
    IdentObj signature;
    if (!ORKSignHash(hash.Get(), KeyTypeOf(cert), 0, signature)) ThrowProvider(c_signContext);
    signer.signature = ToStoredOrder(info.hashAlgId, signature);
}

void PutSignature(const CNALCertContext& cert, const SNALCryptInfo& info, const IdentObj& signature, CNALMessageSignerInfo& signer,
                  const char* context) {
    const HashHandle hash = HashOfAttributes(info, signer.GetBytesToSign());
    const KeyHandle key = ImportPublicKey(info.hProv, PublicKeyOf(*cert.GetContext()), context);
    if (!key || !VerifyHash(hash, signature, key, context)) throw XTOOStatus(TOO_E_BAD_SIGNATURE, context);
    signer.signature = ToStoredOrder(info.hashAlgId, signature);
}

void AddDigestAlgorithm(CNALSignData& message, const CNALAlgorithmIdentifier& algorithm) {
    message.digestAlgorithms.push_back(algorithm);
    message.digestAlgorithms.sort();
    message.digestAlgorithms.unique();
}

void AddCertificate(CNALSignData& message, const CNALCertContext& cert) {
    const IdentObj encoded = EncodingOf(*cert.GetContext()).Copy();
    std::list<IdentObj>& present = message.certificates;
    if (std::find(present.begin(), present.end(), encoded) == present.end()) present.push_back(encoded);
}

}  // namespace nal

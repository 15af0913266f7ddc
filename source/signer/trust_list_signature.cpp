#include "signer/trust_list_signature.h"

#include "nal/certificate.h"
#include "nal/sign.h"
#include "ork/constants.h"
#include "signer/provider_calls.h"
#include "signer/signer_check.h"
#include "signer/signer_info_builder.h"
#include "signer/signer_match.h"
#include "storage/cert_reader.h"
#include "storage/signature_check.h"
#include "too/status.h"

namespace nal {
namespace {

constexpr char c_signContext[] = "NALSignTrustList";
constexpr std::int32_t c_version = 3;  // RFC 5652 section 5.1: of a content other than id-data

[[noreturn]] void Refuse(int code, const char* text) {
    throw XTOOStatus(code, text);
}

bool IsCA(const CNALCertExtensionList& extensions) {
    CNALBasicConstraints constraints;
    if (constraints.ReadFrom(extensions, c_NAL_OID_BASIC_CONSTRAINTS)) return constraints.m_isCA;
    CNALOldBasicConstraints old;
    return old.ReadFrom(extensions, c_NAL_OID_OLD_BASIC_CONSTRAINTS) && old.IsCA();
}

CNALMessageSignerInfo OnlySigner(const CNALSignData& message) {
    CNALMessageSignerInfo signer;
    const IdentObj& info = message.signerInfos.front();
    signer.ReadData(info.GetData(), info.GetSize(), nullptr);
    return signer;
}

SNALCryptInfo Signing(const CNALProvider& prov, unsigned long hKey) {
    SNALCryptInfo info;
    info.hProv = prov.GetProviderHandle();
    info.hKey = hKey;
    info.hashAlgId = ORK_ALG_GOSTR3411;
    return info;
}

CNALMessageSignerInfo SignList(const CNALProvider& prov, unsigned long hKey, const CNALCertContext& cert, const IdentObj& content) {
    const SNALCryptInfo info = Signing(prov, hKey);
    ContentHashes hashes(info.hProv, c_signContext);
    if (!hashes.Want(info.hashAlgId)) ThrowProvider(c_signContext);
    hashes.Add(asnt::View(content));
    hashes.Finish();

    SignedClaims claims;
    claims.contentType = c_NAL_OID_TRUST_LIST;
    claims.digest = hashes.Find(info.hashAlgId)->value;
    claims.signingTime = CTOOFileTime::Now();
    claims.order = AttributeOrder::DigestThenTime;
    CNALMessageSignerInfo signer = PrepareSigner(cert, info.hashAlgId, claims, 0, c_signContext);
    SignSigner(cert, info, signer);
    // A list that is delivered and then refused everywhere would be found out late.
    if (SignerCheck(info.hProv, signer, hashes, c_NAL_OID_TRUST_LIST).CheckSignature(cert) != c_NAL_SIGNATURE_VALID) {
        Refuse(TOO_E_BAD_SIGNATURE, c_signContext);
    }
    return signer;
}

void SignTrustList(const CNALProvider& prov, unsigned long hKey, const CNALCertContext& cert, CNALSignData& list) {
    if (prov.GetProviderHandle() == 0 || hKey == 0 || !cert.IsInitialized() || list.eContent.IsEmpty() || list.dataSource.IsFile()) {
        Refuse(TOO_E_BAD_ARGUMENT, c_signContext);
    }
    if (!MaySignTrustLists(cert)) Refuse(TOO_E_CERT_REFUSED, c_signContext);
    CNALMessageSignerInfo signer = SignList(prov, hKey, cert, list.eContent);
    std::list<IdentObj> infos{signer.WriteData(nullptr)};
    AddCertificate(list, cert);
    list.version = c_version;
    list.eContentType = CASNTIdData(c_NAL_OID_TRUST_LIST);
    list.digestAlgorithms = {signer.digestAlgorithm};
    list.signerInfos = std::move(infos);
}

}  // namespace

bool MaySignTrustLists(const CNALCertContext& cert) {
    const CNALCertInfo info(*cert.GetContext());
    try {
        CNALExtendedKeyUsage usage;
        return !IsCA(info.m_extensions) && usage.ReadFrom(info.m_extensions, c_NAL_OID_EXTENDED_KEY_USAGE) &&
               usage.Contains(c_NAL_OID_TRUST_LIST_SIGNING);
    } catch (const XTOOStatus&) {
        return false;
    }
}

SignedTrustList CheckTrustListSignature(const IdentObj& encoded) {
    CNALSignData message;
    message.ReadObject(encoded.GetData(), encoded.GetSize(), nullptr);
    if (message.version != c_version || message.eContentType.GetID() != c_NAL_OID_TRUST_LIST || message.eContent.IsEmpty() ||
        message.signerInfos.size() != 1) {
        Refuse(TOO_E_BAD_STRUCTURE, "the message is no trust list");
    }
    const CNALMessageSignerInfo signer = OnlySigner(message);
    if (HashAlgorithmOf(signer) != ORK_ALG_GOSTR3411) Refuse(TOO_E_UNKNOWN_ALGORITHM, "the list is hashed with an unknown algorithm");

    const ContextHandle provider = OpenVerifyProvider();
    constexpr char context[] = "the provider cannot hash the trust list";
    if (!provider) ThrowProvider(context);
    ContentHashes hashes(provider.Get(), context);
    if (!hashes.Want(ORK_ALG_GOSTR3411)) ThrowProvider(context);
    hashes.Add(message);
    hashes.Finish();

    const SignerCheck check(provider.Get(), signer, hashes, message.eContentType.GetID());
    if (check.AttributesStatus() != c_NAL_SIGNATURE_VALID || signer.signedAttrs.Find(c_NAL_OID_CONTENT_TYPE) == nullptr) {
        Refuse(TOO_E_BAD_SIGNATURE, "the signature does not cover the list's type and content");
    }
    SignerCandidates candidates;
    candidates.AddAll(message.certificates);
    const std::vector<CNALCertContext> certs = candidates.Find(signer);
    if (certs.empty()) Refuse(TOO_E_NOT_FOUND, "the signer's certificate is not in the message");
    for (const CNALCertContext& cert : certs) {
        if (check.CheckSignature(cert) != c_NAL_SIGNATURE_VALID) continue;
        if (!MaySignTrustLists(cert)) Refuse(TOO_E_CERT_REFUSED, "the signer's certificate is not one for trust lists");
        return {std::move(message.eContent), cert, check.SigningTime()};
    }
    Refuse(TOO_E_BAD_SIGNATURE, "the signature does not hold");
}

}  // namespace nal

void NALSignTrustList(CNALProvider& prov, unsigned long hKey, const CNALCertContext& cert, CNALSignData& list) {
    try {
        nal::SignTrustList(prov, hKey, cert, list);
    } catch (const XTOOStatus& status) {
        throw XTOOStatus(status.GetCode(), nal::c_signContext);
    }
}

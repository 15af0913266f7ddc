#include "trust/trust_list.h"

#include <algorithm>
#include <iterator>

#include "asnt/view.h"
#include "model/integer_order.h"
#include "model/provider_handles.h"
#include "nal/certificate.h"
#include "nal/extensions.h"
#include "nal/signed_data.h"
#include "nal/signed_envelope.h"
#include "ork/constants.h"
#include "storage/cert_reader.h"
#include "storage/signature_check.h"

namespace nal {
namespace {

constexpr char c_oidTrustList[] = "1.3.6.1.4.1.47474.2.3.1";
constexpr char c_oidTrustListSigning[] = "1.3.6.1.4.1.311.10.3.1";
constexpr char c_oidExtendedKeyUsage[] = "2.5.29.37";
constexpr char c_oidHash[] = "1.2.643.2.2.9";
constexpr char c_oidContentType[] = "1.2.840.113549.1.9.3";
constexpr char c_oidMessageDigest[] = "1.2.840.113549.1.9.4";
constexpr char c_context[] = "TrustList";

[[noreturn]] void Refuse(int code, const char* text) {
    throw XTOOStatus(code, text);
}

//   TrustList ::= SEQUENCE { number INTEGER, thisUpdate GeneralizedTime, SEQUENCE OF Certificate, SEQUENCE OF CertificateList }
TrustList Decode(const IdentObj& content) {
    asnt::Reader top(content, c_context);
    asnt::Reader reader = top.Enter(asnt::tag::Sequence);
    top.ExpectEnd();
    TrustList list;
    if (!asnt::DecodeUnsigned(reader.Integer(), list.number)) reader.Fail();
    list.thisUpdate = reader.Time();
    for (std::list<IdentObj>* part : {&list.certificates, &list.crls}) {
        asnt::Reader elements = reader.Enter(asnt::tag::Sequence);
        while (!elements.AtEnd())
            part->push_back(elements.Next(asnt::tag::Sequence).whole.Copy());
    }
    reader.ExpectEnd();
    return list;
}

IdentObj HashOf(const ContextHandle& provider, const IdentObj& content) {
    HashHandle hash;
    IdentObj value;
    if (!ORKCreateHash(provider.Get(), ORK_ALG_GOSTR3411, 0, hash.Receive(), 0) ||
        !ORKHashData(hash.Get(), content.GetData(), content.GetSize(), 0) || !ORKGetHashParam(hash.Get(), ORK_HASH_PARAM_VALUE, value))
        throw XTOOStatus(WinErr2ToolsErr(GetLastError()), "the provider cannot hash the trust list");
    return value;
}

/// The content type and digest that were signed are those of this message.
void CheckSignedAttributes(const CNALMessageSignerInfo& signer, const IdentObj& hash) {
    asnt::View type;
    asnt::View digest;
    if (!signer.signedAttrs.GetSingleValue(c_oidContentType, type) || !signer.signedAttrs.GetSingleValue(c_oidMessageDigest, digest))
        Refuse(TOO_E_BAD_SIGNATURE, "the signature does not cover content type and digest");
    if (asnt::Reader(type, c_context).Oid() != c_oidTrustList || asnt::Reader(digest, c_context).Octets() != asnt::View(hash))
        Refuse(TOO_E_BAD_SIGNATURE, "the content is not the one that was signed");
}

bool IsSignerOf(const CNALCertContext& cert, const CNALMessageSignerInfo& signer) {
    if (!signer.subjectKeyIdentifier.IsEmpty()) return cert.GetSubjectKeyId() == signer.subjectKeyIdentifier;
    const IdentObj serial = SerialOf(*cert.GetContext());
    return CNALX509Name(IssuerNameOf(*cert.GetContext()).Copy()) == signer.issuer &&
           serial.GetSize() == signer.serialNumber.GetSize() &&
           std::equal(serial.GetData(), serial.GetData() + serial.GetSize(),
                      std::make_reverse_iterator(signer.serialNumber.GetData() + signer.serialNumber.GetSize()));
}

CNALCertContext FindSigner(const CNALSignData& message, const CNALMessageSignerInfo& signer) {
    for (const IdentObj& encoded : message.certificates) {
        const CNALCertContext cert(encoded);
        if (IsSignerOf(cert, signer)) return cert;
    }
    Refuse(TOO_E_NOT_FOUND, "the signer's certificate is not in the message");
}

bool HoldsUnder(const ContextHandle& provider, const IdentObj& bytes, const CNALMessageSignerInfo& signer,
                const CNALCertPublicKeyInfo& key) {
    const CTOOCryptBitBlob signature(ToProviderOrder(signer.signature));  // turned back: the check takes it as encoded
    int err = 0;
    return !bytes.IsEmpty() && NALCheckSignature(provider.Get(), bytes, signer.signatureAlgorithm, signature, key, &err) != 0;
}

void CheckMaySign(const CNALCertContext& cert) {
    CNALExtendedKeyUsage usage;
    const CNALCertInfo info(*cert.GetContext());
    if (!usage.ReadFrom(info.m_extensions, c_oidExtendedKeyUsage) || !usage.Contains(c_oidTrustListSigning))
        Refuse(TOO_E_CERT_REFUSED, "the signer's certificate is not one for trust lists");
}

/// The root of `roots` that issued the signer's certificate.
CNALCertContext FindRoot(const CNALCertContext& signer, const CNALCertStorage& roots) {
    std::list<CNALCertContext> candidates;
    const asnt::View name = IssuerNameOf(*signer.GetContext());
    const CERT_NAME_BLOB blob{static_cast<DWORD>(name.size), const_cast<BYTE*>(name.data)};
    roots.FindCertList(candidates, CERT_FIND_SUBJECT_NAME, &blob);
    for (const CNALCertContext& root : candidates) {
        const bool isRoot = IssuerNameOf(*root.GetContext()) == SubjectNameOf(*root.GetContext()) && root.IsValidSignature(root);
        if (isRoot && signer.IsValidSignature(root)) return root;
    }
    Refuse(TOO_E_UNTRUSTED, "no root of the main storage issued the signer's certificate");
}

void CheckStillValid(const CNALCertContext& signer, const CNALCertContext& root, const CNALCertStorage& roots,
                     const CTOOFileTime& signingTime) {
    if (!signer.IsValidTime(&signingTime) || !root.IsValidTime(&signingTime))
        Refuse(TOO_E_EXPIRED, "the signer's certificate was not valid when the list was signed");
    CNALCRLContext crl;
    if (roots.GetCrlFromStorage(root, crl) && signer.IsRevoced(crl)) Refuse(TOO_E_REVOKED, "the signer's certificate is revoked");
}

CTOOFileTime SigningTime(const CNALMessageSignerInfo& signer) {
    int err = 0;
    const CTOOFileTime time = signer.GetSigningDate(&err);
    if (err == TOO_E_NOT_FOUND) return CTOOFileTime::Now();
    if (err != TOO_OK) Refuse(err, "the signing time is damaged");
    return time;
}

}  // namespace

TrustList CheckTrustList(const IdentObj& encoded, const CNALCertStorage& roots, TrustCheck check) {
    CNALSignData message;
    message.ReadObject(encoded.GetData(), encoded.GetSize(), nullptr);
    if (message.version != 3 || message.eContentType.GetID() != c_oidTrustList || message.eContent.IsEmpty() ||
        message.signerInfos.size() != 1)
        Refuse(TOO_E_BAD_STRUCTURE, "the message is no trust list");
    TrustList list = Decode(message.eContent);

    CNALMessageSignerInfo signer;
    const IdentObj& info = message.signerInfos.front();
    signer.ReadData(info.GetData(), info.GetSize(), nullptr);
    if (signer.digestAlgorithm.GetID() != c_oidHash) Refuse(TOO_E_UNKNOWN_ALGORITHM, "the list is hashed with an unknown algorithm");
    const ContextHandle provider = OpenVerifyProvider();
    CheckSignedAttributes(signer, HashOf(provider, message.eContent));
    const CNALCertContext cert = FindSigner(message, signer);
    const CNALCertPublicKeyInfo key = PublicKeyOf(*cert.GetContext());
    if (!HoldsUnder(provider, signer.GetBytesToSign(), signer, key) &&
        !HoldsUnder(provider, signer.GetBytesToSign(asnt::Order::Sorted), signer, key))
        Refuse(TOO_E_BAD_SIGNATURE, "the signature does not hold");
    CheckMaySign(cert);
    const CNALCertContext root = FindRoot(cert, roots);
    if (check == TrustCheck::Delivered) CheckStillValid(cert, root, roots, SigningTime(signer));
    return list;
}

}  // namespace nal

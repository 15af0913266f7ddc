#include "trust/trust_list.h"

#include "asnt/view.h"
#include "signer/trust_list_signature.h"
#include "storage/cert_reader.h"
#include "too/status.h"

namespace nal {
namespace {

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

}  // namespace

TrustList CheckTrustList(const IdentObj& encoded, const CNALCertStorage& roots, TrustCheck check) {
    const SignedTrustList signedList = CheckTrustListSignature(encoded);
    const CNALCertContext root = FindRoot(signedList.signer, roots);
    if (check == TrustCheck::Delivered) CheckStillValid(signedList.signer, root, roots, signedList.signingTime);
    return Decode(signedList.content);
}

}  // namespace nal

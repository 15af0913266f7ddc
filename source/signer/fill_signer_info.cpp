// NALFillMsgSignerInfo and its variant for keys outside the provider.
#include "ork/constants.h"
#include "signer/provider_calls.h"
#include "signer/signer_info_builder.h"
#include "storage/signature_check.h"
#include "too/status.h"

namespace {

constexpr char c_context[] = "NALFillMsgSignerInfo";
constexpr char c_tokenContext[] = "NALFillMsgSignerInfoForToken";

void RequireArguments(const CNALCertContext& cert, const SNALCryptInfo& info, const IdentObj& hashValue, const char* context) {
    const bool lacksRunningHash = info.hashAlgId == ORK_ALG_PRIVATE_HASH && info.hHash == 0;
    if (!cert.IsInitialized() || hashValue.IsEmpty() || lacksRunningHash) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
}

}  // namespace

int NALFillMsgSignerInfo(const CNALCertContext& cert, const SNALCryptInfo& info, const IdentObj& hashValue,
                         CNALMessageSignerInfo& out, unsigned int flags, int* err) {
    return nal::Report(err, [&] {
        RequireArguments(cert, info, hashValue, c_context);
        nal::SignedClaims claims;
        claims.digest = hashValue;
        claims.signingTime = CTOOFileTime::Now();
        CNALMessageSignerInfo signer = nal::PrepareSigner(cert, info.hashAlgId, claims, flags, c_context);
        nal::SignSigner(cert, info, signer);
        out = std::move(signer);
    });
}

int NALFillMsgSignerInfoForToken(unsigned char* signature, const CNALCertContext& cert, const SNALCryptInfo& info,
                                 const IdentObj& hashValue, CNALMessageSignerInfo& out, unsigned int flags, IdentObj& toBeSigned,
                                 CTOOFileTime& signingTime, int* err) {
    return nal::Report(err, [&] {
        RequireArguments(cert, info, hashValue, c_tokenContext);
        nal::SignedClaims claims;
        claims.digest = hashValue;
        claims.signingTime = signature != nullptr ? signingTime : CTOOFileTime::Now();
        CNALMessageSignerInfo signer = nal::PrepareSigner(cert, info.hashAlgId, claims, flags, c_tokenContext);
        IdentObj attributes = signer.GetBytesToSign();
        if (signature != nullptr) {
            if (attributes != toBeSigned) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_tokenContext);
            SNALCryptInfo checking = info;
            checking.hKey = 0;
            nal::ContextHandle own;
            if (checking.hProv == 0) {
                own = nal::OpenVerifyProvider();
                if (!own) nal::ThrowProvider(c_tokenContext);
                checking.hProv = own.Get();
            }
            nal::PutSignature(cert, checking, IdentObj(signature, c_NAL_SIGNATURE_SIZE), signer, c_tokenContext);
        }
        out = std::move(signer);
        toBeSigned = std::move(attributes);
        signingTime = claims.signingTime;
    });
}

// How large a message will be, computed by laying it out with a signer info of the same size.
#include "cms/outgoing_message.h"
#include "frame/failure.h"
#include "too/status.h"
#include "win32/certsign/signing_run.h"

namespace {

constexpr char c_context[] = "NALGetSignaturesSizes";

// A signing time from 2050 on takes two bytes more; nobody knows when the signature will be made.
CTOOFileTime LongestTime() {
    constexpr std::int64_t newYear2050 = 2524608000;
    return CTOOFileTime::FromUnix(newYear2050);
}

CNALSignData WithoutContent(const CNALSignData& message) {
    CNALSignData result;
    result.version = message.version;
    result.digestAlgorithms = message.digestAlgorithms;
    result.eContentType = message.eContentType;
    result.certificates = message.certificates;
    result.crls = message.crls;
    result.signerInfos = message.signerInfos;
    return result;
}

DWORD SizeOf(const CNALCertContext& cert, DWORD flags, const CNALSignData* message, DWORD contentSize, const char* hashOID) {
    if (!cert.IsInitialized()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_context);
    const DWORD hashAlgId = nal::ChooseHash(hashOID, cert, c_context);
    CNALSignData sized = message != nullptr ? WithoutContent(*message) : CNALSignData();
    nal::MakeRoom(sized, cert, flags | c_NAL_SIGN_AGAIN, false, c_context);
    nal::SignedClaims claims;
    claims.signingTime = LongestTime();
    CNALMessageSignerInfo placeholder = nal::MakePlaceholder(cert, hashAlgId, claims, flags, c_context);
    nal::AddSigner(sized, placeholder, cert, flags);

    if (message != nullptr && message->dataSource.IsFile()) {
        return nal::OutgoingMessage(sized, nal::FileContent(message->dataSource, c_context).Size(), c_context).Size();
    }
    if (message != nullptr && message->IsAttached()) return nal::OutgoingMessage(sized, message->eContent.GetSize(), c_context).Size();
    if ((flags & c_NAL_SIGN_ATTACHED) != 0) return nal::OutgoingMessage(sized, contentSize, c_context).Size();
    return nal::OutgoingMessage(sized, c_context).Size();
}

}  // namespace

unsigned int NALGetSignaturesSizes(CNALCertContext& cert, unsigned int flags, CNALSignData* message, unsigned int contentSize,
                                   const char* hashOID, int* err) {
    DWORD size = 0;
    nal::Report(err, [&] { size = SizeOf(cert, flags, message, contentSize, hashOID); });
    return size;
}

unsigned int NALGetSignaturesSizes(IdentObj& cert, unsigned int flags, CNALSignData* message, unsigned int contentSize,
                                   const char* hashOID, int* err) {
    DWORD size = 0;
    nal::Report(err, [&] {
        CNALCertContext context(cert);
        size = SizeOf(context, flags, message, contentSize, hashOID);
    });
    return size;
}

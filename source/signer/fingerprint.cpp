#include "nal/fingerprint.h"

#include <string>

#include "frame/failure.h"
#include "model/provider_handles.h"
#include "ork/provider.h"
#include "storage/signature_check.h"
#include "too/status.h"
#include "too/text.h"

CTOOString NALGetFingerprint(const IdentObj& bytes) {
    constexpr std::size_t kGroup = 8;
    const nal::ContextHandle provider = nal::OpenVerifyProvider();
    nal::HashHandle hash;
    IdentObj value;
    if (!provider || !ORKCreateHash(provider.Get(), ORK_ALG_GOSTR3411, 0, hash.Receive(), 0) ||
        !ORKHashData(hash.Get(), bytes.GetData(), bytes.GetSize(), 0) || !ORKGetHashParam(hash.Get(), ORK_HASH_PARAM_VALUE, value)) {
        throw XTOOStatus(nal::LastErrorStatus(), "NALGetFingerprint");
    }
    const std::string digits = TOOBin2Hex(value).str();
    std::string text;
    for (std::size_t at = 0; at < digits.size(); at += kGroup) {
        if (at != 0) text += ' ';
        text += digits.substr(at, kGroup);
    }
    return text;
}

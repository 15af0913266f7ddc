#include "win32/certsign/signing_run.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "model/signature_numbers.h"
#include "nal/algorithm.h"
#include "signer/signer_check.h"
#include "signer/signer_match.h"
#include "storage/cert_reader.h"
#include "too/status.h"

namespace nal {
namespace {

constexpr std::int32_t c_versionWithKeyId = 3;

bool IsSignedBy(const IdentObj& encoded, const CNALCertContext& cert) {
    CNALMessageSignerInfo signer;
    int err = 0;
    // What cannot be read is somebody else's, and stays as it is.
    return signer.ReadData(encoded.GetData(), encoded.GetSize(), &err) != 0 && IsSignerOf(cert, signer);
}

template <class Value>
void Append(const Value& value, std::string& out) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

DWORD ChooseHash(const char* hashOID, const CNALCertContext& cert, const char* context) {
    std::list<CTOOString> hashes;
    if (hashOID != nullptr) {
        hashes = {hashOID};
    } else {
        hashes = NALGetSupportedHashOIDS(&cert);
    }
    SignatureNumbers numbers{};
    if (!hashes.empty()) {
        const CTOOString& oid = hashes.front();
        unsigned algId = 0xFFFF;
        unsigned extra = 0xFFFF;
        if (GetAlgIDFromOID(oid.c_str(), static_cast<unsigned>(oid.length()), algId, extra)) return algId;
    } else if (FindSignatureNumbers(PublicKeyOf(*cert.GetContext()).m_algorithm, numbers)) {
        // An exchange key's certificate that does not say where its key is: nobody could be asked.
        return numbers.hash;
    }
    throw XTOOStatus(TOO_E_UNKNOWN_ALGORITHM, context);
}

void MakeRoom(CNALSignData& message, const CNALCertContext& cert, DWORD flags, bool alsoCertificate, const char* context) {
    // The signed content type says plain data, so of another content the signature would not hold.
    if (!(message.eContentType.GetID() == c_NAL_OID_DATA)) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
    std::list<IdentObj>& infos = message.signerInfos;
    const auto isHers = [&](const IdentObj& info) { return IsSignedBy(info, cert); };
    if ((flags & c_NAL_SIGN_AGAIN) != 0) {
        infos.remove_if(isHers);
        return;
    }
    const auto isItself = [&](const IdentObj& one) { return asnt::View(one) == EncodingOf(*cert.GetContext()); };
    const bool isThere = alsoCertificate && std::any_of(message.certificates.begin(), message.certificates.end(), isItself);
    if (isThere || std::any_of(infos.begin(), infos.end(), isHers)) throw XTOOStatus(TOO_E_ALREADY_SIGNED, context);
}

void RequireSameContent(const CNALSignData& message, const ContentHash& hash, const char* context) {
    for (const IdentObj& info : message.signerInfos) {
        CNALMessageSignerInfo signer;
        int err = 0;
        if (signer.ReadData(info.GetData(), info.GetSize(), &err) == 0 || HashAlgorithmOf(signer) != hash.algId) continue;
        const CNALAttributesSet* digest = signer.signedAttrs.Find(c_NAL_OID_MESSAGE_DIGEST);
        asnt::View value;
        asnt::Element octets;
        if (digest == nullptr || !digest->GetSingleValue(value) || !asnt::Reader(value).TryNext(asnt::tag::OctetString, octets)) continue;
        if (octets.content != asnt::View(hash.value)) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
    }
}

void AddSigner(CNALSignData& message, CNALMessageSignerInfo& signer, const CNALCertContext& cert, DWORD flags) {
    message.signerInfos.push_back(signer.WriteData(nullptr));
    AddDigestAlgorithm(message, signer.digestAlgorithm);
    if ((flags & c_NAL_SIGN_NO_CERTIFICATE) == 0) AddCertificate(message, cert);
    if ((flags & c_NAL_SIGN_BY_KEY_ID) != 0) message.version = std::max(message.version, c_versionWithKeyId);
}

CNALMessageSignerInfo MakePlaceholder(const CNALCertContext& cert, DWORD hashAlgId, SignedClaims claims, DWORD flags,
                                      const char* context) {
    claims.digest = IdentObj(nullptr, c_NAL_HASH_SIZE);
    CNALMessageSignerInfo signer = PrepareSigner(cert, hashAlgId, claims, flags, context);
    signer.signature = IdentObj(nullptr, c_NAL_SIGNATURE_SIZE);
    return signer;
}

SignedSource::SignedSource(const CTOOString& path) {
    if (!CTOOFile::Exists(path)) throw XTOOStatus(TOO_E_FILE_NOT_FOUND, path);
    m_file.Open(path, "rbc");
    m_stamp = Stamp();
}

std::string SignedSource::Stamp() const {
    std::string stamp;
    struct stat state {};
    // By its name too: a file that was replaced is open here unchanged.
    for (const bool byName : {false, true}) {
        const int result = byName ? stat(m_file.GetName().c_str(), &state) : fstat(m_file.GetDescriptor(), &state);
        if (result != 0) return {};
        Append(state.st_dev, stamp);
        Append(state.st_ino, stamp);
        Append(state.st_size, stamp);
        Append(state.st_mtim.tv_sec, stamp);
        Append(state.st_mtim.tv_nsec, stamp);
    }
    return stamp;
}

void SignedSource::RequireUnchanged() const {
    if (m_stamp.empty() || Stamp() != m_stamp) {
        throw XTOOFile(TOO_E_READ, m_file.GetName(), "refusing to sign, since it changed meanwhile:");
    }
}

}  // namespace nal

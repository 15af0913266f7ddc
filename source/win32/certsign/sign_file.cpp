// NALSignFile and its variant for keys outside the provider: a file becomes a signature file, or gets one more signature.
#include <filesystem>

#include "cms/outgoing_message.h"
#include "cms/sign_data_reader.h"
#include "frame/failure.h"
#include "nal/user.h"
#include "nal/verify.h"
#include "ork/provider.h"
#include "signer/provider_calls.h"
#include "storage/signature_check.h"
#include "win32/certsign/signing_run.h"

namespace {

constexpr char c_context[] = "NALSignFile";
constexpr char c_createContext[] = "NALSignFile::ORKCreateHash";
constexpr char c_keyContext[] = "NALGetKeyData";
constexpr char c_tokenContext[] = "NALCreatePSevenS";
constexpr std::int32_t c_versionWithoutCertificate = 3;

/// What a link names: signing in place replaces the file, not a link to it.
CTOOString FileItself(const CTOOString& path) {
    std::error_code error;
    const std::filesystem::path itself = std::filesystem::canonical(path.c_str(), error);
    return error ? path : CTOOString(itself.string());
}

/// One run: the source with the signatures that it has, and where the result goes.
class FileSigning {
public:
    using MakeSigner = std::function<CNALMessageSignerInfo(const nal::ContentHash&)>;

    /// Reads the source and refuses what cannot be signed.
    FileSigning(const CNALCertContext& cert, const char* srcPath, const char* outPath, DWORD flags, DWORD hashAlgId,
                const CTOOFileTime& signingTime, const char* context)
        : m_hashAlgId(hashAlgId), m_context(context), m_source(CTOOString(srcPath)) {
        if ((flags & c_NAL_SIGN_ADD_TO_FILE) == 0 || !ReadSignatureFile()) AttachSource();
        nal::MakeRoom(m_message, cert, flags, false, context);
        if ((flags & c_NAL_SIGN_NO_CERTIFICATE) != 0) m_message.version = c_versionWithoutCertificate;
        nal::SignedClaims claims;
        claims.signingTime = signingTime;
        CNALMessageSignerInfo placeholder = nal::MakePlaceholder(cert, hashAlgId, claims, flags, context);
        nal::AddSigner(m_message, placeholder, cert, flags);
        m_outgoing = std::make_unique<nal::OutgoingMessage>(m_message, context);
        const bool isElsewhere = outPath != nullptr && m_source.File().GetName().CompareNoCase(outPath) != 0;
        if (!isElsewhere && m_hasMore) throw XTOOStatus(TOO_E_BAD_STRUCTURE, context);
        m_target = isElsewhere ? CTOOString(outPath) : FileItself(m_source.File().GetName());
    }

    /// Hashes the content and writes nothing.
    void Hash(nal::ContentHashes& hashes) {
        m_outgoing->File()->ForEachChunk(nal::c_hashChunk, [&](asnt::View chunk) { hashes.Add(chunk); });
        hashes.Finish();
        m_source.RequireUnchanged();
    }

    /// Writes the signature file; `makeSigner` is asked when the content was seen.
    /// @param written  receives its bytes, if not null
    void Write(nal::ContentHashes& hashes, const MakeSigner& makeSigner, IdentObj* written) {
        CTOOWholeFile target(m_target);
        m_outgoing->Write(target.GetFile(), [&](asnt::View chunk) { hashes.Add(chunk); }, [&] {
            hashes.Finish();
            m_source.RequireUnchanged();
            const nal::ContentHash& hash = *hashes.Find(m_hashAlgId);
            CNALMessageSignerInfo signer = makeSigner(hash);
            m_message.signerInfos.back() = signer.WriteData(nullptr);
            nal::RequireSameContent(m_message, hash, m_context);
        });
        IdentObj bytes;
        if (written != nullptr) {
            bytes.SetSize(static_cast<unsigned>(target.GetFile().Length()));
            target.GetFile().Seek(0);
            target.GetFile().ReadExactly(bytes.GetData(), bytes.GetSize());
        }
        target.Commit();
        if (written != nullptr) *written = std::move(bytes);
    }

private:
    /// @return false when the source is no signature file
    bool ReadSignatureFile() {
        try {
            std::uint64_t end = 0;
            m_message = nal::ReadSignData(m_source.File(), 0, &end);
            m_hasMore = end != m_source.File().Length();
        } catch (const XTOOStatus& status) {
            if (status.GetCode() != TOO_E_NOT_SIGNED_MESSAGE && status.GetCode() != TOO_E_BAD_STRUCTURE) throw;
            return false;
        }
        if (!m_message.IsAttached()) throw XTOOStatus(TOO_E_NOT_INITIALIZED, m_context);
        return true;
    }

    void AttachSource() {
        WhatToSignStruct what;
        what.flags = c_NAL_CONTENT_IN_FILE;
        what.data = m_source.File().GetName().c_str();
        what.end = c_NAL_TO_END_OF_FILE;
        m_message = CNALSignData();
        m_message.AttachData(what, nullptr);
    }

    DWORD m_hashAlgId;
    const char* m_context;
    nal::SignedSource m_source;
    CNALSignData m_message;
    bool m_hasMore = false;  // bytes behind the message, which would be lost if it were replaced
    std::unique_ptr<nal::OutgoingMessage> m_outgoing;
    CTOOString m_target;
};

void RequireArguments(const CNALCertContext& cert, const char* srcPath, const char* context) {
    if (srcPath == nullptr || !cert.IsInitialized()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
}

void RequireMaySign(const CNALCertContext& cert, const char* context) {
    if (!NALCanSignByCert(cert, false, CTOOFileTime())) throw XTOOStatus(TOO_E_CERT_REFUSED, context);
}

void GetKey(const CNALUser& user, const CNALCertContext& cert, CNALProvider& provider, nal::KeyHandle& key) {
    try {
        CNALCertContext signerCert = cert;
        NALGetKeyData(user, signerCert, provider, key.Receive());
    } catch (const XTOOStatus& status) {
        // A user without a provider has no key; why a provider refuses, such as a wrong password, is worth knowing.
        const int code = status.GetCode() == TOO_E_NOT_INITIALIZED ? TOO_E_KEY_NOT_FOUND : status.GetCode();
        throw XTOOStatus(code, c_keyContext);
    }
}

void WantHash(nal::ContentHashes& hashes, DWORD hashAlgId, const char* context) {
    if (!hashes.Want(hashAlgId)) nal::ThrowProvider(context);
}

const char* TextOf(const CTOOString* oid) { return oid != nullptr ? oid->c_str() : nullptr; }

}  // namespace

const char c_NAL_SIGNED_FILE_EXT[] = ".p7s";

bool NALSignFile(const CNALUser& user, const CNALCertContext& cert, const char* srcPath, const char* outPath, IdentObj* message,
                 unsigned int flags, const CTOOString* hashOID, int* err) {
    return nal::Report(err, [&] {
        RequireArguments(cert, srcPath, c_context);
        if (!CTOOFile::Exists(srcPath)) throw XTOOStatus(TOO_E_FILE_NOT_FOUND, srcPath);
        CNALProvider provider;
        nal::KeyHandle key;
        GetKey(user, cert, provider, key);
        RequireMaySign(cert, c_context);
        const DWORD hashAlgId = nal::ChooseHash(TextOf(hashOID), cert, c_context);
        nal::ContentHashes hashes(provider.GetProviderHandle(), c_context);
        WantHash(hashes, hashAlgId, c_createContext);

        nal::SignedClaims claims;
        claims.signingTime = CTOOFileTime::Now();
        FileSigning signing(cert, srcPath, outPath, flags, hashAlgId, claims.signingTime, c_context);
        signing.Write(hashes, [&](const nal::ContentHash& hash) {
            claims.digest = hash.value;
            CNALMessageSignerInfo signer = nal::PrepareSigner(cert, hashAlgId, claims, flags, c_context);
            nal::SignSigner(cert, {provider.GetProviderHandle(), key.Get(), hash.running.Get(), hashAlgId}, signer);
            return signer;
        }, message);
    }) != FALSE;
}

int NALCreateFileP7S(unsigned char* signature, unsigned char* valueToSign, const CNALUser& user, const CNALCertContext& cert,
                     const char* srcPath, const char* outPath, IdentObj* message, unsigned int flags, IdentObj& toBeSigned,
                     CTOOFileTime& signingTime, IdentObj& contentHash, CTOOString* hashOID, int* err) {
    return nal::Report(err, [&] {
        RequireArguments(cert, srcPath, c_tokenContext);
        RequireMaySign(cert, c_tokenContext);
        const DWORD hashAlgId = nal::ChooseHash(TextOf(hashOID), cert, c_tokenContext);
        nal::ContextHandle own;
        unsigned long hProv = user.GetProvider().GetProviderHandle();
        if (hProv == 0) {
            own = nal::OpenVerifyProvider();
            if (!own) nal::ThrowProvider(c_tokenContext);
            hProv = own.Get();
        }
        nal::ContentHashes hashes(hProv, c_tokenContext);
        WantHash(hashes, hashAlgId, c_tokenContext);
        CTOOFileTime time = signature != nullptr ? signingTime : CTOOFileTime::Now();
        IdentObj bytes = toBeSigned;
        const auto fill = [&](const nal::ContentHash& hash) {
            CNALMessageSignerInfo signer;
            const SNALCryptInfo info{hProv, 0, hash.running.Get(), hashAlgId};
            NALFillMsgSignerInfoForToken(signature, cert, info, hash.value, signer, flags, bytes, time, nullptr);
            return signer;
        };
        FileSigning signing(cert, srcPath, outPath, flags, hashAlgId, time, c_tokenContext);
        if (signature != nullptr) {
            signing.Write(hashes, [&](const nal::ContentHash& hash) {
                if (hash.value != contentHash) throw XTOOStatus(TOO_E_BAD_SIGNATURE, c_tokenContext);
                return fill(hash);
            }, message);
            return;
        }
        signing.Hash(hashes);
        const nal::ContentHash& hash = *hashes.Find(hashAlgId);
        const CNALMessageSignerInfo signer = fill(hash);
        if (valueToSign != nullptr) {
            const nal::HashHandle toSign = nal::HashOfAttributes({hProv, 0, hash.running.Get(), hashAlgId}, bytes);
            IdentObj value;
            if (!ORKGetHashParam(toSign.Get(), ORK_HASH_PARAM_VALUE, value)) nal::ThrowProvider(c_tokenContext);
            std::copy_n(value.GetData(), c_NAL_HASH_SIZE, valueToSign);
        }
        toBeSigned = std::move(bytes);
        signingTime = time;
        contentHash = hash.value;
    });
}

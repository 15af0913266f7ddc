// NALSignData: content in memory or in a file, into a message in memory.
#include <cstring>

#include "cms/file_content.h"
#include "cms/outgoing_message.h"
#include "frame/failure.h"
#include "nal/user.h"
#include "nal/verify.h"
#include "ork/constants.h"
#include "signer/provider_calls.h"
#include "win32/certsign/signing_run.h"

namespace {

constexpr char c_context[] = "NALSignData";
constexpr char c_contentContext[] = "WhatToSignStruct ";
constexpr char c_userContext[] = "CNALUser ";
constexpr char c_createContext[] = "ORKCreateHash ()";
constexpr char c_hashContext[] = "ORKHashData ()";

/// The content that is to be signed, read once.
class Content {
public:
    explicit Content(const WhatToSignStruct& what) : m_what(what) {
        if ((what.flags & c_NAL_CONTENT_IN_FILE) != 0) {
            OpenFile();
        } else if (what.end < what.start || (what.data == nullptr && what.end != what.start)) {
            throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_contentContext);
        }
    }

    DWORD Size() const { return m_file ? static_cast<DWORD>(m_file->Size()) : m_what.end - m_what.start; }

    void ForEachChunk(const nal::FileContent::Sink& sink) {
        if (m_file) {
            m_file->ForEachChunk(nal::c_hashChunk, sink);
            m_source->RequireUnchanged();
        } else if (Size() != 0) {
            sink({static_cast<const unsigned char*>(m_what.data) + m_what.start, Size()});
        }
    }

private:
    void OpenFile() {
        if (m_what.data == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_contentContext);
        m_source = std::make_unique<nal::SignedSource>(CTOOString(static_cast<const char*>(m_what.data)));
        try {
            m_file = std::make_unique<nal::FileContent>(m_what, c_contentContext);
        } catch (const XTOOStatus& status) {
            // A message's own region beyond its file is 37; of a region that is asked for it is a bad argument.
            if (status.GetCode() != TOO_E_RANGE) throw;
            throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_contentContext);
        }
    }

    const WhatToSignStruct& m_what;
    std::unique_ptr<nal::SignedSource> m_source;
    std::unique_ptr<nal::FileContent> m_file;
};

CNALSignData ReadMessage(const IdentObj& encoded) {
    CNALSignData message;
    if (!encoded.IsEmpty()) message.ReadObject(encoded.GetData(), encoded.GetSize(), nullptr);
    return message;
}

/// Hashes the content, compares it with the one that the message carries, and puts it there if it is to be attached.
class ContentReader {
public:
    ContentReader(Content& content, CNALSignData& message, bool attach, nal::ContentHashes& hashes)
        : m_content(content), m_message(message), m_hashes(hashes), m_compare(message.IsAttached()), m_keep(attach && !m_compare) {}

    void Read() {
        if (m_compare && m_message.eContent.GetSize() != m_content.Size()) Refuse();
        IdentObj kept;
        if (m_keep) kept.SetSize(m_content.Size());
        m_content.ForEachChunk([&](asnt::View chunk) {
            m_hashes.Add(chunk);
            if (m_compare && asnt::View(m_message.eContent).Sub(m_done, chunk.size) != chunk) Refuse();
            if (m_keep) std::memcpy(kept.GetData() + m_done, chunk.data, chunk.size);
            m_done += chunk.size;
        });
        m_hashes.Finish();
        if (m_keep) m_message.eContent = std::move(kept);
    }

private:
    [[noreturn]] static void Refuse() { throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_contentContext); }

    Content& m_content;
    CNALSignData& m_message;
    nal::ContentHashes& m_hashes;
    bool m_compare;
    bool m_keep;
    std::size_t m_done = 0;
};

IdentObj SignMessage(const CNALUser& user, const CNALCertContext& cert, const WhatToSignStruct& what, const IdentObj& encoded,
                     const CTOOString* hashOID) {
    CNALProvider provider;
    nal::KeyHandle key;
    CNALCertContext signerCert = cert;
    NALGetKeyData(user, signerCert, provider, key.Receive());
    if (!NALCanSignByCert(cert, false, CTOOFileTime())) throw XTOOStatus(nal::LastErrorStatus(), c_userContext);
    const DWORD hashAlgId = nal::ChooseHash(hashOID != nullptr ? hashOID->c_str() : nullptr, cert, c_context);

    CNALSignData message = ReadMessage(encoded);
    nal::MakeRoom(message, cert, what.options, true, c_context);
    nal::SignedClaims claims;
    claims.signingTime = CTOOFileTime::Now();
    claims.order = nal::AttributeOrder::DigestThenTime;

    // The size is known before the content is read.
    Content content(what);
    const bool attach = (what.options & c_NAL_SIGN_ATTACHED) != 0;
    if (attach && !message.IsAttached()) {
        CNALSignData sized = message;
        CNALMessageSignerInfo placeholder = nal::MakePlaceholder(cert, hashAlgId, claims, what.options, c_context);
        nal::AddSigner(sized, placeholder, cert, what.options);
        nal::OutgoingMessage(sized, content.Size(), c_contentContext);
    }

    nal::ContentHashes hashes(provider.GetProviderHandle(), c_hashContext);
    if (!hashes.Want(hashAlgId)) nal::ThrowProvider(c_createContext);
    ContentReader(content, message, attach, hashes).Read();
    const nal::ContentHash& hash = *hashes.Find(hashAlgId);
    nal::RequireSameContent(message, hash, c_contentContext);

    claims.digest = hash.value;
    CNALMessageSignerInfo signer = nal::PrepareSigner(cert, hashAlgId, claims, what.options, c_context);
    nal::SignSigner(cert, {provider.GetProviderHandle(), key.Get(), hash.running.Get(), hashAlgId}, signer);
    nal::AddSigner(message, signer, cert, what.options);
    return message.WriteObject(nullptr);
}

}  // namespace

int NALSignData(const CNALUser& user, const CNALCertContext& cert, const WhatToSignStruct& what, IdentObj* message,
                const CTOOString* hashOID, int* err) {
    return nal::Report(err, [&] {
        if (message == nullptr || !cert.IsInitialized()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_contentContext);
        *message = SignMessage(user, cert, what, *message, hashOID);
    });
}

#include "nal/encrypt.h"

#include <set>
#include <utility>

#include "cms/content_source.h"
#include "cms/envelope_writer.h"
#include "cms/outgoing.h"
#include "encryption/content_transform.h"
#include "frame/failure.h"
#include "model/provider_handles.h"
#include "ork/provider.h"
#include "storage/cert_reader.h"
#include "too/status.h"

namespace {

constexpr char c_memContext[] = "NALEncryptMem";
constexpr char c_fileContext[] = "NALEncryptFile";
constexpr char c_contentContext[] = "CNALEncryptedContentInfo::Encrypt";
constexpr char c_exportContext[] = "NALExportEncryptKey";

/// A message whose every byte but the content's is known.
class Encryption {
public:
    Encryption(const WhatToSignStruct& what, const std::list<CNALCertContext>& recipients, const char* context)
        : m_source(what, c_contentContext),
          m_inPieces(m_source.File() != nullptr && (what.flags & c_NAL_CONTENT_IN_PIECES) != 0) {
        if (m_source.Size() == 0) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_contentContext);
        if (recipients.empty()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
        int status = 0;
        if (!m_provider.Init(nullptr, ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY, &status)) throw XTOOStatus(status, context);
        if (!ORKGenKey(m_provider.GetProviderHandle(), ORK_ALG_GOST28147, ORK_GEN_EXPORTABLE, m_key.Receive())) {
            nal::ThrowProvider(context);
        }
        CNALEnvelopedData message;
        nal::DescribeContent(m_key.Get(), m_source.Size(), m_inPieces, c_contentContext, message.encryptedContentInfo);
        AddRecipients(recipients, context, message);
        asnt::Writer writer;
        nal::DeclareEnvelope(message, writer, context);
        m_size = static_cast<unsigned>(writer.Size());
        writer.FinishParts(m_before, m_after);
    }

    const nal::ContentSource& Source() const { return m_source; }

    IdentObj ToMemory() {
        IdentObj message;
        message.SetSize(m_size);
        unsigned char* content = std::copy_n(m_before.GetData(), m_before.GetSize(), message.GetData());
        Transform().ToMemory(content);
        std::copy_n(m_after.GetData(), m_after.GetSize(), message.GetData() + m_size - m_after.GetSize());
        return message;
    }

    void ToFile(CTOOWholeFile& file) {
        file.Write(m_before);
        Transform().ToSink([&](asnt::View chunk) { file.Write(chunk.data, chunk.size); });
        file.Write(m_after);
    }

private:
    nal::ContentTransform Transform() {
        return {m_key.Get(), nal::ContentTransform::Encrypt, m_source, m_inPieces, c_contentContext};
    }

    void AddRecipients(const std::list<CNALCertContext>& recipients, const char* context, CNALEnvelopedData& message) const {
        std::set<std::pair<IdentObj, IdentObj>> known;
        for (const CNALCertContext& cert : recipients) {
            if (!cert.IsInitialized()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
            CNALTransRecipientInfo info(cert);
            if (!known.emplace(info.issuer, info.serialNumber).second) continue;
            CNALCertPublicKeyInfo key = nal::PublicKeyOf(*cert.GetContext());
            if (!NALExportEncryptKey(m_key.Get(), key)) nal::ThrowProvider(c_exportContext);
            info.encryptedKey = std::move(key.m_publicKey.m_data);
            message.recipientInfos.push_back(std::move(info));
        }
    }

    nal::ContentSource m_source;
    bool m_inPieces;
    CNALProvider m_provider;
    nal::KeyHandle m_key;
    unsigned m_size = 0;
    IdentObj m_before;
    IdentObj m_after;
};

}  // namespace

int NALEncryptMem(const WhatToSignStruct& what, const std::list<CNALCertContext>& recipients, IdentObj& message, int* err) {
    return nal::Report(err, [&] { message = Encryption(what, recipients, c_memContext).ToMemory(); });
}

int NALEncryptFile(WhatToSignStruct& what, const std::list<CNALCertContext>& recipients, const char* outPath, int* err) {
    return nal::Report(err, [&] {
        if (outPath == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_fileContext);
        Encryption encryption(what, recipients, c_fileContext);
        const CTOOFile* source = encryption.Source().File();
        if (source != nullptr && nal::IsSameFile(*source, CTOOString(outPath))) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_fileContext);
        CTOOWholeFile file{CTOOString(outPath)};
        encryption.ToFile(file);
        file.Commit();
        what.end = encryption.Source().End();
    });
}

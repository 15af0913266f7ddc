// The members of CNALEncryptedContentInfo that use keys.
#include <utility>

#include "cms/content_source.h"
#include "cms/outgoing.h"
#include "encryption/content_transform.h"
#include "frame/failure.h"
#include "nal/enveloped_data.h"
#include "too/status.h"

namespace {

constexpr char c_encryptContext[] = "CNALEncryptedContentInfo::Encrypt";
constexpr char c_decryptContext[] = "CNALEncryptedContentInfo::Decrypt";

void RequireOther(const nal::ContentSource& source, const CTOOFile& out, const char* context) {
    if (source.File() != nullptr && nal::IsSameFile(*source.File(), out)) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
}

/// Writes everything at the file's position, or nothing.
void ToFile(nal::ContentTransform& transform, CTOOFile& out) {
    nal::FileUndo undo(out);
    transform.ToSink([&](asnt::View chunk) { out.Write(chunk.data, chunk.size); });
    undo.Done();
}

}  // namespace

int CNALEncryptedContentInfo::Encrypt(unsigned long hSessionKey, CTOOFile* outFile, const WhatToSignStruct& what, int* err) {
    return nal::Report(err, [&] {
        nal::ContentSource source(what, c_encryptContext);
        if (source.Size() == 0) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_encryptContext);
        if (outFile != nullptr) RequireOther(source, *outFile, c_encryptContext);
        const bool inPieces = source.File() != nullptr && (what.flags & c_NAL_CONTENT_IN_PIECES) != 0;
        CNALEncryptedContentInfo info;
        nal::DescribeContent(hSessionKey, source.Size(), inPieces, c_encryptContext, info);
        nal::ContentTransform transform(hSessionKey, nal::ContentTransform::Encrypt, source, inPieces, c_encryptContext);
        if (outFile == nullptr) {
            info.encryptedContent.SetSize(info.encryptedLength);
            transform.ToMemory(info.encryptedContent.GetData());
        } else {
            const std::uint64_t offset = outFile->Tell();
            if (offset + info.encryptedLength > c_NAL_MAX_MESSAGE_SIZE) throw XTOOStatus(TOO_E_TOO_LARGE, c_encryptContext);
            ToFile(transform, *outFile);
            info.contentPath = outFile->GetName();
            info.contentOffset = static_cast<DWORD>(offset);
        }
        *this = std::move(info);
    });
}

int CNALEncryptedContentInfo::Decrypt(unsigned long hSessionKey, CTOOFile* outFile, IdentObj* content, int* err) const {
    return nal::Report(err, [&] {
        if (outFile == nullptr && content == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_decryptContext);
        nal::ContentSource source(*this, nal::ContentForm::Joined, c_decryptContext);
        nal::ContentTransform transform(hSessionKey, nal::ContentTransform::Decrypt, source, false, c_decryptContext);
        if (outFile != nullptr) {
            RequireOther(source, *outFile, c_decryptContext);
            return ToFile(transform, *outFile);
        }
        nal::WipedBuffer plain(source.Size());
        transform.ToMemory(plain.bytes.GetData());
        *content = std::move(plain.bytes);
    });
}

#include <algorithm>

#include "cms/content_source.h"
#include "cms/outgoing.h"
#include "frame/failure.h"
#include "model/provider_handles.h"
#include "nal/encrypt.h"
#include "too/status.h"

namespace {

constexpr char c_memContext[] = "NALDecryptMem";
constexpr char c_fileContext[] = "NALDecryptFile";

/// A message and the key to its content.
class Decryption {
public:
    /// @param outPath  not to be the message itself; null for none
    Decryption(const WhatToSignStruct& what, CNALUser* user, CNALCertStorage* storage, const char* outPath, const char* context) {
        if (what.data == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
        if ((what.flags & c_NAL_CONTENT_IN_FILE) != 0) {
            ReadFile(what, outPath, context);
        } else {
            ReadMemory(what, context);
        }
        unsigned long hKey = 0;
        m_message.GetEncryptionKey(user, storage, m_provider, hKey, nullptr);
        m_key.Reset(hKey);
    }

    /// Where the bytes that were given end.
    DWORD End() const { return m_end; }

    void ToMemory(IdentObj& content) const { m_message.encryptedContentInfo.Decrypt(m_key.Get(), nullptr, &content, nullptr); }
    void ToFile(CTOOFile& file) const { m_message.encryptedContentInfo.Decrypt(m_key.Get(), &file, nullptr, nullptr); }

private:
    void ReadFile(const WhatToSignStruct& what, const char* outPath, const char* context) {
        const CTOOString path(static_cast<const char*>(what.data));
        if (!CTOOFile::Exists(path)) throw XTOOStatus(TOO_E_FILE_NOT_FOUND, path);
        const CTOOFile file(path, "rbc");
        if (outPath != nullptr && nal::IsSameFile(file, CTOOString(outPath))) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
        const std::uint64_t length = file.Length();
        const std::uint64_t end = what.end == c_NAL_TO_END_OF_FILE ? length : what.end;
        if (what.start > end || end > length) throw XTOOStatus(TOO_E_RANGE, context);
        if (what.start == end) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
        file.Seek(what.start);
        m_message.ReadObject(file, nullptr);
        if (file.Tell() > end) throw XTOOStatus(TOO_E_BAD_STRUCTURE, context);
        m_end = static_cast<DWORD>(std::min<std::uint64_t>(end, c_NAL_MAX_MESSAGE_SIZE));
    }

    void ReadMemory(const WhatToSignStruct& what, const char* context) {
        if (what.end < what.start) throw XTOOStatus(TOO_E_RANGE, context);
        if (what.start == what.end) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
        m_message.ReadObject(static_cast<const unsigned char*>(what.data) + what.start, what.end - what.start, nullptr);
        m_end = what.end;
    }

    CNALEnvelopedData m_message;
    CNALProvider m_provider;
    nal::KeyHandle m_key;
    DWORD m_end = 0;
};

}  // namespace

int NALDecryptMem(WhatToSignStruct& what, CNALUser* user, CNALCertStorage* storage, IdentObj& content, int* err) {
    return nal::Report(err, [&] {
        const Decryption decryption(what, user, storage, nullptr, c_memContext);
        decryption.ToMemory(content);
        what.end = decryption.End();
    });
}

int NALDecryptFile(WhatToSignStruct& what, CNALUser* user, CNALCertStorage* storage, const char* outPath, int* err) {
    return nal::Report(err, [&] {
        if (outPath == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_fileContext);
        const Decryption decryption(what, user, storage, outPath, c_fileContext);
        CTOOWholeFile file(CTOOString(outPath), CTOOWholeFile::Unnamed);
        decryption.ToFile(file.GetFile());
        file.Commit();
        what.end = decryption.End();
    });
}

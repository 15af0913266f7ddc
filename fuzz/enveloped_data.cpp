// An encrypted message from outside: it decodes or is refused, in memory and from a file alike, and what decodes is written again
// as a message of the same parts. Its recipients of other forms are decoded too.
#include <cstddef>
#include <cstdint>

#include "fuzz/input_file.h"
#include "nal/enveloped_data.h"
#include "too/file.h"
#include "too/status.h"

namespace {

using nal_fuzz::Expect;
using nal_fuzz::InputFile;

void ExpectSameParts(const CNALEnvelopedData& a, const CNALEnvelopedData& b) {
    Expect(a.version == b.version && a.recipientInfos.size() == b.recipientInfos.size());
    Expect(a.otherRecipientInfos == b.otherRecipientInfos && a.unprotectedAttrs == b.unprotectedAttrs);
    Expect(a.originatorInfo.certificates == b.originatorInfo.certificates && a.originatorInfo.crls == b.originatorInfo.crls);
    const CNALEncryptedContentInfo& x = a.encryptedContentInfo;
    const CNALEncryptedContentInfo& y = b.encryptedContentInfo;
    Expect(x.contentType == y.contentType && x.contentFlags == y.contentFlags && x.encryptedLength == y.encryptedLength);
    Expect(x.openTextSize == y.openTextSize && x.contentEncryptionAlgorithm == y.contentEncryptionAlgorithm);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const InputFile file(data, size);
    IdentObj content;
    NALGetFormatFlags(data, static_cast<unsigned>(size), &content);
    CNALEnvelopedData inMemory;
    CNALEnvelopedData inFile;
    int err = -1;
    int errInFile = -1;
    const int good = inMemory.ReadObject(data, static_cast<unsigned>(size), &err);
    inFile.ReadObject(CTOOFile(file.Path(), "rbc"), &errInFile);
    Expect(err == errInFile && (good != 0) == (err == 0));
    ExpectSameParts(inMemory, inFile);
    for (const IdentObj& other : inMemory.otherRecipientInfos) CNALAgreeRecipientInfo().ReadObject(other.GetData(), other.GetSize(), &err);
    if (!good) {
        ExpectSameParts(inMemory, CNALEnvelopedData());
        return 0;
    }
    const IdentObj written = inMemory.WriteObject(&err);
    // No content is refused, and so is a recipient without a key.
    if (err != 0) return 0;
    Expect(written == inFile.WriteObject(nullptr));
    CNALEnvelopedData again;
    again.ReadObject(written.GetData(), written.GetSize(), nullptr);
    ExpectSameParts(again, inMemory);
    Expect(again.encryptedContentInfo.encryptedContent == inMemory.encryptedContentInfo.encryptedContent);
    Expect(again.WriteObject(nullptr) == written);
    return 0;
}

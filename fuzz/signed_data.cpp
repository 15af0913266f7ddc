// A message from outside: it decodes or is refused, in memory and from a file alike, and what decodes is written again as a
// message of the same parts. Its signer infos are decoded too.
#include <cstddef>
#include <cstdint>

#include "fuzz/input_file.h"
#include "nal/signed_data.h"
#include "too/file.h"
#include "too/status.h"

namespace {

using nal_fuzz::Expect;
using nal_fuzz::InputFile;

void CheckSignerInfo(const IdentObj& der) {
    CNALMessageSignerInfo info;
    int err = -1;
    if (info.ReadData(der.GetData(), der.GetSize(), &err) == 0) {
        Expect(err == TOO_E_BAD_STRUCTURE && info == CNALMessageSignerInfo());
        return;
    }
    const IdentObj signedBytes = info.GetBytesToSign();
    Expect(signedBytes.IsEmpty() == info.signedAttrs.empty());
    Expect(signedBytes.GetSize() == info.GetBytesToSign(asnt::Order::Sorted).GetSize());
    info.GetSigningDate(&err);
    const std::int32_t version = info.version;
    const IdentObj written = info.WriteData(&err);
    Expect(err == 0);
    // The version is made to suit the identifier; all else is DER and comes back.
    if (version == info.version) Expect(written == der);
}

void ExpectSameParts(const CNALSignData& a, const CNALSignData& b) {
    Expect(a.version == b.version && a.digestAlgorithms == b.digestAlgorithms && a.eContentType == b.eContentType);
    Expect(a.certificates == b.certificates && a.crls == b.crls && a.signerInfos == b.signerInfos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const InputFile file(data, size);
    CNALSignData inMemory;
    CNALSignData inFile;
    int err = -1;
    int errInFile = -1;
    const int good = inMemory.ReadObject(data, static_cast<unsigned>(size), &err);
    inFile.ReadObject(CTOOFile(file.Path(), "rbc"), 0, &errInFile);
    Expect(err == errInFile && (good != 0) == (err == 0));
    ExpectSameParts(inMemory, inFile);
    if (!good) {
        Expect(err == TOO_E_NOT_SIGNED_MESSAGE || err == TOO_E_BAD_STRUCTURE || err == TOO_E_NOT_FOUND || err == TOO_E_TOO_LARGE);
        ExpectSameParts(inMemory, CNALSignData());
        Expect(!inMemory.IsAttached() && !inFile.IsAttached());
        return 0;
    }
    const IdentObj written = inMemory.WriteObject(&err);
    Expect(err == 0 && written.GetSize() == inMemory.GetObjectSize());
    const IdentObj writtenFromFile = inFile.WriteObject(&err);
    Expect(err == 0);
    // In memory no content and none at all are the same.
    if (!inMemory.eContent.IsEmpty() || !inFile.dataSource.IsFile()) Expect(written == writtenFromFile);
    CNALSignData again;
    again.ReadObject(written.GetData(), written.GetSize(), nullptr);
    ExpectSameParts(again, inMemory);
    Expect(again.eContent == inMemory.eContent);
    for (const IdentObj& der : inMemory.signerInfos) CheckSignerInfo(der);
    return 0;
}

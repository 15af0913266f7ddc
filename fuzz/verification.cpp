// A signed message from outside, verified with its content in memory, in a file and beside it. The corpus holds messages whose signers
// all signed one text; who finds another one under a valid signature has broken it.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/input_file.h"
#include "nal/signature_check.h"
#include "nal/signed_data_helper.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

using nal_fuzz::Expect;
using Records = std::list<CNALWholeSignatureCheck>;

constexpr char kContent[] = "what was signed";
constexpr FILETIME kTime = {0xBF954000, 0x01DD7BA6};  // 24 November 2026, within the validity of the corpus's certificates

IdentObj ContentOf(const IdentObj& encoded) {
    CNALSignData message;
    message.ReadObject(encoded.GetData(), encoded.GetSize(), nullptr);
    return message.eContent;
}

void ExpectOnlyKnownStatuses(const Records& records) {
    for (const CNALWholeSignatureCheck& record : records) {
        switch (record.status) {
            case c_NAL_SIGNATURE_VALID:
            case c_NAL_SIGNER_NOT_ALLOWED:
                Expect(!record.signerCertificate.IsEmpty());
                break;
            case c_NAL_SIGNER_NOT_FOUND:
                Expect(record.signerCertificate.IsEmpty());
                break;
            default:
                Expect(record.status == c_NAL_SIGNING_TIME_INVALID || record.status == c_NAL_SIGNATURE_INVALID ||
                       record.status == c_NAL_CONTENT_TYPE_INVALID);
        }
    }
}

bool IsAnyValid(const Records& records) {
    for (const CNALWholeSignatureCheck& record : records) {
        if (record.IsValid()) return true;
    }
    return false;
}

/// Taking signatures out one by one gives messages that say of each what the whole one says.
void ExpectSamePart(const IdentObj& encoded, const CNALWholeSignatureCheck& record) {
    CNALSignData message;
    message.ReadObject(encoded.GetData(), encoded.GetSize(), nullptr);
    try {
        SignedDataHelper::ExtractSignature(message, static_cast<int>(record.index), message);
    } catch (const XTOOStatus&) {
        return;  // a signer info that does not decode
    }
    Records records;
    Expect(NALVerifySignedData(&records, {}, message.WriteObject(nullptr), nullptr, nullptr) == 1 && records.size() == 1);
    if (record.IsValid()) Expect(records.front().IsValid());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const nal_fuzz::InputFile file(data, size);
    too_testing::SetClock(kTime);
    const IdentObj message(data, static_cast<unsigned>(size));
    const IdentObj signedText(kContent, sizeof kContent - 1);
    const IdentObj other("something else", 14);
    int err = -1;

    Records records;
    const int run = NALVerifySignedData(&records, {}, message, nullptr, &err);
    Expect((run == 1) == (err == TOO_OK) && (run == 1) != records.empty());
    ExpectOnlyKnownStatuses(records);
    if (IsAnyValid(records)) {
        const IdentObj content = ContentOf(message);
        Expect(content == signedText);
        ExpectSamePart(message, records.front());
    }

    Records inFile;
    const std::string& path = file.Path();
    if (NALVerifySignatureOnFile(inFile, path.c_str(), nullptr, nullptr, &err) == 1) {
        Expect(inFile.size() == records.size() && IsAnyValid(inFile) == IsAnyValid(records));
    }
    WhatToSignStruct beside;
    beside.data = other.GetData();
    beside.end = other.GetSize();
    Records wrong;
    NALVerifySignedData(&wrong, beside, message, nullptr, &err);
    Expect(!IsAnyValid(wrong));
    return 0;
}

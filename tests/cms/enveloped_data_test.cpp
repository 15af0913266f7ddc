// The EnvelopedData model: what is written, what is read back, and what is refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "cms/message_test.h"
#include "nal/enveloped_data.h"
#include "support/folder_test.h"
#include "too/file.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

using nal_test::Der;
using nal_test::FromHexText;
using nal_test::FromText;
using nal_test::StatusOf;

constexpr char c_data[] = "0609 2A864886F70D010701";
constexpr char c_algorithm[] = "301D 0606 2A8503020215 3013 0408 0102030405060708 0607 2A85030202 1F01";
const std::string c_agreement = "A1 8190 020103 A065 A163 301C 0606 2A8503020213 3012 0607 2A850302022400 0607 2A850302021E01"
                                "0343 00 0440" +
                                std::string(128, '0') +
                                "A10A 0408 1112131415161718 3008 0606 2A8503020260 300E 300C A006 0404 DEADBEEF 0402 AABB";

CNALTransRecipientInfo Recipient(const char* key = "3003 0401 07") {
    CNALTransRecipientInfo info;
    info.issuer = nal_test::NameDer("Issuer");
    info.serialNumber = FromHexText("00F102");
    info.keyEncryptionAlgorithm = FromHexText("3008 0606 2A8503020213");
    info.encryptedKey = FromHexText(key);
    return info;
}

CNALTransRecipientInfo RecipientByKeyId() {
    CNALTransRecipientInfo info = Recipient();
    info.version = 2;
    info.issuer.Clear();
    info.serialNumber.Clear();
    info.subjectKeyIdentifier = nal_test::Filled(7);
    return info;
}

CNALEncryptedContentInfo Content(const std::string& bytes, bool inPieces = false) {
    CNALEncryptedContentInfo info;
    const IdentObj algorithm = FromHexText(c_algorithm);
    info.contentEncryptionAlgorithm.CASNTIdData::ReadData(algorithm.GetData(), algorithm.GetSize());
    info.encryptedContent = FromText(bytes);
    info.encryptedLength = info.encryptedContent.GetSize();
    info.openTextSize = info.encryptedLength;
    info.contentFlags = c_NAL_ENCRYPTED_CONTENT | (inPieces ? c_NAL_ENCRYPTED_CONTENT_IN_PIECES : 0);
    return info;
}

/// Something of everything.
CNALEnvelopedData FullEnvelope() {
    CNALEnvelopedData message;
    message.version = 2;
    message.originatorInfo.certificates = {nal_test::BuildCert("Second"), nal_test::BuildCert("First")};
    message.originatorInfo.crls = {nal_test::CrlBuilder().Build()};
    message.recipientInfos = {RecipientByKeyId(), Recipient()};
    message.otherRecipientInfos = {FromHexText("A200")};
    message.encryptedContentInfo = Content("encrypted content");
    message.unprotectedAttrs.Add("1.2.3.4", FromHexText("0500"));
    return message;
}

CNALEnvelopedData SmallEnvelope(const CNALEncryptedContentInfo& content) {
    CNALEnvelopedData message;
    message.recipientInfos = {Recipient()};
    message.encryptedContentInfo = content;
    return message;
}

/// A message of these elements of EnvelopedData.
IdentObj Body(const std::string& elements) {
    return Der([&](asnt::Writer& writer) {
        writer.Sequence([&] {
            writer.Oid(c_NAL_OID_ENVELOPED_DATA);
            writer.Context(0, [&] { writer.Sequence([&] { writer.Raw(FromHexText(elements)); }); });
        });
    });
}

std::string HexOf(const IdentObj& der) {
    return nal_test::ToHex(der.GetData(), der.GetSize());
}

void ExpectSameRecipient(const CNALTransRecipientInfo& a, const CNALTransRecipientInfo& b) {
    EXPECT_EQ(a.version, b.version);
    EXPECT_EQ(a.issuer, b.issuer);
    EXPECT_EQ(a.serialNumber, b.serialNumber);
    EXPECT_EQ(a.subjectKeyIdentifier, b.subjectKeyIdentifier);
    EXPECT_EQ(a.keyEncryptionAlgorithm, b.keyEncryptionAlgorithm);
    EXPECT_EQ(a.encryptedKey, b.encryptedKey);
}

void ExpectSameAround(const CNALEnvelopedData& a, const CNALEnvelopedData& b) {
    EXPECT_EQ(a.version, b.version);
    EXPECT_EQ(a.originatorInfo.certificates, b.originatorInfo.certificates);
    EXPECT_EQ(a.originatorInfo.crls, b.originatorInfo.crls);
    EXPECT_EQ(a.otherRecipientInfos, b.otherRecipientInfos);
    EXPECT_EQ(a.unprotectedAttrs, b.unprotectedAttrs);
    ASSERT_EQ(a.recipientInfos.size(), b.recipientInfos.size());
    auto other = b.recipientInfos.begin();
    for (const CNALTransRecipientInfo& recipient : a.recipientInfos) ExpectSameRecipient(recipient, *other++);
    EXPECT_EQ(a.encryptedContentInfo.contentType, b.encryptedContentInfo.contentType);
    EXPECT_EQ(a.encryptedContentInfo.contentEncryptionAlgorithm, b.encryptedContentInfo.contentEncryptionAlgorithm);
    EXPECT_EQ(a.encryptedContentInfo.contentFlags, b.encryptedContentInfo.contentFlags);
    EXPECT_EQ(a.encryptedContentInfo.encryptedLength, b.encryptedContentInfo.encryptedLength);
}

class EnvelopedData : public nal_test::FolderTest {
protected:
    /// Reads from memory and from a file, which must agree. @return the status
    int ReadBoth(const IdentObj& der, CNALEnvelopedData& inMemory, CNALEnvelopedData& inFile) const {
        int err = -1;
        int errInFile = -1;
        const int good = inMemory.ReadObject(der.GetData(), der.GetSize(), &err);
        EXPECT_EQ(good, err == 0);
        Store("message", der);
        inFile.ReadObject(CTOOFile(m_path, "rbc"), &errInFile);
        EXPECT_EQ(err, errInFile);
        ExpectSameAround(inMemory, inFile);
        if (err != 0) ExpectSameAround(inMemory, CNALEnvelopedData());
        return err;
    }

    std::string m_path = Path("message");
    std::string m_target = Path("target");
};

TEST_F(EnvelopedData, ReadsWhatItWritesFromMemoryAndFile) {
    const std::string pieces("\x04\x82\x00\x03" "abc" "\x24\x80\x04\x01" "d" "\x04\x00\x00\x00", 16);
    const struct {
        const char* what;
        CNALEnvelopedData message;
        unsigned openSize;
    } cases[] = {{"everything", FullEnvelope(), 17},
                 {"little", SmallEnvelope(Content("x")), 1},
                 {"long", SmallEnvelope(Content(std::string(700000, 'y'))), 700000},
                 {"pieces", SmallEnvelope(Content(pieces, true)), 4}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        const IdentObj der = each.message.WriteObject(nullptr);
        EXPECT_TRUE(asnt::IsWellFormed(der, asnt::Rules::Ber));
        CNALEnvelopedData inMemory;
        CNALEnvelopedData inFile;
        ASSERT_EQ(ReadBoth(der, inMemory, inFile), TOO_OK);
        ExpectSameAround(inMemory, each.message);
        EXPECT_EQ(inMemory.encryptedContentInfo.encryptedContent, each.message.encryptedContentInfo.encryptedContent);
        EXPECT_EQ(inMemory.encryptedContentInfo.GetOpenTextSize(), each.openSize);
        EXPECT_EQ(inFile.encryptedContentInfo.GetOpenTextSize(), each.openSize);
        EXPECT_TRUE(inFile.encryptedContentInfo.encryptedContent.IsEmpty());
        for (const CNALEnvelopedData* message : {&inMemory, &inFile}) {
            EXPECT_EQ(message->WriteObject(nullptr), der);
            CTOOFile file(m_target, "wbc");
            file.Write("head", 4);
            EXPECT_EQ(message->WriteObject(file, nullptr), 1);
            file.Close();
            const IdentObj written = Load(m_target);
            EXPECT_EQ(asnt::View(written).Sub(4), asnt::View(der));
            CTOOFile again(m_target, "rb");
            again.Seek(4);
            CNALEnvelopedData read;
            EXPECT_EQ(read.ReadObject(again, nullptr), 1);
            EXPECT_EQ(read.WriteObject(nullptr), der);
            const CNALEncryptedContentInfo& info = message->encryptedContentInfo;
            const IdentObj part = info.WriteObject();
            EXPECT_EQ(part.GetSize(), info.GetObjectSize());
            CNALEncryptedContentInfo partRead;
            EXPECT_EQ(partRead.ReadObject(part.GetData(), part.GetSize()), part.GetSize());
            EXPECT_EQ(partRead.WriteObject(), part);
            CTOOFile partFile(m_target, "wb+");
            info.WriteObject(partFile);
            partFile.Seek(0);
            partRead.ReadObject(partFile);
            EXPECT_EQ(partFile.Tell(), part.GetSize());
            EXPECT_EQ(partRead.WriteObject(), part);
        }
    }
}

TEST_F(EnvelopedData, IsEncodedAsTheStandardSays) {
    CNALEnvelopedData message = SmallEnvelope(Content("abc"));
    const IdentObj recipient = message.recipientInfos.front().WriteObject(nullptr);
    EXPECT_EQ(recipient.GetSize(), message.recipientInfos.front().GetObjectSize());
    // A SET of one recipient, whose length needs one octet.
    const std::string head = "020100 31" + nal_test::ToHex(std::string(1, static_cast<char>(recipient.GetSize()))) + HexOf(recipient);
    EXPECT_EQ(message.WriteObject(nullptr), Body(head + "302F" + c_data + c_algorithm + "8003 616263"));
    message.encryptedContentInfo = Content("\x04\x01" "a", true);
    message.unprotectedAttrs.Add("1.2.3.4", FromHexText("0500"));
    EXPECT_EQ(message.WriteObject(nullptr),
              Body(head + "302F" + c_data + c_algorithm + "A003 040161" + "A1 0B 3009 0603 2A0304 3102 0500"));
    EXPECT_EQ(RecipientByKeyId().WriteObject(nullptr),
              FromHexText("302A 020102 8014 0707070707070707070707070707070707070707 3008 0606 2A8503020213 0405 3003 0401 07"));
}

TEST_F(EnvelopedData, IndefiniteLengthsAreReadAndWrittenDefinite) {
    const IdentObj recipient = Recipient().WriteObject(nullptr);
    const std::string around = std::string("3080 0609 2A864886F70D010703 A080 3080 020100 3180") +
                               HexOf(recipient) + "0000 3080" + c_data + c_algorithm;
    const struct {
        const char *content, *kept;
        unsigned openSize;
    } cases[] = {{"A080 0403 616263 0401 64 0000", "0403616263 040164", 4},
                 {"A080 0000", "", 0},
                 {"A000", "", 0},
                 {"8000", "", 0},
                 {"8004 61626364", "61626364", 4},
                 {"A080 2480 0401 61 0000 0400 0000", "2480 0401 61 0000 0400", 1}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.content);
        CNALEnvelopedData inMemory;
        CNALEnvelopedData inFile;
        ASSERT_EQ(ReadBoth(FromHexText(around + each.content + "0000 0000 0000 0000 FFFF"), inMemory, inFile), TOO_OK);
        EXPECT_EQ(inMemory.encryptedContentInfo.encryptedContent, FromHexText(each.kept));
        EXPECT_EQ(inMemory.encryptedContentInfo.GetOpenTextSize(), each.openSize);
        int err = -1;
        const IdentObj der = inMemory.WriteObject(&err);
        EXPECT_EQ(err, *each.kept != 0 ? TOO_OK : TOO_E_BAD_ARGUMENT);
        EXPECT_TRUE(err != 0 || inFile.WriteObject(nullptr) == der);
    }
    // Encrypted content that is kept elsewhere.
    CNALEnvelopedData inMemory;
    CNALEnvelopedData inFile;
    ASSERT_EQ(ReadBoth(FromHexText(around + "0000 0000 0000 0000"), inMemory, inFile), TOO_OK);
    EXPECT_EQ(inMemory.encryptedContentInfo.contentFlags, 0u);
}

TEST_F(EnvelopedData, WhatIsNoEncryptedMessageIsRefused) {
    const IdentObj good = SmallEnvelope(Content("abc")).WriteObject(nullptr);
    const IdentObj signedMessage = nal_test::FullMessage().WriteObject(nullptr);
    const std::string info = std::string("302F") + c_data + c_algorithm + "8003 616263";
    EXPECT_EQ(StatusOf([&] { CNALEnvelopedData().ReadObject(Body("020100 3100" + info).GetData(), 0, nullptr); }), TOO_E_BAD_ARGUMENT);
    const struct {
        const char* what;
        IdentObj der;
        int status;
    } cases[] = {
        {"no recipients at all", Body("020100 3100" + info), TOO_OK},
        {"text", FromText("plain text"), TOO_E_NOT_SIGNED_MESSAGE},
        {"empty SEQUENCE", FromHexText("3000"), TOO_E_NOT_SIGNED_MESSAGE},
        {"signed", signedMessage, TOO_E_NOT_SIGNED_MESSAGE},
        {"no version", Body("3100" + info), TOO_E_BAD_STRUCTURE},
        {"large version", Body("0205 0100000000 3100" + info), TOO_E_BAD_STRUCTURE},
        {"no set of recipients", Body("020100" + info), TOO_E_NOT_SIGNED_MESSAGE},
        {"recipient cut", Body("020100 3105 3003 020100" + info), TOO_E_BAD_STRUCTURE},
        {"no content info", Body("020100 3100"), TOO_E_NOT_SIGNED_MESSAGE},
        {"content info without type", Body("020100 3100 3000"), TOO_E_NOT_SIGNED_MESSAGE},
        {"content info without algorithm", Body(std::string("020100 3100 300B") + c_data), TOO_E_BAD_STRUCTURE},
        {"content under another tag", Body(std::string("020100 3100 302F") + c_data + c_algorithm + "8103 616263"), TOO_E_BAD_STRUCTURE},
        {"content twice", Body(std::string("020100 3100 3032") + c_data + c_algorithm + "8003 616263 8001 61"), TOO_E_NOT_SIGNED_MESSAGE},
        {"piece of another type", Body(std::string("020100 3100 302F") + c_data + c_algorithm + "A003 0C0161"), TOO_E_BAD_STRUCTURE},
        {"piece too long", Body(std::string("020100 3100 302F") + c_data + c_algorithm + "A003 040261"), TOO_E_BAD_STRUCTURE},
        {"attributes twice", Body("020100 3100" + info + "A100 A100"), TOO_E_NOT_SIGNED_MESSAGE},
        {"originator behind", Body("020100 3100" + info + "A000"), TOO_E_NOT_SIGNED_MESSAGE},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        CNALEnvelopedData inMemory = FullEnvelope();
        CNALEnvelopedData inFile = FullEnvelope();
        EXPECT_EQ(ReadBoth(each.der, inMemory, inFile), each.status);
    }
}

TEST_F(EnvelopedData, DamageIsRefusedOrHarmless) {
    // What is inside of certificates and CRLs is not looked at.
    CNALEnvelopedData full = FullEnvelope();
    full.originatorInfo = CNALOriginatorInfo();
    for (const CNALEnvelopedData& message : {full, SmallEnvelope(Content("\x04\x82\x00\x02" "ab" "\x04\x01" "c", true))}) {
        const IdentObj good = message.WriteObject(nullptr);
        CNALEnvelopedData inMemory;
        CNALEnvelopedData inFile;
        for (const IdentObj& damaged : nal_test::Damaged(good)) {
            // Parameters of algorithms are elements of any kind, which are looked at when they are used.
            EXPECT_TRUE(ReadBoth(damaged, inMemory, inFile) != TOO_OK || damaged.GetSize() == good.GetSize());
        }
        for (unsigned i = 0; i < good.GetSize(); ++i) {
            IdentObj flipped = good;
            flipped.GetData()[i] ^= 1U << i % 8;
            if (ReadBoth(flipped, inMemory, inFile) != TOO_OK) continue;
            int err = 0;
            EXPECT_EQ(inMemory.WriteObject(&err), inFile.WriteObject(&err));
        }
    }
}

TEST_F(EnvelopedData, WhatIsIncompleteCannotBeWritten) {
    const struct {
        const char* what;
        std::function<void(CNALEnvelopedData&)> change;
        int status;
        const char* context;
    } cases[] = {
        {"no content", [](auto& m) { m.encryptedContentInfo.contentFlags = 0; }, 28, "CNALEncryptedContentInfo::WriteObject"},
        {"no bytes", [](auto& m) { m.encryptedContentInfo = Content(""); }, 28, "CNALEncryptedContentInfo::WriteObject"},
        {"other length", [](auto& m) { ++m.encryptedContentInfo.encryptedLength; }, 36, "CNALEncryptedContentInfo::WriteObject"},
        {"no algorithm", [](auto& m) { m.encryptedContentInfo.contentEncryptionAlgorithm = CNALAlgorithmIdentifier(); }, 36,
         "CNALEnvelopedData::WriteObject"},
        {"no file", [](auto& m) { m.encryptedContentInfo.contentPath = "/nowhere"; }, 4, "/nowhere"},
        {"no key", [](auto& m) { m.recipientInfos.back().encryptedKey.Clear(); }, 42, "CNALTransRecipientInfo::WriteObject"},
        {"no name", [](auto& m) { m.recipientInfos.back().issuer.Clear(); }, 42, "CNALTransRecipientInfo::WriteObject"},
        {"no serial", [](auto& m) { m.recipientInfos.back().serialNumber.Clear(); }, 42, "CNALTransRecipientInfo::WriteObject"},
        {"no key algorithm", [](auto& m) { m.recipientInfos.back().keyEncryptionAlgorithm.Clear(); }, 42,
         "CNALTransRecipientInfo::WriteObject"},
        {"certificate cut", [](auto& m) { m.originatorInfo.certificates.front() = FromHexText("3003 0500"); }, 36,
         "CNALEnvelopedData::WriteObject"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        CNALEnvelopedData message = FullEnvelope();
        each.change(message);
        EXPECT_EQ(nal_test::FailureOf([&] { message.WriteObject(nullptr); }), std::to_string(each.status) + " " + each.context);
        CTOOFile file(m_target, "wb");
        int err = -1;
        EXPECT_EQ(message.WriteObject(file, &err), 0);
        EXPECT_EQ(err, each.status);
        EXPECT_EQ(file.Length(), 0u);
    }
}

TEST_F(EnvelopedData, AFilesContentIsHeldToItsPlaceAndTheOutputToItsLimits) {
    Store("message", SmallEnvelope(Content(std::string(300000, 'x'))).WriteObject(nullptr));
    CNALEnvelopedData message;
    message.ReadObject(CTOOFile(m_path, "rbc"), nullptr);
    int err = -1;
    {
        CTOOFile itself(m_path, "r+b");
        EXPECT_EQ(message.WriteObject(itself, &err), 0);
        EXPECT_EQ(err, TOO_E_BAD_ARGUMENT);
    }
    CTOOFile file(m_target, "wb");
    file.Write("head", 4);
    {
        const too_testing::ScopedStepFailure full(2, ENOSPC, 1);
        EXPECT_EQ(message.WriteObject(file, &err), 0);
        EXPECT_EQ(err, TOO_E_DISK_FULL);
    }
    EXPECT_EQ(file.Length(), 4u);
    CTOOFile(m_path, "r+b").SetLength(1000);
    EXPECT_EQ(message.WriteObject(file, &err), 0);
    EXPECT_EQ(err, TOO_E_RANGE);
    CTOOFile(m_path, "r+b").SetLength(0xFFFFFFFF);
    message.encryptedContentInfo.contentOffset = 0;
    message.encryptedContentInfo.encryptedLength = 0xFFFFFFFE - 100;
    EXPECT_EQ(message.WriteObject(file, &err), 0);
    EXPECT_EQ(err, TOO_E_TOO_LARGE);
    EXPECT_EQ(file.Length(), 4u);
}

TEST_F(EnvelopedData, SizesOfPieces) {
    const CNALEncryptedContentInfo info;
    const unsigned cases[][2] = {{0, 0}, {1, 5}, {4095, 4099}, {4096, 4100}, {4097, 4105}, {65536, 65600}};
    for (const auto& [size, inPieces] : cases) {
        EXPECT_EQ(info.GetEncryptSize(0, size, 0), size);
        EXPECT_EQ(info.GetEncryptSize(0, size, c_NAL_ENCRYPTED_CONTENT_IN_PIECES), inPieces);
    }
    EXPECT_EQ(StatusOf([&] { info.GetEncryptSize(0, 0xFFFFFFF0, c_NAL_ENCRYPTED_CONTENT_IN_PIECES); }), TOO_E_TOO_LARGE);
}

TEST_F(EnvelopedData, RecipientsOfEachFormAreToldApart) {
    const IdentObj agreement = FromHexText(c_agreement);
    CNALAgreeRecipientInfo agree;
    ASSERT_EQ(agree.ReadObject(agreement.GetData(), agreement.GetSize(), nullptr), 1);
    EXPECT_EQ(agree.version, 3);
    EXPECT_EQ(agree.originatorKey.m_algorithm.GetID(), c_NAL_OID_KEY_GOST2001);
    EXPECT_EQ(agree.originatorKey.GetKeyLength(), 512u);
    EXPECT_EQ(agree.ukm, FromHexText("1112131415161718"));
    EXPECT_EQ(agree.keyEncryptionAlgorithm.GetID(), "1.2.643.2.2.96");
    ASSERT_EQ(agree.recipients.size(), 1u);
    EXPECT_EQ(agree.recipients.front().subjectKeyIdentifier, FromHexText("DEADBEEF"));
    EXPECT_EQ(agree.recipients.front().encryptedKey, FromHexText("AABB"));

    const IdentObj transport = Recipient().WriteObject(nullptr);
    const IdentObj named = FromHexText("A1 16 020103 A006 8004 DEADBEEF 3005 0603 2A0304 3002 3000");
    const struct {
        const IdentObj& der;
        int asTransport, asAgreement;
    } cases[] = {{transport, TOO_OK, 56}, {agreement, 56, TOO_OK}, {named, 56, 56}, {FromHexText("3000"), 206, 56}, {IdentObj(), 28, 28}};
    for (const auto& each : cases) {
        SCOPED_TRACE(HexOf(each.der));
        CNALTransRecipientInfo asTransport = RecipientByKeyId();
        int err = -1;
        EXPECT_EQ(asTransport.ReadObject(each.der.GetData(), each.der.GetSize(), &err), each.asTransport == 0);
        EXPECT_EQ(err, each.asTransport);
        if (err != 0 && err != 28) ExpectSameRecipient(asTransport, CNALTransRecipientInfo());
        EXPECT_EQ(agree.ReadObject(each.der.GetData(), each.der.GetSize(), &err), each.asAgreement == 0);
        EXPECT_EQ(err, each.asAgreement);
    }
    for (const IdentObj& damaged : nal_test::Damaged(agreement)) {
        const int status = StatusOf([&] { agree.ReadObject(damaged.GetData(), damaged.GetSize(), nullptr); });
        EXPECT_TRUE(status != TOO_OK || damaged.GetSize() == agreement.GetSize()) << damaged;
    }
}

TEST_F(EnvelopedData, OriginatorsListsMayStandAsPlainSets) {
    const struct {
        const char* der;
        unsigned certificates, crls;
        const char* written;
    } cases[] = {{"A000", 0, 0, "A000"},
                 {"A00C A004 3000 3000 A104 3000 A000", 2, 2, "A00C A004 3000 3000 A104 3000 A000"},
                 {"A008 3102 3000 3102 3000", 1, 1, "A008 A002 3000 A102 3000"},
                 {"A004 A102 3000", 0, 1, "A004 A102 3000"}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.der);
        const IdentObj der = FromHexText(each.der);
        CNALOriginatorInfo info;
        ASSERT_EQ(info.ReadObject(der.GetData(), der.GetSize(), nullptr), 1);
        EXPECT_EQ(info.certificates.size(), each.certificates);
        EXPECT_EQ(info.crls.size(), each.crls);
        EXPECT_EQ(info.IsEmpty(), each.certificates + each.crls == 0);
        EXPECT_EQ(info.WriteObject(nullptr), FromHexText(each.written));
        EXPECT_EQ(info.GetObjectSize(), FromHexText(each.written).GetSize());
    }
    const IdentObj bad = FromHexText("A004 A202 3000");
    EXPECT_EQ(StatusOf([&] { CNALOriginatorInfo().ReadObject(bad.GetData(), bad.GetSize(), nullptr); }), TOO_E_BAD_STRUCTURE);
}

TEST_F(EnvelopedData, FormatFlagsTellTheKind) {
    const IdentObj enveloped = FullEnvelope().WriteObject(nullptr);
    const IdentObj signedMessage = nal_test::FullMessage().WriteObject(nullptr);
    const auto start = [](const IdentObj& der) { return IdentObj(der.GetData(), 32); };
    const struct {
        const char* what;
        IdentObj bytes;
        unsigned flags;
    } cases[] = {
        {"enveloped", enveloped, c_NAL_FORMAT_CMS | c_NAL_FORMAT_ENVELOPED | c_NAL_FORMAT_WHOLE},
        {"its start", start(enveloped), c_NAL_FORMAT_CMS | c_NAL_FORMAT_ENVELOPED},
        {"signed", signedMessage, c_NAL_FORMAT_CMS | c_NAL_FORMAT_SIGNED | c_NAL_FORMAT_WHOLE},
        {"data", FromHexText("300F 0609 2A864886F70D010701 A002 0400"), c_NAL_FORMAT_CMS | c_NAL_FORMAT_DATA | c_NAL_FORMAT_WHOLE},
        {"indefinite", FromHexText("3080 0609 2A864886F70D010703 A080 3080"),
         c_NAL_FORMAT_CMS | c_NAL_FORMAT_ENVELOPED | c_NAL_FORMAT_INDEFINITE},
        {"encrypted", FromHexText("3020 0609 2A864886F70D010706"), c_NAL_FORMAT_CMS | c_NAL_FORMAT_ENCRYPTED},
        {"unknown kind", FromHexText("3020 0609 2A864886F70D010709"), c_NAL_FORMAT_CMS | c_NAL_FORMAT_OTHER},
        {"longer kind", FromHexText("3020 060A 2A864886F70D01070101"), c_NAL_FORMAT_CMS | c_NAL_FORMAT_OTHER},
        {"another arc", FromHexText("3020 0609 2A864886F70D010901"), 0},
        {"the arc itself", FromHexText("3020 0608 2A864886F70D0107"), 0},
        {"type cut", FromHexText("3020 0609 2A864886F70D01"), 0},
        {"text", FromText("-----BEGIN CMS-----"), 0},
        {"nothing", IdentObj(), 0},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        IdentObj content = FromText("old");
        EXPECT_EQ(NALGetFormatFlags(each.bytes.GetData(), each.bytes.GetSize(), &content), each.flags);
        EXPECT_EQ(content.IsEmpty(), (each.flags & c_NAL_FORMAT_WHOLE) == 0);
        EXPECT_TRUE(content.IsEmpty() || asnt::IsWellFormed(content));
    }
    EXPECT_EQ(NALGetFormatFlags(nullptr, 10, nullptr), 0u);
}

}  // namespace

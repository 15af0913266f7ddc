#include <gtest/gtest.h>

#include <functional>

#include "cms/message_test.h"
#include "nal/signed_data.h"
#include "support/folder_test.h"
#include "too/file.h"
#include "too/status.h"

namespace {

using nal_test::FailureOf;
using nal_test::FromText;
using nal_test::FullMessage;
using nal_test::Hex;
using nal_test::WrapBody;

constexpr char c_idData[] = "06 09 2A864886F70D010701";

// Reads in both forms, and expects of both the same.
class SignDataReading : public nal_test::FolderTest {
protected:
    int Read(const IdentObj& der) {
        Store("message", der);
        int inMemory = -1;
        int inFile = -1;
        const int memoryResult = m_message.ReadObject(der.GetData(), der.GetSize(), &inMemory);
        const int fileResult = m_fromFile.ReadObject(CTOOFile(m_path, "rbc"), 0, &inFile);
        EXPECT_EQ(memoryResult, inMemory == 0);
        EXPECT_EQ(fileResult, inFile == 0);
        EXPECT_EQ(inMemory, inFile) << der;
        return inMemory;
    }

    /// The content as the file form finds it.
    IdentObj FileContent() {
        WhatToSignStruct what;
        CNALSignData message = m_fromFile;
        int err = 0;
        message.DetachData(what, &err);
        EXPECT_EQ(err, 0);
        return {what.data, what.end};
    }

    std::string m_path = Path("message");
    CNALSignData m_message = FullMessage();
    CNALSignData m_fromFile = FullMessage();
};

TEST(SignData, EmptyMessageIsWrittenByteForByte) {
    CNALSignData message;
    EXPECT_EQ(message.WriteObject(nullptr), WrapBody(std::string("31 00 30 0B") + c_idData + "31 00"));
    message.eContent = FromText("hi");
    EXPECT_EQ(message.WriteObject(nullptr), WrapBody(std::string("31 00 30 11") + c_idData + "A0 04 04 02 6869 31 00"));
}

TEST_F(SignDataReading, WhatWasWrittenComesBack) {
    for (const bool attached : {false, true}) {
        CNALSignData message = FullMessage();
        if (attached) message.eContent = FromText("some content");
        message.eContentType = CASNTIdData("1.2.3.4");
        const IdentObj der = message.WriteObject(nullptr);
        EXPECT_EQ(message.GetObjectSize(), der.GetSize());
        ASSERT_EQ(Read(der), 0);
        for (CNALSignData* read : {&m_message, &m_fromFile}) {
            EXPECT_EQ(read->version, 3);
            EXPECT_EQ(read->digestAlgorithms, message.digestAlgorithms);
            EXPECT_EQ(read->eContentType, message.eContentType);
            EXPECT_EQ(read->certificates, message.certificates);
            EXPECT_EQ(read->crls, message.crls);
            EXPECT_EQ(read->GetSigersInfo(nullptr), message.signerInfos);
            EXPECT_EQ(read->IsAttached(), attached);
            EXPECT_EQ(read->WriteObject(nullptr), der);
            EXPECT_EQ(read->GetDataSize(), message.GetDataSize());
        }
        EXPECT_EQ(m_message.eContent, message.eContent);
        EXPECT_TRUE(m_fromFile.eContent.IsEmpty());
        EXPECT_FALSE(m_message.dataSource.IsFile());
        ASSERT_EQ(m_fromFile.dataSource.IsFile(), attached);
        if (attached) {
            EXPECT_EQ(m_fromFile.dataSource.flags, c_NAL_CONTENT_IN_FILE);
            EXPECT_EQ(m_fromFile.dataSource.GetPath(), CTOOString(m_path));
            EXPECT_EQ(FileContent(), message.eContent);
        }
    }
}

TEST_F(SignDataReading, AMessageLiesAtAnOffset) {
    CNALSignData message = FullMessage();
    message.eContent = FromText("content");
    IdentObj file = FromText("ahead of it");
    const unsigned offset = file.GetSize();
    const IdentObj der = message.WriteObject(nullptr);
    file.Append(der.GetData(), der.GetSize());
    file.Append("behind", 6);
    Store("message", file);
    ASSERT_TRUE(m_fromFile.ReadObject(CTOOFile(m_path, "rbc"), offset, nullptr));
    EXPECT_EQ(FileContent(), message.eContent);
    EXPECT_EQ(m_fromFile.WriteObject(nullptr), der);
    int err = 0;
    for (const unsigned beyond : {file.GetSize(), file.GetSize() + 100}) {
        EXPECT_FALSE(m_fromFile.ReadObject(CTOOFile(m_path, "rbc"), beyond, &err));
        EXPECT_EQ(err, TOO_E_NOT_SIGNED_MESSAGE);
    }
}

TEST_F(SignDataReading, DamageIsRefusedEverywhere) {
    CNALSignData message = FullMessage();
    message.eContent = FromText("content");
    message.certificates.pop_back();
    message.crls.pop_front();
    const IdentObj der = message.WriteObject(nullptr);
    // What lies inside certificates and signer infos is not looked at when a message is read.
    std::vector<IdentObj> inputs = nal_test::Damaged(
        WrapBody(std::string("31 0A 30 08 06 06 2A8503020209 30 11") + c_idData + "A0 04 04 02 6869 A0 02 0500 A1 02 0500 31 02 3000"));
    for (unsigned size = 0; size < der.GetSize(); ++size) inputs.emplace_back(der.GetData(), size);
    for (const IdentObj& input : inputs) {
        m_message = m_fromFile = FullMessage();
        const int status = Read(input);
        EXPECT_TRUE(status == TOO_E_NOT_SIGNED_MESSAGE || status == TOO_E_BAD_STRUCTURE) << status << " " << input;
        nal_test::ExpectEmpty(m_message);
        nal_test::ExpectEmpty(m_fromFile);
    }
}

TEST_F(SignDataReading, WrongShapesAreRefused) {
    const std::string info = std::string("30 0B") + c_idData;
    const struct {
        const char* what;
        IdentObj der;
        int status;
    } cases[] = {
        {"nothing", {}, 205},
        {"text", FromText("0 is the first octet of a SEQUENCE"), 206},
        {"other text", FromText("plain text"), 205},
        {"empty SEQUENCE", Hex("3000"), 194},
        {"no identifier", Hex("30 03 020101"), 205},
        {"another content type", Hex(std::string("30 0F") + c_idData + "A0 02 0400"), 205},
        {"type only", Hex("30 0B 06 09 2A864886F70D010702"), 206},
        {"[1] content", Hex("30 0F 06 09 2A864886F70D010702 A1 02 3000"), 206},
        {"no SEQUENCE in it", Hex("30 0F 06 09 2A864886F70D010702 A0 02 3100"), 205},
        {"empty SEQUENCE in it", Hex("30 0F 06 09 2A864886F70D010702 A0 02 3000"), 206},
        {"algorithms no SET", WrapBody("30 00" + info + "31 00"), 205},
        {"algorithm no SEQUENCE", WrapBody("31 02 0500" + info + "31 00"), 206},
        {"content info no SEQUENCE", WrapBody("31 00 31 00 31 00"), 205},
        {"content type no OID", WrapBody("31 00 30 02 0500 31 00"), 206},
        {"content [1]", WrapBody(std::string("31 00 30 11") + c_idData + "A1 04 04 02 6869 31 00"), 205},
        {"empty [0]", WrapBody(std::string("31 00 30 0D") + c_idData + "A0 00 31 00"), 206},
        {"two contents in [0]", WrapBody(std::string("31 00 30 11") + c_idData + "A0 04 0400 0400 31 00"), 206},
        {"two contents", WrapBody(std::string("31 00 30 0F") + c_idData + "0400 0400 31 00"), 205},
        {"no signer infos", WrapBody("31 00" + info), 205},
        {"signer infos twice", WrapBody("31 00" + info + "31 00 31 00"), 205},
        {"certificates twice", WrapBody("31 00" + info + "A0 00 A0 00 31 00"), 205},
        {"certificates behind CRLs", WrapBody("31 00" + info + "A1 00 A0 00 31 00"), 205},
        {"[2]", WrapBody("31 00" + info + "A2 00 31 00"), 205},
        {"[0] primitive", WrapBody("31 00" + info + "80 00 31 00"), 205},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Read(test.der), test.status) << test.what;
        nal_test::ExpectEmpty(m_message);
        nal_test::ExpectEmpty(m_fromFile);
    }
    EXPECT_EQ(FailureOf([&] { m_message.ReadObject(nullptr, 10, nullptr); }), "205 CNALSignData::ReadObject");
}

TEST_F(SignDataReading, ContentIsFoundInEveryForm) {
    const std::string head = std::string("30 80 06 09 2A864886F70D010702 A0 80 30 80 020101 31 00 30 80") + c_idData;
    const std::string tail = "0000 31 00 0000 0000 0000";
    const struct {
        const char* what;
        std::string content, expected;
        bool inPieces;
    } cases[] = {
        {"one piece, indefinite around it", "A0 80 04 02 6869 0000", "hi", false},
        {"bare OCTET STRING", "04 02 6869", "hi", false},
        {"length longer than needed", "A0 80 04 83 000002 6869 0000", "hi", false},
        {"pieces", "A0 80 24 80 04 01 68 04 00 04 81 01 69 0000 0000", "hi", true},
        {"pieces of definite length", "A0 80 24 06 04 01 68 04 01 69 0000", "hi", true},
        {"bare pieces", "24 80 04 01 68 04 01 69 0000", "hi", true},
        {"pieces in pieces", "A0 80 24 80 24 80 04 01 68 24 03 04 01 69 0000 24 00 04 01 21 0000 0000", "hi!", true},
        {"another type inside", "A0 80 30 04 04 02 6869 0000", "\x04\x02hi", false},
        {"no piece at all", "A0 80 24 80 0000 0000", "", true},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        ASSERT_EQ(Read(Hex(head + test.content + tail)), 0);
        EXPECT_EQ(m_message.eContent, FromText(test.expected));
        EXPECT_EQ(m_fromFile.dataSource.flags, test.inPieces ? 3u : 1u);
        EXPECT_EQ(FileContent(), FromText(test.expected));
        // Written again it is DER, in one piece.
        CNALSignData expected;
        expected.eContent = FromText(test.expected);
        if (test.expected.empty()) continue;  // in memory no content is the same as none
        EXPECT_EQ(m_message.WriteObject(nullptr), expected.WriteObject(nullptr));
        EXPECT_EQ(m_fromFile.WriteObject(nullptr), expected.WriteObject(nullptr));
        EXPECT_EQ(m_fromFile.GetObjectSize(), expected.GetObjectSize());
    }
    for (const char* damaged : {
             "A0 80 24 80 04 01 68 04 01 69 0000", "A0 80 24 80 04 01 68 02 01 69 0000 0000",
             "A0 80 24 05 04 01 68 04 01 69 0000", "A0 80 24 07 04 01 68 04 01 69 0000",
             "A0 80 24 80 04 7F 68 04 01 69 0000 0000", "A0 80 24 80 24 04 04 03 6869 0000 0000", "A0 80 30 80 0000 0000",
             "A0 80 24 80 04 80 68 0000 0000 0000", "A0 04 24 80 04 00 0000 0000", "A0 80 24 80 0001 0000 0000",
             "A0 80 24 05 04 01 68 0000 0000"}) {
        const int status = Read(Hex(head + damaged + tail));
        EXPECT_TRUE(status == TOO_E_BAD_STRUCTURE || status == TOO_E_NOT_SIGNED_MESSAGE) << damaged;
        nal_test::ExpectEmpty(m_message);
        nal_test::ExpectEmpty(m_fromFile);
    }
}

TEST_F(SignDataReading, IndefiniteListsOfDerElementsAreTaken) {
    const std::string head = std::string("30 80 06 09 2A864886F70D010702 A0 80 30 80 020101 31 80 0000 30 80") + c_idData;
    ASSERT_EQ(Read(Hex(head + "0000 A0 80 3000 0500 0000 A1 80 0500 0000 31 80 3000 0000 0000 0000 0000")), 0);
    EXPECT_EQ(m_message.certificates, (std::list<IdentObj>{Hex("3000"), Hex("0500")}));
    EXPECT_EQ(m_message.crls, (std::list<IdentObj>{Hex("0500")}));
    EXPECT_EQ(m_message.signerInfos, (std::list<IdentObj>{Hex("3000")}));
    // But the elements must be DER.
    EXPECT_EQ(Read(Hex(head + "0000 A0 80 3080 0000 0000 31 00 0000 0000 0000")), 206);
}

TEST_F(SignDataReading, DepthAndCountsAreBounded) {
    const std::string head = std::string("30 80 06 09 2A864886F70D010702 A0 80 30 80 020101 31 00 30 80") + c_idData;
    for (const auto& [depth, status] : {std::pair(60, 0), std::pair(100, 206), std::pair(20000, 206)}) {
        std::string deep = head + "A0 80";
        for (int i = 0; i < depth; ++i) deep += "2480";
        deep += "04 01 68";
        for (int i = 0; i < depth; ++i) deep += "0000";
        EXPECT_EQ(Read(Hex(deep + "0000 0000 31 00 0000 0000 0000")), status) << depth;
    }
    // A list of the smallest elements that there are takes many times the input; a list of real ones does not.
    for (const auto& [element, status] : {std::pair(IdentObj(Hex("0500")), 12), std::pair(nal_test::BuildCert("x"), 0)}) {
        CNALSignData message;
        for (int i = 0; i < 10000; ++i) message.certificates.push_back(element);
        EXPECT_EQ(Read(message.WriteObject(nullptr)), status);
    }
}

TEST_F(SignDataReading, PartsAreReadAlone) {
    CNALSignData message = FullMessage();
    message.ReadObject_AlgList(Hex("31 0A 30 08 06 06 2A8503020209"));
    EXPECT_EQ(message.digestAlgorithms, std::list{nal_test::Algorithm(c_NAL_OID_HASH_GOST94)});
    message.ReadObject_EncapsContentInfo(Hex("30 0A 06 02 2A03 A0 04 04 02 6869"));
    EXPECT_EQ(message.eContentType.GetID(), "1.2.3");
    EXPECT_EQ(message.eContent, FromText("hi"));
    message.ReadObject_EncapsContentInfo(Hex("30 04 06 02 2A03"));
    EXPECT_FALSE(message.IsAttached());
    message.ReadObject_CertificateSet(Hex("A0 02 3000"));
    EXPECT_EQ(message.certificates, std::list{Hex("3000")});
    message.ReadObject_CRLList(Hex("A1 00"));
    EXPECT_TRUE(message.crls.empty());

    const auto refused = [&](auto member, const char* der, int code) {
        const IdentObj before = message.WriteObject(nullptr);
        EXPECT_EQ(nal_test::StatusOf([&] { (message.*member)(Hex(der)); }), code) << der;
        EXPECT_EQ(message.WriteObject(nullptr), before) << der;
    };
    refused(&CNALSignData::ReadObject_AlgList, "30 00", TOO_E_NOT_SIGNED_MESSAGE);
    refused(&CNALSignData::ReadObject_AlgList, "31 00 00", TOO_E_BAD_STRUCTURE);
    refused(&CNALSignData::ReadObject_EncapsContentInfo, "30 08 06 02 2A03 04 03 6869", TOO_E_BAD_STRUCTURE);
    refused(&CNALSignData::ReadObject_CertificateSet, "A1 02 3000", TOO_E_NOT_SIGNED_MESSAGE);
    refused(&CNALSignData::ReadObject_CRLList, "A1 03 3000", TOO_E_BAD_STRUCTURE);

    const IdentObj der = FullMessage().WriteObject(nullptr);
    CASNTUnit unit(asnt::Rules::Ber);
    ASSERT_EQ(unit.ReadData(der.GetData(), der.GetSize()), der.GetSize());
    message.FillEntry(unit);
    EXPECT_EQ(message.WriteObject(nullptr), der);
    EXPECT_EQ(nal_test::StatusOf([&] { message.FillEntry(CASNTUnit()); }), TOO_E_NOT_SIGNED_MESSAGE);
    nal_test::ExpectEmpty(message);
}

TEST(SignData, WhatIsNoElementCannotBeWritten) {
    const std::function<void(CNALSignData&)> cases[] = {
        [](CNALSignData& message) { message.certificates.emplace_back(); },
        [](CNALSignData& message) { message.certificates.push_back(Hex("3000 00")); },
        [](CNALSignData& message) { message.crls.push_back(Hex("30 05 00")); },
        [](CNALSignData& message) { message.signerInfos.push_back(Hex("30 80 00 00")); },
        [](CNALSignData& message) { message.digestAlgorithms.emplace_back(); },
        [](CNALSignData& message) { message.eContentType = CASNTIdData(); },
        [](CNALSignData& message) { message.contentType.Clear(); },
    };
    for (const auto& spoil : cases) {
        CNALSignData message = FullMessage();
        spoil(message);
        EXPECT_EQ(FailureOf([&] { message.WriteObject(nullptr); }), std::to_string(TOO_E_ENCODE) + " CNALSignData::WriteObject");
    }
}

TEST_F(SignDataReading, AMessageIsReadOverItsOwnBytes) {
    m_message.eContent = FullMessage().WriteObject(nullptr);
    ASSERT_TRUE(m_message.ReadObject(m_message.eContent.GetData(), m_message.eContent.GetSize(), nullptr));
    EXPECT_EQ(m_message.WriteObject(nullptr), FullMessage().WriteObject(nullptr));
}

}  // namespace

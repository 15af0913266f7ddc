#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "cms/message_test.h"
#include "nal/signed_data_helper.h"
#include "support/temp_folder.h"

namespace {

using nal_test::Algorithm;
using nal_test::FromText;
using nal_test::Hex;
using nal_test::StatusOf;

/// The status and the context of what `action` throws, as one text.
template <class Action>
std::string FailureOf(Action&& action) {
    try {
        action();
    } catch (const XTOOStatus& status) {
        return std::to_string(status.GetCode()) + " " + status.GetText().c_str();
    }
    return "";
}

IdentObj CertOf(unsigned char number, const std::string& issuer = "Issuer") {
    nal_test::CertBuilder builder;
    builder.issuer = issuer;
    builder.serial = nal_test::Filled(number, 1);
    builder.subject = "Subject " + std::to_string(number);
    builder.subjectKeyId = nal_test::Filled(number);
    return builder.Build();
}

enum class By { Issuer, KeyId, SubjectWithPrivateHash };

IdentObj SignerOf(unsigned char number, By by = By::Issuer) {
    CNALMessageSignerInfo info = nal_test::SignerByIssuer();
    info.serialNumber = nal_test::Filled(number, 1);
    if (by == By::KeyId) info.subjectKeyIdentifier = nal_test::Filled(number);
    if (by == By::SubjectWithPrivateHash) {
        info.issuer = nal_test::NameDer("Subject " + std::to_string(number));
        info.digestAlgorithm = Algorithm(c_NAL_OID_HASH_PRIVATE);
    }
    return info.WriteData(nullptr);
}

/// Signers 1 and on, each with its certificate, and with one of an authority that nobody signed with.
CNALSignData MessageOf(const std::vector<By>& signers, const IdentObj& content = {}) {
    CNALSignData message;
    message.eContent = content;
    message.digestAlgorithms = {Algorithm(c_NAL_OID_HASH_GOST94)};
    unsigned char number = 0;
    for (const By by : signers) {
        message.signerInfos.push_back(SignerOf(++number, by));
        message.certificates.push_back(CertOf(number));
        if (by == By::SubjectWithPrivateHash) message.digestAlgorithms.push_back(Algorithm(c_NAL_OID_HASH_PRIVATE));
    }
    message.certificates.push_back(CertOf(99, "Root"));
    message.version = SignedDataHelper::GetVersion(message);
    return message;
}

IdentObj Encoded(CNALSignData message) { return message.WriteObject(nullptr); }

TEST(Version, IsTheFirstRuleThatFits) {
    const IdentObj cert = CertOf(1);
    const IdentObj other = Hex("A3 02 0500");
    const IdentObj attribute2 = Hex("A2 02 0500");
    const IdentObj attribute1 = Hex("A1 02 0500");
    const IdentObj crl = nal_test::CrlBuilder().Build();
    const struct {
        std::list<IdentObj> certificates;
        std::list<IdentObj> crls;
        std::list<IdentObj> signers;
        const char* type;
        int version;
    } cases[] = {
        {{}, {}, {}, c_NAL_OID_DATA, 1},
        {{cert}, {crl}, {SignerOf(1)}, c_NAL_OID_DATA, 1},
        {{cert}, {crl}, {SignerOf(1)}, "1.2.3", 3},
        {{cert}, {}, {SignerOf(1), SignerOf(2, By::KeyId)}, c_NAL_OID_DATA, 3},
        {{cert, attribute1}, {}, {}, c_NAL_OID_DATA, 3},
        {{attribute1, attribute2}, {}, {SignerOf(1, By::KeyId)}, c_NAL_OID_DATA, 4},
        {{attribute2, other}, {}, {}, c_NAL_OID_DATA, 5},
        {{attribute2}, {crl, Hex("A1 02 0500")}, {}, c_NAL_OID_DATA, 5},
        {{}, {Hex("A3 02 0500")}, {}, c_NAL_OID_DATA, 1},           // a tag that means something among certificates only
        {{Hex("31 02 0500"), Hex("63 00")}, {}, {}, c_NAL_OID_DATA, 1},  // other classes
        {{IdentObj(), Hex("A3")}, {}, {Hex("30 00")}, c_NAL_OID_DATA, 1},
    };
    for (const auto& item : cases) {
        CNALSignData message;
        message.certificates = item.certificates;
        message.crls = item.crls;
        message.signerInfos = item.signers;
        message.eContentType = CASNTIdData(item.type);
        EXPECT_EQ(SignedDataHelper::GetVersion(message), item.version) << &item - cases;
    }
    EXPECT_TRUE(SignedDataHelper::CheckIfRecordWithSpecifiedTagPresents({cert, Hex("83 01 00")}, 3));  // primitive too
    EXPECT_FALSE(SignedDataHelper::CheckIfRecordWithSpecifiedTagPresents({cert, other}, -1));
}

TEST(Merge, KeepsEachElementOnceAndInOrder) {
    CNALSignData a = MessageOf({By::Issuer, By::Issuer}, FromText("content"));
    CNALSignData b = MessageOf({By::Issuer, By::KeyId, By::SubjectWithPrivateHash});
    a.crls = {Hex("A1 02 0500")};
    b.crls = {nal_test::CrlBuilder().Build(), Hex("A1 02 0500")};
    CNALSignData out;
    SignedDataHelper::Merge(a, b, out);
    EXPECT_EQ(out.certificates, (std::list<IdentObj>{CertOf(1), CertOf(2), CertOf(99, "Root"), CertOf(3)}));
    EXPECT_EQ(out.signerInfos, (std::list<IdentObj>{SignerOf(1), SignerOf(2), SignerOf(2, By::KeyId),
                                                   SignerOf(3, By::SubjectWithPrivateHash)}));
    EXPECT_EQ(out.crls, (std::list<IdentObj>{Hex("A1 02 0500"), nal_test::CrlBuilder().Build()}));
    EXPECT_EQ(out.digestAlgorithms.size(), 2u);
    EXPECT_TRUE(std::is_sorted(out.digestAlgorithms.begin(), out.digestAlgorithms.end()));
    EXPECT_EQ(out.eContent, FromText("content"));
    EXPECT_EQ(out.version, 5);

    SignedDataHelper::Merge(out, out, out);
    CNALSignData same;
    SignedDataHelper::Merge(out, out, same);
    EXPECT_EQ(Encoded(same), Encoded(out));
    SignedDataHelper::Merge(b, a, b);  // the output is an input
    EXPECT_EQ(b.signerInfos.size(), 4u);
    EXPECT_EQ(b.eContent, FromText("content"));
}

class MergedContent : public testing::Test {
protected:
    /// A message whose content is in memory (M), in a file (F), in a file in pieces (P), or not there (D).
    CNALSignData With(char form, const std::string& content) {
        CNALSignData message = MessageOf({By::Issuer});
        if (form == 'D') return message;
        message.eContent = FromText(content);
        if (form == 'M') return message;
        const std::string path = m_folder.File(std::to_string(++m_count));
        IdentObj der = message.WriteObject(nullptr);
        if (form == 'P') {
            // 24 80 04 03 "abc" 04 rest 00 00 in the place of the OCTET STRING.
            std::string pieces = "\x24\x80\x04\x03" + content.substr(0, 3) + "\x04" +
                                 static_cast<char>(content.size() - 3) + content.substr(3) + std::string(2, '\0');
            const IdentObj body = nal_test::WrapBody("31 00 30 80 06 09 2A864886F70D010701 A0 80" +
                                                     nal_test::ToHex(pieces) + "0000 0000 31 00");
            der = body;
        }
        nal_test::WriteFile(path, der.GetData(), der.GetSize());
        CNALSignData inFile;
        EXPECT_TRUE(inFile.ReadObject(CTOOFile(path.c_str(), "rbc"), 0, nullptr));
        return inFile;
    }

    static std::string ContentOf(CNALSignData message) {
        WhatToSignStruct what;
        message.DetachData(what, nullptr);
        return {static_cast<const char*>(what.data), what.end};
    }

    nal_test::TempFolder m_folder;
    int m_count = 0;
};

TEST_F(MergedContent, IsThatOfWhicheverIsAttached) {
    for (const char attached : {'M', 'F', 'P'}) {
        CNALSignData out;
        SignedDataHelper::MergeContent(With('D', ""), With(attached, "content"), out);
        EXPECT_EQ(ContentOf(out), "content");
        SignedDataHelper::MergeContent(With(attached, "content"), With('D', ""), out);
        EXPECT_EQ(ContentOf(out), "content");
    }
    CNALSignData out = With('M', "content");
    SignedDataHelper::MergeContent(With('D', ""), With('D', ""), out);
    EXPECT_FALSE(SignedDataHelper::IsAttached(out));
}

TEST_F(MergedContent, MustBeEqualByteForByte) {
    const struct {
        const char* forms;
        const char* context;
    } cases[] = {{"MM", "MM"}, {"FM", "FM"}, {"MF", "FM"}, {"PM", "FM"}, {"FF", "FF"}, {"PF", "FF"}, {"FP", "FF"}, {"PP", "FF"}};
    for (const auto& item : cases) {
        SCOPED_TRACE(item.forms);
        CNALSignData out;
        SignedDataHelper::MergeContent(With(item.forms[0], "content"), With(item.forms[1], "content"), out);
        EXPECT_EQ(ContentOf(out), "content");
        const std::string failure = std::string("131 SignedDataHelper::MergeContent ") + item.context;
        for (const char* other : {"contenT", "contents", "conten", "Content"}) {
            out = With('M', "before");
            const auto merge = [&] {
                SignedDataHelper::Merge(With(item.forms[0], "content"), With(item.forms[1], other), out);
            };
            EXPECT_EQ(FailureOf(merge), failure) << other;
            EXPECT_EQ(out.eContent, FromText("before"));
        }
    }
}

TEST_F(MergedContent, OfAnotherTypeIsRefused) {
    CNALSignData a = With('M', "content");
    a.eContentType = CASNTIdData("1.2.3");
    CNALSignData out;
    EXPECT_EQ(FailureOf([&] { SignedDataHelper::Merge(a, With('M', "content"), out); }), "131 SignedDataHelper::Merge");
}

TEST_F(MergedContent, OfAFileIsReadByItsName) {
    const std::string path = m_folder.File("file");
    std::string bytes(600000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
    nal_test::WriteFile(path, bytes);
    WhatToSignStruct region;
    region.flags = c_NAL_CONTENT_IN_FILE;
    region.data = "no such file";
    region.start = 5;
    region.end = c_NAL_TO_END_OF_FILE;
    const CTOOString name(path.c_str());
    EXPECT_TRUE(SignedDataHelper::CompareFileAgainstMemory(FromText(bytes.substr(5)), region, name));
    EXPECT_TRUE(SignedDataHelper::CompareFileAgainstFile(region, name, region, name));
    bytes.back() ^= 1;
    EXPECT_FALSE(SignedDataHelper::CompareFileAgainstMemory(FromText(bytes.substr(5)), region, name));
    EXPECT_EQ(FailureOf([&] { SignedDataHelper::CompareFileAgainstMemory({}, region, {}); }), "4 no such file");
    region.start = 600001;
    EXPECT_EQ(FailureOf([&] { SignedDataHelper::CompareFileAgainstFile(region, name, region, name); }),
              "37 SignedDataHelper::CompareFileAgainstFile");
}

TEST(TakingApart, TrimsWhatNoSignerNeeds) {
    const CNALSignData in = MessageOf({By::Issuer, By::KeyId, By::SubjectWithPrivateHash}, FromText("content"));
    for (int index = 0; index < 3; ++index) {
        CNALSignData one;
        SignedDataHelper::ExtractSignature(in, index, one);
        ASSERT_EQ(one.signerInfos, (std::list<IdentObj>{*std::next(in.signerInfos.begin(), index)}));
        EXPECT_EQ(one.certificates, (std::list<IdentObj>{CertOf(static_cast<unsigned char>(index + 1))}));
        ASSERT_EQ(one.digestAlgorithms.size(), 1u);
        EXPECT_EQ(one.digestAlgorithms.front().Is(c_NAL_OID_HASH_PRIVATE), index == 2);
        EXPECT_EQ(one.version, index == 1 ? 3 : 1);
        EXPECT_EQ(one.eContent, in.eContent);

        CNALSignData rest = in;
        SignedDataHelper::DeleteSignature(rest, index, rest);
        EXPECT_EQ(rest.signerInfos.size(), 2u);
        EXPECT_EQ(std::count(rest.signerInfos.begin(), rest.signerInfos.end(), one.signerInfos.front()), 0);
        EXPECT_EQ(rest.certificates.size(), 2u);
        EXPECT_EQ(rest.version, index == 1 ? 1 : 3);

        CNALSignData whole;
        SignedDataHelper::Merge(one, rest, whole);
        EXPECT_EQ(whole.signerInfos.size(), 3u);
    }
    CNALSignData only;
    SignedDataHelper::ExtractSignature(in, 1, only);
    CNALSignData again;
    SignedDataHelper::ExtractSignature(only, 0, again);
    EXPECT_EQ(Encoded(again), Encoded(only));
    SignedDataHelper::DeleteSignature(only, 0, only);
    EXPECT_TRUE(only.signerInfos.empty() && only.certificates.empty() && only.digestAlgorithms.empty());
}

TEST(TakingApart, KeepsEveryCertificateThatASignerNames) {
    CNALSignData message;
    for (int i = 0; i < 3; ++i) message.signerInfos.push_back(SignerOf(static_cast<unsigned char>(i + 1), By::KeyId));
    nal_test::CertBuilder renewed;
    renewed.serial = nal_test::Filled(77, 1);
    renewed.subjectKeyId = nal_test::Filled(2);
    message.certificates = {CertOf(4), renewed.Build(), CertOf(2), Hex("A1 02 0500"), Hex("30 03 020101"), CertOf(1)};
    SignedDataHelper::Shrink(message);
    EXPECT_EQ(message.certificates, (std::list<IdentObj>{renewed.Build(), CertOf(2), CertOf(1)}));
}

TEST(TakingApart, RefusesIndicesAndWhatDoesNotDecode) {
    CNALSignData in = MessageOf({By::Issuer, By::KeyId});
    const IdentObj before = Encoded(in);
    for (const int index : {-1, 2, 1 << 30}) {
        EXPECT_EQ(FailureOf([&] { SignedDataHelper::ExtractSignature(in, index, in); }),
                  "37 SignedDataHelper::ExtractSignature signerInfoIndex");
        EXPECT_EQ(FailureOf([&] { SignedDataHelper::DeleteSignature(in, index, in); }),
                  "37 SignedDataHelper::DeleteSignature signerInfoIndex");
        EXPECT_EQ(FailureOf([&] { SignedDataHelper::RemoveUnsignedAttribute(in, index, 0); }),
                  "37 SignedDataHelper::RemoveUnsignedAttribute signerInfoIndex");
        EXPECT_EQ(FailureOf([&] { SignedDataHelper::RemoveUnsignedAttribute(in, 0, index); }),
                  "37 SignedDataHelper::RemoveUnsignedAttribute unsignedAttributeIndex");
    }
    EXPECT_EQ(Encoded(in), before);
    in.signerInfos.push_back(Hex("30 03 020101"));
    const IdentObj damaged = Encoded(in);
    EXPECT_EQ(StatusOf([&] { SignedDataHelper::DeleteSignature(in, 0, in); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(StatusOf([&] { SignedDataHelper::RemoveUnsignedAttribute(in, 2, 0); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(StatusOf([&] { SignedDataHelper::Shrink(in); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(Encoded(in), damaged);
    SignedDataHelper::DeleteSignature(in, 2, in);
    EXPECT_EQ(in.signerInfos.size(), 2u);
}

TEST(UnsignedAttribute, IsTakenOutAlone) {
    CNALMessageSignerInfo info = nal_test::SignerByIssuer();
    for (const char* oid : {"1.2.3", "1.2.4", "1.2.3"}) info.unsignedAttrs.Add(oid, Hex("0500"));
    CNALSignData message = MessageOf({By::Issuer, By::Issuer});
    message.signerInfos.push_back(info.WriteData(nullptr));
    SignedDataHelper::RemoveUnsignedAttribute(message, 2, 2);
    SignedDataHelper::RemoveUnsignedAttribute(message, 2, 0);
    CNALMessageSignerInfo left;
    left.ReadData(message.signerInfos.back().GetData(), message.signerInfos.back().GetSize(), nullptr);
    ASSERT_EQ(left.unsignedAttrs.size(), 1u);
    EXPECT_TRUE(left.unsignedAttrs[0].HasOID("1.2.4"));
    EXPECT_EQ(left.signedAttrs, info.signedAttrs);
    EXPECT_EQ(left.signature, info.signature);
    SignedDataHelper::RemoveUnsignedAttribute(message, 2, 0);
    EXPECT_EQ(message.signerInfos.back(), nal_test::SignerByIssuer().WriteData(nullptr));
    EXPECT_EQ(message.signerInfos.front(), SignerOf(1));
}

}  // namespace

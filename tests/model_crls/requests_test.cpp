#include "nal/pkcs10.h"

#include <string>
#include <vector>

#include "model_crls/model_test.h"

namespace {

using nal_test::FromHexText;
using nal_test::kAlgorithm;
using nal_test::kName;
using nal_test::kSignature;
using nal_test::StatusOf;
using nal_test::Wrap;

// A key of an algorithm that nobody knows: the codec does not ask.
constexpr char kKey[] = "300C 3004 0602 2A03 0304 00 ABCDEF";
constexpr char kExtensionRequest[] = "301D 0609 2A864886F70D01090E 3110 300E 300C 0603 551D0F 0405 0303 07 8000";

/// A SEQUENCE of these elements, in hexadecimal.
IdentObj Sequence(const std::vector<std::string>& parts, asnt::Tag tag = asnt::tag::Sequence) {
    std::vector<IdentObj> elements;
    for (const std::string& part : parts) elements.push_back(FromHexText(part));
    return Wrap(tag, elements);
}

CNALPKCS10Data ReadContent(const IdentObj& der) {
    CNALPKCS10Data data;
    EXPECT_EQ(data.ReadData(der.GetData(), der.GetSize()), der.GetSize());
    return data;
}

CNALPKCS10Request ReadRequest(const IdentObj& der) {
    CNALPKCS10Request request;
    request.ReadData(der.GetData(), der.GetSize());
    return request;
}

CNALCertExtensionList KeyUsage(unsigned flags) {
    CNALCertExtensionList list;
    list.Add(CNALKeyUsage(flags).ToExtension(c_NAL_OID_KEY_USAGE, true));
    return list;
}

CNALSecondSignature MakeSecondSignature() {
    CNALSecondSignature second;
    second.m_issuer = FromHexText(kName);
    second.m_serialNumber = FromHexText("0201");
    second.m_keyIdentifier = FromHexText("AABB");
    second.m_algorithm.m_algorithm = IdentObj("1.2.643.2.2.3", 13);
    second.m_signature = CTOOCryptBitBlob(FromHexText("ABCD"));
    return second;
}

TEST(Request, GivesFieldsAndWritesWhatItRead) {
    const IdentObj content = Sequence({"020100", kName, kKey, "A000"});
    const IdentObj der = Wrap(asnt::tag::Sequence, {content, FromHexText(kAlgorithm), FromHexText(kSignature)});
    IdentObj padded = der;
    padded.Append("behind", 6);
    CNALPKCS10Request request;
    EXPECT_EQ(request.ReadData(padded.GetData(), padded.GetSize()), der.GetSize());
    EXPECT_EQ(request.WriteData(), der);
    EXPECT_EQ(request.GetObjectSize(), der.GetSize());
    EXPECT_EQ(request.GetEnvelope().m_data, content);
    EXPECT_EQ(request.GetEnvelope().m_algorithm.GetID(), "1.2.643.2.2.3");
    EXPECT_EQ(static_cast<const IdentObj&>(request.GetData().m_subject), FromHexText(kName));
    EXPECT_EQ(request.GetData().m_publicKey.m_publicKey.m_data, FromHexText("ABCDEF"));
    EXPECT_EQ(request.GetData().WriteData(), content);

    EXPECT_EQ(nal_test::CountAcceptedBeginnings(der, [](const IdentObj& cut) { ReadRequest(cut); }), 0u);
    EXPECT_EQ(StatusOf([&] { request.ReadData("0", 1); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(request.ReadData(nullptr, 1), 0u);
    EXPECT_EQ(request.WriteData(), der) << "a refused request changes nothing";
    EXPECT_EQ(StatusOf([] { CNALPKCS10Request().WriteData(); }), TOO_E_NOT_INITIALIZED);
}

TEST(Request, AcceptsAndRefusesShapes) {
    const struct {
        const char* what;
        std::vector<std::string> parts;
        bool accepted;
    } cases[] = {
        {"no attributes", {"020100", kName, kKey}, true},
        {"an empty subject", {"020100", "3000", kKey, "A000"}, true},
        {"attributes", {"020100", kName, kKey, std::string("A01F") + kExtensionRequest}, true},
        {"version 2", {"020101", kName, kKey, "A000"}, false},
        {"no version", {kName, kKey, "A000"}, false},
        {"no subject", {"020100", kKey, "A000"}, false},
        {"no key", {"020100", kName, "A000"}, false},
        {"attributes under another tag", {"020100", kName, kKey, "A100"}, false},
        {"attributes as a set", {"020100", kName, kKey, "3100"}, false},
        {"attributes twice", {"020100", kName, kKey, "A000", "A000"}, false},
        {"a damaged attribute", {"020100", kName, kKey, "A002 0500"}, false},
    };
    for (const auto& c : cases) {
        const IdentObj der = Wrap(asnt::tag::Sequence, {Sequence(c.parts), FromHexText(kAlgorithm), FromHexText(kSignature)});
        EXPECT_EQ(StatusOf([&] { ReadRequest(der); }), c.accepted ? TOO_OK : TOO_E_BAD_STRUCTURE) << c.what;
    }
}

TEST(Request, CarriesExtensions) {
    CNALPKCS10Data data = ReadContent(Sequence({"020100", kName, kKey, std::string("A01F") + kExtensionRequest}));
    CNALKeyUsage usage;
    ASSERT_TRUE(usage.ReadFrom(data.GetExtensions(), c_NAL_OID_KEY_USAGE));
    EXPECT_EQ(usage.GetFlags(), static_cast<unsigned>(CNALKeyUsage::DigitalSignature));

    data.m_attributes.Add("1.2.3", FromHexText("0500"));
    data.SetExtensions(KeyUsage(CNALKeyUsage::KeyCertSign));
    ASSERT_EQ(data.m_attributes.size(), 2u);
    ASSERT_TRUE(usage.ReadFrom(ReadContent(data.WriteData()).GetExtensions(), c_NAL_OID_KEY_USAGE));
    EXPECT_EQ(usage.GetFlags(), static_cast<unsigned>(CNALKeyUsage::KeyCertSign));
    data.SetExtensions({});
    EXPECT_EQ(data.m_attributes.size(), 1u);
    EXPECT_TRUE(data.GetExtensions().empty());

    data.m_attributes.Add(c_NAL_OID_EXTENSION_REQUEST, FromHexText("3000"));
    EXPECT_TRUE(data.GetExtensions().empty());
    data.m_attributes.Add(c_NAL_OID_EXTENSION_REQUEST, FromHexText("3000"));
    EXPECT_EQ(StatusOf([&] { data.GetExtensions(); }), TOO_E_BAD_STRUCTURE) << "repeated";
    data.m_attributes.Clear();
    data.m_attributes.Add(c_NAL_OID_EXTENSION_REQUEST, FromHexText("0500"));
    EXPECT_EQ(StatusOf([&] { data.GetExtensions(); }), TOO_E_BAD_STRUCTURE) << "no list";
}

TEST(SecondSignature, IsReadTakenOutAndRefused) {
    const CNALSecondSignature second = MakeSecondSignature();
    const IdentObj der = second.WriteData();
    EXPECT_EQ(der, FromHexText(std::string("302A 3015") + kName + "02020102 0402AABB" + kAlgorithm + kSignature));
    EXPECT_EQ(nal_test::CountAcceptedBeginnings(der, [](const IdentObj& cut) {
                  CNALSecondSignature read;
                  read.ReadData(cut.GetData(), cut.GetSize());
              }), 0u);

    CNALPKCS10Data data = ReadContent(Sequence({"020100", kName, kKey, std::string("A01F") + kExtensionRequest}));
    const IdentObj without = data.WriteData();
    CNALSecondSignature read;
    EXPECT_FALSE(data.GetSecondSignature(read));
    EXPECT_FALSE(data.TakeSecondSignature(read));

    data.m_attributes.Add(c_NAL_OID_SECOND_SIGNATURE, der);
    CNALPKCS10Data received = ReadContent(data.WriteData());
    ASSERT_TRUE(received.TakeSecondSignature(read));
    EXPECT_EQ(read.WriteData(), der);
    EXPECT_EQ(read.m_serialNumber, second.m_serialNumber);
    EXPECT_EQ(received.WriteData(), without) << "what is left encodes as it was signed";

    CNALSecondSignature padded = second;
    padded.m_serialNumber = FromHexText("0100");  // DER would leave the last octet out; certificates have such serials
    const IdentObj paddedDer = padded.WriteData();
    EXPECT_EQ(read.ReadData(paddedDer.GetData(), paddedDer.GetSize()), paddedDer.GetSize());
    EXPECT_EQ(read.m_serialNumber, padded.m_serialNumber);

    data.m_attributes.Add(c_NAL_OID_SECOND_SIGNATURE, der);
    EXPECT_EQ(StatusOf([&] { data.GetSecondSignature(read); }), TOO_E_BAD_STRUCTURE) << "repeated";
    data.m_attributes.Remove(c_NAL_OID_SECOND_SIGNATURE);
    data.m_attributes.Add(c_NAL_OID_SECOND_SIGNATURE, FromHexText("0500"));
    EXPECT_EQ(StatusOf([&] { data.TakeSecondSignature(read); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(data.m_attributes.size(), 2u) << "what cannot be read stays";
}

TEST(SignedEnvelope, ReadsWritesAndReports) {
    const IdentObj der = Sequence({"3003 020101", kAlgorithm, kSignature});
    CNALSignedData envelope;
    int err = -1;
    EXPECT_EQ(envelope.ReadData(der.GetData(), der.GetSize(), &err), der.GetSize());
    EXPECT_EQ(err, TOO_OK);
    EXPECT_EQ(envelope.m_data, FromHexText("3003 020101"));
    EXPECT_EQ(envelope.m_signature.m_data, FromHexText("ABCD"));
    EXPECT_EQ(envelope.WriteData(&err), der);

    const std::vector<IdentObj> bad = {
        Sequence({"3000", kAlgorithm}),
        Sequence({"3000", kAlgorithm, kSignature, "0500"}),
        Sequence({"3000", kAlgorithm, "0402 ABCD"}),
        Sequence({"3000", kAlgorithm, "0302 09FF"}),
        Sequence({"3000", kAlgorithm, kSignature}, asnt::tag::Set),
        IdentObj(),
    };
    for (const IdentObj& input : bad) {
        EXPECT_EQ(StatusOf([&] { envelope.ReadData(input.GetData(), input.GetSize(), nullptr); }), TOO_E_BAD_STRUCTURE) << input;
    }
    EXPECT_EQ(envelope.WriteData(&err), der) << "a refused envelope changes nothing";
    EXPECT_TRUE(CNALSignedData().WriteData(&err).IsEmpty());
    EXPECT_EQ(err, TOO_E_NOT_INITIALIZED);
}

}  // namespace

// Certificates: what is read, what is refused, and how they compare.
#include "nal/certificate.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "model/certificate_fields.h"
#include "model/integer_order.h"
#include "nal/pkcs10.h"
#include "support/certificate_parts.h"
#include "support/hex.h"
#include "support/status_of.h"
#include "support/temp_folder.h"
#include "too/time.h"

namespace {

using nal_test::CertificateParts;
using nal_test::Der;
using nal_test::FromHexText;
using nal_test::StatusOf;

CNALX509Certificate Decoded(const IdentObj& der) {
    CNALX509Certificate certificate;
    EXPECT_EQ(certificate.ReadEncodetData(der.GetData(), der.GetSize()), der.GetSize());
    return certificate;
}

std::string TimeText(const FILETIME& time) {
    return CTOODateTime(CTOOFileTime(time)).ToString().str();
}

// What both ways of reading say of a certificate; they must agree on its structure.
int StatusOfCertificate(const IdentObj& der) {
    CNALX509Certificate certificate = Decoded(CertificateParts().Encode());
    const CNALX509Certificate before = certificate;
    const int status = StatusOf([&] { certificate.DecodeCert(der); });
    EXPECT_TRUE(status == TOO_OK || certificate == before);
    nal::CertificateFields fields;
    EXPECT_TRUE(nal::StepOverCertificate(der, fields) || status == TOO_E_BAD_STRUCTURE);
    return status;
}

}  // namespace

TEST(Certificate, FieldsAreRead) {
    const CertificateParts parts;
    const IdentObj der = parts.Encode();
    const CNALX509Certificate certificate = Decoded(der);
    const CNALCertInfo& info = certificate.m_info;

    EXPECT_EQ(info.m_state, 3u);
    EXPECT_EQ(info.m_stateDetail, 0u);
    EXPECT_EQ(info.m_encodedCertificate, der);
    EXPECT_EQ(info.m_version, DWORD{CERT_V3});
    EXPECT_EQ(info.m_serialNumber, FromHexText("070605040302f100"));
    EXPECT_EQ(info.m_signatureAlgorithm.GetID(), "1.2.643.2.2.3");
    EXPECT_EQ(info.m_issuer, CNALX509Name(parts.issuer));
    EXPECT_EQ(static_cast<const IdentObj&>(info.m_subject), parts.subject);
    EXPECT_EQ(TimeText(info.m_notBefore), "2026-01-01 00:00:00");
    EXPECT_EQ(TimeText(info.m_notAfter), "2051-01-01 00:00:00");
    EXPECT_EQ(info.m_publicKeyInfo.WriteData(), parts.publicKeyInfo);
    EXPECT_EQ(info.m_extensions.size(), 1u);
    EXPECT_EQ(info.GetPrivateKeyType(), 0xFFFFFFFFu);
    EXPECT_EQ(info.GetObjectSize(), der.GetSize());

    EXPECT_EQ(certificate.m_signedPart, parts.EncodeTbs());
    EXPECT_EQ(certificate.m_signatureAlgorithm.GetID(), "1.2.643.2.2.3");
    // The BIT STRING as encoded; turned only for the provider.
    ASSERT_EQ(certificate.m_signature.m_data.GetSize(), 64u);
    EXPECT_EQ(certificate.m_signature.m_data.GetData()[0], 0x80);
    EXPECT_EQ(nal::ToProviderOrder(certificate.m_signature.m_data).GetData()[0], 0xBF);
    EXPECT_TRUE(certificate.GetEncodetCert().IsEmpty());
}

TEST(Certificate, OptionalFields) {
    CertificateParts parts;
    // Unique identifiers, a field that nobody knows, then the extensions.
    parts.optional = FromHexText("8102 05a0 8203 00bbcc a400 0500" + nal_test::ToHex(parts.optional.GetData(), parts.optional.GetSize()));
    const CNALCertInfo info = Decoded(parts.Encode()).m_info;
    EXPECT_EQ(info.m_issuerUniqueId, CTOOCryptBitBlob(FromHexText("a0"), 5));
    EXPECT_EQ(info.m_subjectUniqueId, CTOOCryptBitBlob(FromHexText("bbcc"), 0));
    EXPECT_EQ(info.m_extensions.size(), 1u);

    // Version 1 is read when something follows the public key.
    parts.version.Clear();
    EXPECT_EQ(Decoded(parts.Encode()).m_info.m_version, DWORD{CERT_V1});
    parts.version = FromHexText("a003020100");
    parts.optional.Clear();
    EXPECT_EQ(Decoded(parts.Encode()).m_info.m_extensions.size(), 0u);
}

TEST(Certificate, DamagedPartsAreRefused) {
    using Parts = CertificateParts;
    const IdentObj null = FromHexText("0500");
    const struct {
        const char* what;
        std::function<void(Parts&)> damage;
    } cases[] = {
        {"version 1 without version field", [](Parts& p) { p.version.Clear(), p.optional.Clear(); }},
        {"version that is no INTEGER", [](Parts& p) { p.version = FromHexText("a003040102"); }},
        {"version with something behind it", [](Parts& p) { p.version = FromHexText("a0050201020500"); }},
        {"empty version", [](Parts& p) { p.version = FromHexText("a000"); }},
        {"negative version", [](Parts& p) { p.version = FromHexText("a0030201ff"); }},
        {"huge version", [](Parts& p) { p.version = FromHexText("a00702050100000000"); }},
        {"serial number of another type", [](Parts& p) { p.serial = FromHexText("040101"); }},
        {"empty serial number", [](Parts& p) { p.serial = FromHexText("0200"); }},
        {"no serial number", [](Parts& p) { p.serial.Clear(); }},
        {"algorithm that is no SEQUENCE", [&](Parts& p) { p.innerAlgorithm = null; }},
        {"issuer that is no SEQUENCE", [&](Parts& p) { p.issuer = null; }},
        {"validity of one time", [](Parts& p) { p.validity = FromHexText("300f170d3236303130313030303030305a"); }},
        {"validity of three times", [](Parts& p) { p.validity.Append(p.validity.GetData() + 2, 15), p.validity.GetData()[1] += 15; }},
        {"time of another type", [](Parts& p) { p.validity.GetData()[17] = 0x04; }},
        {"no such month", [](Parts& p) { p.validity.GetData()[6] = '9'; }},
        {"public key that is none", [](Parts& p) { p.publicKeyInfo = FromHexText("3000"); }},
        {"public key without key", [](Parts& p) { p.publicKeyInfo = FromHexText("3008300606042a850302"); }},
        {"unique identifier of one byte", [](Parts& p) { p.optional = FromHexText("810100"); }},
        {"unique identifier twice", [](Parts& p) { p.optional = FromHexText("810200aa" "810200aa"); }},
        {"nine unused bits", [](Parts& p) { p.optional = FromHexText("810209aa"); }},
        {"extensions twice", [](Parts& p) { p.optional.Append(IdentObj(p.optional).GetData(), p.optional.GetSize()); }},
        {"extensions that are no SEQUENCE", [](Parts& p) { p.optional = FromHexText("a30431020500"); }},
        {"something behind the extensions", [](Parts& p) { p.optional = FromHexText("a30430000500"); }},
        {"extension that is none", [](Parts& p) { p.optional = FromHexText("a30430020500"); }},
        {"no outer algorithm", [](Parts& p) { p.outerAlgorithm.Clear(); }},
        {"outer algorithm without OID", [](Parts& p) { p.outerAlgorithm = FromHexText("300404022a03"); }},
        {"signature of another type", [](Parts& p) { p.signature = FromHexText("04020001"); }},
        {"signature without its first octet", [](Parts& p) { p.signature = FromHexText("0300"); }},
        {"something behind the signature", [](Parts& p) { p.signature.Append("\x05\x00", 2); }},
    };
    ASSERT_EQ(StatusOfCertificate(Parts().Encode()), TOO_OK);
    for (const auto& c : cases) {
        Parts parts;
        c.damage(parts);
        EXPECT_EQ(StatusOfCertificate(parts.Encode()), TOO_E_BAD_STRUCTURE) << c.what;
    }
    IdentObj longer = Parts().Encode();
    longer.Append("", 1);
    EXPECT_EQ(StatusOfCertificate(longer), TOO_E_BAD_STRUCTURE);
}

// Every length, and every byte changed in a few ways: never anything but a decoded certificate or the one status.
TEST(Certificate, CutAndChangedBytes) {
    const IdentObj der = nal_test::TypicalCertificate();
    for (unsigned size = 0; size < der.GetSize(); ++size) {
        ASSERT_EQ(StatusOfCertificate(IdentObj(der.GetData(), size)), TOO_E_BAD_STRUCTURE) << size;
        CNALX509Certificate certificate;
        EXPECT_EQ(certificate.ReadEncodetData(der.GetData(), size), 0u);
    }
    for (unsigned offset = 0; offset < der.GetSize(); ++offset) {
        for (const unsigned char byte : {0x00, 0x30, 0x7F, 0x80, 0xFF}) {
            IdentObj changed = der;
            changed.GetData()[offset] = byte;
            const int status = StatusOfCertificate(changed);
            ASSERT_TRUE(status == TOO_OK || status == TOO_E_BAD_STRUCTURE) << offset << ": " << status;
        }
    }
}

TEST(Certificate, MillionsOfExtensions) {
    constexpr unsigned c_count = 1000000;
    const IdentObj one = FromHexText("300506012a0400");
    IdentObj list;
    list.SetSize(c_count * one.GetSize());
    for (unsigned i = 0; i < c_count; ++i) std::copy_n(one.GetData(), one.GetSize(), list.GetData() + i * one.GetSize());
    CertificateParts parts;
    parts.optional = Der([&](auto& writer) { writer.Context(3, [&] { writer.Sequence([&] { writer.Raw(list); }); }); });
    CNALX509Certificate certificate;
    ASSERT_TRUE(certificate.DecodeCert(parts.Encode()));
    EXPECT_EQ(certificate.m_info.m_extensions.size(), c_count);
    EXPECT_EQ(certificate.m_info.m_extensions.FindExtension("2.5.29.14"), nullptr);

    // Extensions without anything inside are refused at the first one.
    for (unsigned i = 0; i + 1 < list.GetSize(); i += 2) list.GetData()[i] = 0x30, list.GetData()[i + 1] = 0;
    parts.optional = Der([&](auto& writer) { writer.Context(3, [&] { writer.Sequence([&] { writer.Raw(list); }); }); });
    EXPECT_EQ(StatusOf([&] { certificate.DecodeCert(parts.Encode()); }), TOO_E_BAD_STRUCTURE);
}

TEST(Certificate, WritesWhatItRead) {
    const IdentObj der = CertificateParts().Encode();
    IdentObj serialized;
    serialized.SetSize(der.GetObjectSize());
    der.WriteData(serialized.GetData(), serialized.GetSize());

    for (const IdentObj& form : {der, serialized}) {
        IdentObj input = form;
        input.Append("behind", 6);
        CNALX509Certificate certificate;
        ASSERT_EQ(certificate.ReadEncodetData(input.GetData(), input.GetSize()), form.GetSize());
        EXPECT_EQ(certificate.m_encodedCertificate, der);

        IdentObj out;
        out.SetSize(form.GetSize());
        EXPECT_EQ(certificate.WriteEncodetData(out.GetData(), form.GetSize() - 1), 0u);
        EXPECT_EQ(certificate.WriteEncodetData(out.GetData(), 0xFFFFFFFF), form.GetSize());
        EXPECT_EQ(out, form);

        const nal_test::TempFolder folder;
        const CTOOString path(folder.File("certificate"));
        {
            CTOOFile file(path, "wb");
            EXPECT_EQ(certificate.WriteEncodetData(file, form.GetSize() - 1), 0u);
            EXPECT_EQ(certificate.WriteEncodetData(file, form.GetSize()), form.GetSize());
            file.Write("behind", 6);
        }
        CTOOFile file(path, "rb");
        CNALX509Certificate read;
        EXPECT_EQ(read.ReadEncodetData(file, 0xFFFFFFFF), form.GetSize());
        EXPECT_EQ(read, certificate);
        EXPECT_EQ(file.Tell(), form.GetSize());
        EXPECT_EQ(read.ReadEncodetData(file, 0xFFFFFFFF), 0u);
        EXPECT_EQ(file.Tell(), form.GetSize());
    }
    unsigned char room[4];
    EXPECT_EQ(CNALX509Certificate().WriteEncodetData(room, sizeof(room)), 0u);
    CNALX509Certificate certificate;
    EXPECT_EQ(certificate.ReadEncodetData(nullptr, 10), 0u);
    EXPECT_EQ(certificate.ReadEncodetData("\x01\x00\x00\x00\x30", 5), 0u);
}

TEST(CertInfo, Comparisons) {
    const CNALCertInfo info = Decoded(CertificateParts().Encode()).m_info;
    const std::function<void(CNALCertInfo&)> changes[] = {
        [](CNALCertInfo& i) { i.m_version = 1; },
        [](CNALCertInfo& i) { i.m_serialNumber = FromHexText("01"); },
        [](CNALCertInfo& i) { i.m_signatureAlgorithm.m_parameters = FromHexText("0500"); },
        [](CNALCertInfo& i) { i.m_issuer = nal_test::CommonName("Other"); },
        [](CNALCertInfo& i) { i.m_subject = nal_test::CommonName("Other"); },
        [](CNALCertInfo& i) { i.m_notBefore.dwLowDateTime += 1; },
        [](CNALCertInfo& i) { i.m_notAfter.dwHighDateTime += 1; },
        [](CNALCertInfo& i) { i.m_publicKeyInfo.m_publicKey.m_unusedBits = 1; },
        [](CNALCertInfo& i) { i.m_issuerUniqueId.m_unusedBits = 1; },
        [](CNALCertInfo& i) { i.m_subjectUniqueId.m_unusedBits = 1; },
        [](CNALCertInfo& i) { i.m_extensions.Add({"1.2.3", false, {}}); },
        [](CNALCertInfo& i) { i.SetPrivateKeyType(1); },
    };
    for (const auto& change : changes) {
        CNALCertInfo other = info;
        change(other);
        EXPECT_TRUE(info != other && !(info == other) && !(info < other) && !(info > other)) << &change - changes;
    }
    CNALCertInfo same = info;
    same.m_encodedCertificate.Clear();
    same.m_state = 1;
    same.m_friendlyName = L"mine";
    EXPECT_EQ(info, same);

    // The bytes of a name do not count in equality, its attributes do.
    CertificateParts printable;
    printable.issuer.GetData()[11] = 0x13;
    EXPECT_EQ(Decoded(printable.Encode()).m_info, info);

    // Only the signature differs: two certificates are not equal, and not "unequal" either.
    const CNALX509Certificate certificate = Decoded(CertificateParts().Encode());
    CertificateParts otherSignature;
    otherSignature.signature = FromHexText("030200ff");
    const CNALX509Certificate other = Decoded(otherSignature.Encode());
    EXPECT_TRUE(!(certificate == other) && !(certificate != other));

    // "Less" asks it of every field.
    CNALCertInfo low, high;
    low.m_privateKeyType = 1;
    high.m_version = 1;
    high.m_serialNumber = high.m_signatureAlgorithm.m_algorithm = FromHexText("01");
    high.m_issuer = high.m_subject = FromHexText("01");
    high.m_publicKeyInfo.m_algorithm.m_algorithm = high.m_publicKeyInfo.m_publicKey.m_data = FromHexText("01");
    high.m_issuerUniqueId.m_data = FromHexText("01");
    EXPECT_FALSE(low < high);
    high.m_subjectUniqueId.m_data = FromHexText("01");
    EXPECT_TRUE(low < high && high > low);
}

TEST(CertInfo, FromCryptoApiRecords) {
    const CertificateParts parts;
    const IdentObj der = parts.Encode();
    CNALCertInfo expected = Decoded(der).m_info;

    IdentObj serial = expected.m_serialNumber, issuer = parts.issuer, subject = parts.subject;
    IdentObj key = expected.m_publicKeyInfo.m_publicKey.m_data, value = expected.m_extensions[0].m_value;
    IdentObj keyParameters = expected.m_publicKeyInfo.m_algorithm.m_parameters, id = FromHexText("aa");
    std::string signOid = "1.2.643.2.2.3", keyOid = "1.2.643.2.2.19", extensionOid = "2.5.29.14";
    auto blob = [](IdentObj& bytes) { return CRYPTOAPI_BLOB{bytes.GetSize(), bytes.GetData()}; };
    CERT_EXTENSION extension{extensionOid.data(), FALSE, blob(value)};
    CERT_INFO info{};
    info.dwVersion = CERT_V3;
    info.SerialNumber = blob(serial);
    info.SignatureAlgorithm.pszObjId = signOid.data();
    info.Issuer = blob(issuer);
    info.NotBefore = expected.m_notBefore;
    info.NotAfter = expected.m_notAfter;
    info.Subject = blob(subject);
    info.SubjectPublicKeyInfo.Algorithm = {keyOid.data(), blob(keyParameters)};
    info.SubjectPublicKeyInfo.PublicKey = {key.GetSize(), key.GetData(), 0};
    info.IssuerUniqueId = {id.GetSize(), id.GetData(), 3};
    info.cExtension = 1;
    info.rgExtension = &extension;

    CNALCertInfo converted;
    converted.m_extensions.Add({"1.2.3", false, {}});
    converted = info;
    EXPECT_EQ(converted.m_issuerUniqueId, CTOOCryptBitBlob(FromHexText("aa"), 3));
    converted.m_issuerUniqueId = {};
    EXPECT_EQ(converted, expected);
    EXPECT_TRUE(converted.m_state == 1 && converted.m_stateDetail == 1 && converted.m_encodedCertificate.IsEmpty());

    info.IssuerUniqueId = {};
    CERT_CONTEXT context{};
    context.pCertInfo = &info;
    EXPECT_EQ(CNALCertInfo(context), expected);
    // A store leaves the record empty for a certificate that it cannot key: then the encoding speaks.
    IdentObj encoding = der;
    CERT_INFO empty{};
    for (CERT_INFO* record : {&empty, static_cast<CERT_INFO*>(nullptr)}) {
        context = {X509_ASN_ENCODING, encoding.GetData(), encoding.GetSize(), record, nullptr};
        EXPECT_EQ(CNALCertInfo(context), expected);
        context.cbCertEncoded -= 1;
        EXPECT_EQ(StatusOf([&] { CNALCertInfo{context}; }), TOO_E_BAD_STRUCTURE);
    }
}

TEST(CertInfo, FromRequest) {
    const CertificateParts parts;
    CNALPKCS10Data request;
    request.m_subject = parts.subject;
    request.m_publicKey.ReadData(parts.publicKeyInfo.GetData(), parts.publicKeyInfo.GetSize());
    CNALCertExtensionList extensions;
    extensions.Add({"2.5.29.14", false, FromHexText("0401aa")});
    request.SetExtensions(extensions);

    CNALCertInfo info = Decoded(parts.Encode()).m_info;
    info.SetPrivateKeyType(1);
    info = request;
    EXPECT_EQ(info.m_subject, CNALX509Name(parts.subject));
    EXPECT_EQ(info.m_publicKeyInfo.WriteData(), parts.publicKeyInfo);
    EXPECT_EQ(info.m_extensions, extensions);
    EXPECT_TRUE(info.m_issuer.IsEmpty());
    EXPECT_TRUE(info.m_encodedCertificate.IsEmpty());
    EXPECT_EQ(info.GetPrivateKeyType(), 1u);
}

TEST(CertInfo, KeyParameters) {
    CNALCertInfo info = Decoded(CertificateParts().Encode()).m_info;
    unsigned keySpec = 0;
    CTOOString key("old"), hash("old"), cipher("old");
    info.GetKeyParam(keySpec, key, hash, cipher);
    EXPECT_EQ(keySpec, DWORD{AT_SIGNATURE});
    EXPECT_EQ(key, "1.2.643.2.2.35.1");
    EXPECT_EQ(hash, "1.2.643.2.2.30.1");
    EXPECT_EQ(cipher, "");

    struct {
        const char* value;
        DWORD keySpec;
    } const usages[] = {{"030202" "c4", AT_SIGNATURE}, {"03020520", AT_KEYEXCHANGE}, {"03020410", AT_KEYEXCHANGE},
                        {"030308" "2000", AT_SIGNATURE}, {"040120", AT_SIGNATURE}};
    info.m_publicKeyInfo.m_algorithm.m_parameters.Clear();
    for (const auto& c : usages) {
        info.m_extensions.Replace({c_NAL_OID_KEY_USAGE, true, FromHexText(c.value)});
        info.GetKeyParam(keySpec, key, hash, cipher);
        EXPECT_EQ(keySpec, c.keySpec) << c.value;
        EXPECT_EQ(key, "");
    }
}

TEST(CertInfo, WhatThisPlatformDoesNot) {
    CNALCertInfo info = Decoded(CertificateParts().Encode()).m_info;
    const CNALCertInfo before = info;
    EXPECT_EQ(nal_test::FailureOf([&] { info.GetEncodetInfo(); }),
              std::to_string(TOO_E_UNSUPPORTED) + " Function is currently unsupported in unix environment");
    EXPECT_FALSE(CNALCertInfo::AddCRLPoint(info, "http://x"));
    EXPECT_FALSE(CNALCertInfo::AddUsageToReq(info, 1, 1, true));
    EXPECT_EQ(info, before);
    const CNALX509CheckSignResult result(info);
    EXPECT_EQ(CNALX509CheckSignResult(result).m_result, 0u);
}

TEST(CertificateFields, SteppingFindsWhatTheDecoderReads) {
    const IdentObj der = nal_test::TypicalCertificate();
    const CNALX509Certificate certificate = Decoded(der);
    nal::CertificateFields fields;
    ASSERT_TRUE(nal::StepOverCertificate(der, fields));
    EXPECT_EQ(fields.signedPart, asnt::View(certificate.m_signedPart));
    EXPECT_EQ(nal::Reversed(fields.tbs.serial), certificate.m_info.m_serialNumber);
    EXPECT_EQ(fields.tbs.issuer, asnt::View(certificate.m_info.m_issuer));
    EXPECT_EQ(fields.tbs.subject, asnt::View(certificate.m_info.m_subject));
    EXPECT_EQ(fields.tbs.publicKeyInfo, asnt::View(certificate.m_info.m_publicKeyInfo.WriteData()));

    asnt::View keyId;
    CNALSubjectKeyID decoded;
    ASSERT_TRUE(nal::FindSubjectKeyId(fields.tbs, keyId));
    ASSERT_TRUE(decoded.ReadFrom(certificate.m_info.m_extensions, c_NAL_OID_SUBJECT_KEY_ID));
    EXPECT_EQ(keyId, asnt::View(decoded.m_keyId));
    CNALIssuerPublicKeyID authority;
    ASSERT_TRUE(nal::FindAuthorityKeyId(fields.tbs.extensions, keyId));
    ASSERT_TRUE(authority.ReadFrom(certificate.m_info.m_extensions));
    EXPECT_EQ(keyId, asnt::View(authority.GetKeyID()));

    CertificateParts without;
    without.optional.Clear();
    ASSERT_TRUE(nal::StepOverCertificate(without.Encode(), fields));
    EXPECT_FALSE(nal::FindSubjectKeyId(fields.tbs, keyId));
    CertificateParts damaged;
    damaged.SetExtensions({{c_NAL_OID_SUBJECT_KEY_ID, false, FromHexText("0402aa")}});
    const IdentObj damagedDer = damaged.Encode();
    ASSERT_TRUE(nal::StepOverCertificate(damagedDer, fields));
    EXPECT_FALSE(nal::FindSubjectKeyId(fields.tbs, keyId));
}

TEST(Serial, AsText) {
    const struct {
        const char *bytes, *plain, *spaced;
    } cases[] = {{"0102", "0201", "02 01"}, {"ff", "FF", "FF"}, {"03f100", "00F103", "00 F1 03"}, {"", "", ""}};
    for (const auto& c : cases) {
        EXPECT_EQ(Serial2TOOStr(FromHexText(c.bytes), false), c.plain);
        EXPECT_EQ(Serial2TOOStr(FromHexText(c.bytes), true), c.spaced);
        IdentObj serial = FromHexText("aa");
        for (const char* text : {c.plain, c.spaced}) {
            EXPECT_EQ(TOOStr2Serial(text, serial), *c.bytes != '\0');
            EXPECT_EQ(serial, FromHexText(*c.bytes != '\0' ? c.bytes : "aa"));
        }
    }
    IdentObj serial;
    EXPECT_TRUE(TOOStr2Serial("01f", serial));
    EXPECT_EQ(serial, FromHexText("01"));
    EXPECT_FALSE(TOOStr2Serial("no number", serial));
}

TEST(Serial, SixteenBytes) {
    const struct {
        const char *number, *serial;
    } cases[] = {{"01", "01000000000000000000000000000000"},
                 {"00", "00000000000000000000000000000000"},
                 {"f100", "f1000000000000000000000000000000"},
                 {"f10000", "f1000000000000000000000000000000"},
                 {"0102030405060708090a0b0c0d0e0ff000", "0102030405060708090a0b0c0d0e0ff0"}};
    for (const auto& c : cases) {
        unsigned char out[16];
        ASSERT_TRUE(nal::ToSerial16(FromHexText(c.number), out)) << c.number;
        EXPECT_EQ(IdentObj(out, sizeof(out)), FromHexText(c.serial));
    }
    unsigned char out[16];
    EXPECT_FALSE(nal::ToSerial16({}, out));
    EXPECT_FALSE(nal::ToSerial16(FromHexText("0102030405060708090a0b0c0d0e0f1001"), out));
    EXPECT_FALSE(nal::ToSerial16(FromHexText("0102030405060708090a0b0c0d0e0f100000"), out));
}

TEST(AddMonthToTime, MovesDates) {
    const WORD cases[][7] = {
        {2024, 1, 31, 1, 2024, 2, 28},  // February has 28 days, in leap years too
        {2023, 11, 15, 14, 2025, 1, 15}, {2024, 2, 29, 0, 2024, 2, 28}, {2026, 12, 31, 1, 2027, 1, 31},
        {2026, 12, 31, 12, 2027, 12, 31}, {2026, 5, 31, 1, 2026, 6, 30},
    };
    for (const auto& [year, month, day, months, toYear, toMonth, toDay] : cases) {
        SYSTEMTIME time{year, month, 0, day, 7, 8, 9, 10};
        AddMonthToTime(&time, months);
        EXPECT_TRUE(time.wYear == toYear && time.wMonth == toMonth && time.wDay == toDay && time.wHour == 7) << year << " " << months;
    }
}

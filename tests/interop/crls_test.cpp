// CRLs of OpenSSL with the GOST engine and of GnuTLS read here, with what those programs print; one of ours read there.
#include "interop/request_tools.h"
#include "too/text.h"
#include "too/time.h"

namespace {

using testing::HasSubstr;

class Crls : public nal_test::RequestTools {
protected:
    // The serial as both programs print it: most significant byte first.
    static std::string SerialText(const CNAL_CRL_Entry& entry) {
        nal_test::Bytes octets(entry.m_serialNumber.GetData(), entry.m_serialNumber.GetData() + entry.m_serialNumber.GetSize());
        return nal_test::ToHex(nal_test::Reversed(octets));
    }

    void ExpectCommon(const CNAL_CRL_List& crl, const CNALCertPublicKeyInfo& issuer) const {
        int err = -1;
        EXPECT_EQ(crl.CheckSignature(Verifier(), issuer, &err), 1) << err;
        CNAL_CRL_List changed = crl;
        changed.m_signature.m_data.GetData()[5] ^= 1;
        EXPECT_EQ(changed.CheckSignature(Verifier(), issuer, &err), 0);
        EXPECT_EQ(err, TOO_E_BAD_SIGNATURE);
    }
};

TEST_F(Crls, OfOpenSslEqualWhatItPrints) {
    NEEDS_CERTTOOL();
    Put("index.txt",
        "R\t301231235959Z\t250101120000Z,keyCompromise\t0A1B2C\tunknown\t/CN=x\n"
        "R\t301231235959Z\t250202130405Z\t00FF\tunknown\t/CN=y\n");
    Put("number", "0123456789ABCDEF0123456789ABCDEF\n");
    Sh("openssl ca -config openssl.cnf -name crl -gencrl -keyfile ca.key -cert ca.pem -out crl.pem");
    Sh("openssl crl -in crl.pem -outform DER -out crl.der");
    const std::string text = Sh("certtool --crl-info --infile crl.pem");
    const auto crl = Read<CNAL_CRL_List>("crl.der");
    ExpectCommon(crl, PublicKey("openssl x509 -in ca.pem -noout -pubkey"));

    ASSERT_EQ(crl.m_info.GetEntryCount(), 2u);
    std::vector<std::string> serials;
    for (std::size_t i = 0; i < 2; ++i) {
        const CNAL_CRL_Entry entry = crl.m_info.GetEntry(i);
        serials.push_back(SerialText(entry));
        EXPECT_THAT(text, HasSubstr("Serial Number (hex): " + serials.back()));
        SYSTEMTIME time{};
        ASSERT_TRUE(FileTimeToSystemTime(&entry.m_revocationDate, &time));
        CNALReasonCode reason;
        const bool keyCompromise = reason.ReadFrom(entry.m_extensions, c_NAL_OID_REASON_CODE);
        EXPECT_EQ(keyCompromise, serials.back() == "0a1b2c");
        EXPECT_EQ(time.wMonth, keyCompromise ? 1 : 2);
        EXPECT_EQ(time.wSecond, keyCompromise ? 0 : 5);
        EXPECT_EQ(time.wYear, 2025);
    }
    EXPECT_THAT(serials, testing::UnorderedElementsAre("0a1b2c", "00ff"));
    EXPECT_THAT(text, HasSubstr("CRL Number (not critical): 0123456789abcdef0123456789abcdef"));
    EXPECT_EQ(TOOBin2Hex(crl.m_info.GetSerial()).str(), "EFCDAB8967452301EFCDAB8967452301");
    std::string issuer;
    crl.m_info.m_issuer.GetX500String(issuer, 3);
    EXPECT_THAT(issuer, HasSubstr("=Корень"));
    // OpenSSL makes key identifiers of 20 bytes, so a store can keep this CRL.
    EXPECT_EQ(NALCheckCRLKey(crl.m_info).m_issuerID.GetSize(), 20u);
}

TEST_F(Crls, OfGnuTlsEqualWhatItPrints) {
    NEEDS_CERTTOOL();
    Put("ca.tmpl", "cn = \"Корень GnuTLS\"\nca\ncert_signing_key\ncrl_signing_key\nserial = 7\nexpiration_days = 50\n");
    Put("crl.tmpl",
        "crl_number = 4660\ncrl_next_update = 30\ncrl_this_update_date = \"2026-01-02 03:04:05\"\n"
        "crl_revocation_date = \"2026-01-01 02:03:04\"\n");
    Sh("certtool --generate-privkey --key-type gost01 --outfile g.key");
    Sh("certtool --generate-self-signed --load-privkey g.key --template ca.tmpl --outfile g.pem");
    Sh("certtool --generate-crl --load-ca-privkey g.key --load-ca-certificate g.pem --load-certificate ca.pem "
       "--template crl.tmpl --outfile crl.pem && openssl crl -in crl.pem -outform DER -out crl.der");
    const std::string text = Sh("certtool --crl-info --infile crl.pem");
    const auto crl = Read<CNAL_CRL_List>("crl.der");
    ExpectCommon(crl, PublicKey("openssl x509 -in g.pem -noout -pubkey"));
    ASSERT_EQ(crl.m_info.GetEntryCount(), 1u);
    EXPECT_THAT(text, HasSubstr("Serial Number (hex): " + SerialText(crl.m_info.GetEntry(0))));
    EXPECT_THAT(text, HasSubstr("CRL Number (not critical): 1234"));
    EXPECT_EQ(TOOBin2Hex(crl.m_info.GetSerial()).str(), "34120000000000000000000000000000");
}

TEST_F(Crls, OfOursVerifyThere) {
    NEEDS_CERTTOOL();
    MakeKey(ORK_ALG_GOST2001_SIGN);
    const CNALPKCS10Request request = MakeRequest();
    Put("ours.der", request.WriteData());
    Sh("openssl x509 -req -inform DER -in ours.der -CA ca.pem -CAkey ca.key -CAcreateserial -days 10 -md_gost94 "
       "-extfile openssl.cnf -extensions root -out ours.pem");

    CNAL_CRL_Info info;
    info.m_issuer = request.GetData().m_subject;
    info.m_signatureAlgorithm = CNALSignedData::GetSignatureAlgorithm(m_key.Get());
    GetSystemTimeAsFileTime(&info.m_thisUpdate);
    info.m_nextUpdate = {info.m_thisUpdate.dwLowDateTime, info.m_thisUpdate.dwHighDateTime + 2000};
    for (const unsigned char serial : {1, 0x7F, 0x10}) {
        CNAL_CRL_Entry entry;
        entry.m_serialNumber = IdentObj(&serial, 1);
        entry.m_revocationDate = info.m_thisUpdate;
        info.AddEntry(entry);
    }
    info.m_extensions.Add(CNALCRLNumber(IdentObj("\x34\x12", 2)).ToExtension(c_NAL_OID_CRL_NUMBER, false));
    CNALSignedData envelope;
    envelope.m_data = info.WriteData();
    ASSERT_EQ(envelope.SignData(m_context.Get(), m_key.Get(), nullptr), 1);
    Put("crl.der", envelope.WriteData(nullptr));
    EXPECT_THAT(Sh("openssl crl -inform DER -in crl.der -CAfile ours.pem -noout"), HasSubstr("verify OK"));
    const std::string text = Sh("certtool --crl-info --inder --infile crl.der");
    EXPECT_THAT(text, HasSubstr("Revoked certificates (3)"));
    EXPECT_THAT(text, HasSubstr("Serial Number (hex): 7f"));
    EXPECT_THAT(text, HasSubstr("CRL Number (not critical): 1234"));
}

}  // namespace

// Certification requests of OpenSSL with the GOST engine and of GnuTLS checked here, and ours checked there.
#include "interop/request_tools.h"

namespace {

using testing::HasSubstr;

class Requests : public nal_test::RequestTools {
protected:
    void ExpectOurs(const std::string& name, const CNALCertPublicKeyInfo& key) const {
        const auto request = Read<CNALPKCS10Request>(name);
        int err = -1;
        EXPECT_EQ(request.CheckSignature(Verifier(), &err), 1) << err;
        EXPECT_TRUE(request.GetData().m_publicKey == key);
        std::string subject;
        request.GetData().m_subject.GetX500String(subject, 3);
        EXPECT_THAT(subject, HasSubstr("=Корень"));
        CNALKeyUsage usage;
        ASSERT_TRUE(usage.ReadFrom(request.GetData().GetExtensions(), c_NAL_OID_KEY_USAGE));
        EXPECT_EQ(usage.GetFlags(), static_cast<unsigned>(CNALKeyUsage::DigitalSignature));

        IdentObj der = Get(name);
        EXPECT_EQ(request.WriteData(), der);
        der.GetData()[der.GetSize() - 1] ^= 1;
        Put("changed", der);
        const auto changed = Read<CNALPKCS10Request>("changed");
        EXPECT_EQ(changed.CheckSignature(Verifier(), &err), 0);
        EXPECT_EQ(err, TOO_E_BAD_SIGNATURE);
    }
};

TEST_F(Requests, OfOpenSslCheckHere) {
    Sh("openssl req -utf8 -new -md_gost94 -key ca.key -subj /CN=Корень -config openssl.cnf -reqexts usage -outform DER -out request.der");
    ExpectOurs("request.der", PublicKey("openssl pkey -in ca.key -pubout"));
}

TEST_F(Requests, OfGnuTlsCheckHere) {
    NEEDS_CERTTOOL();
    Put("request.tmpl", "cn = \"Корень\"\nsigning_key\n");
    Sh("certtool --generate-privkey --key-type gost01 --outfile g.key");
    Sh("certtool --generate-request --load-privkey g.key --template request.tmpl --outder --outfile request.der");
    Sh("openssl req -inform DER -in request.der -noout -pubkey > public.pem");
    ExpectOurs("request.der", PublicKey("cat public.pem"));
}

TEST_F(Requests, OfOursVerifyThere) {
    NEEDS_CERTTOOL();
    MakeKey(ORK_ALG_GOST2001_SIGN);
    Put("ours.der", MakeRequest().WriteData());
    const std::string verified = Sh("openssl req -inform DER -in ours.der -verify -noout -text -nameopt utf8");
    EXPECT_THAT(verified, HasSubstr("verify OK"));
    EXPECT_THAT(verified, HasSubstr("Узел 0001"));
    EXPECT_THAT(verified, HasSubstr("Digital Signature"));
    // It reads the request but, by policy, calls no signature of this family good, OpenSSL's neither.
    EXPECT_THAT(Sh("certtool --crq-info --inder --infile ours.der"),
                testing::AllOf(HasSubstr("Subject: CN=Узел 0001,C=RU"), HasSubstr("Digital signature.")));

    Sh("openssl x509 -req -inform DER -in ours.der -CA ca.pem -CAkey ca.key -CAcreateserial -days 10 -md_gost94 "
       "-out ours.pem");
    EXPECT_THAT(Sh("openssl verify -CAfile ca.pem ours.pem"), HasSubstr("OK"));
}

}  // namespace

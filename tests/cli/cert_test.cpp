// nal cert and nal store.
#include "cli_fixture.h"
#include "nal/storage.h"
#include "support/cert_builder.h"

namespace nal_test {
namespace {

IdentObj NoKeyId() {
    CertBuilder builder;
    builder.subjectKeyId.reset();
    return builder.Build();
}

class CliCert : public Cli {
protected:
    CliCert() {
        Write("root.cer", m_authority.root.GetCertificate());
        Write("ivan.cer", m_authority.root.Certify(keycentre::Name("CN=Ivan Petrov, O=Works"), m_authority.NewKey().GetPublicKey(),
                                                   keycentre::SignatureProfile()));
        Write("root.crl", m_authority.root.MakeCrl({}));
        Write("nokeyid.cer", NoKeyId());
        const CNALCertPublicKeyInfo key = m_authority.NewKey().GetPublicKey();
        m_one = m_authority.root.Certify(keycentre::Name("CN=\"Evil\nforged\x1B\""), key, keycentre::SignatureProfile());
        Write("one.cer", m_one);
        Write("two.cer", m_authority.root.Certify(keycentre::Name("CN=Two"), key, keycentre::SignatureProfile()));
        Write("request.p10", keycentre::MakeRequest(m_authority.NewKey(), keycentre::Name("CN=Ivan")));
    }

    Authority m_authority;
    IdentObj m_one;
};

TEST_F(CliCert, Show) {
    RunAll({
        {"nal cert show ivan.cer", 0, "", "cn=Ivan Petrov"},
        {"base64 -w 64 ivan.cer | sed '1i -----BEGIN CERTIFICATE-----' | sed '$a -----END CERTIFICATE-----' > ivan.pem; nal cert show ivan.pem", 0, "",
         "Ivan Petrov"},
        {"cat ivan.cer | nal cert show -", 0, "", "Ivan Petrov"},
        {"cat ivan.pem ivan.pem | nal cert show - --json | grep -c '\"subject\"'", 0, "", "2"},
        {"nal cert show root.crl", 3, "root.crl is a CRL, not a certificate\n  See: nal help crl"},
        {"nal cert show request.p10", 3, "request.p10 is a certification request, not a certificate"},
        {"head -c 100 ivan.cer > half; nal cert show half", 3, "half: the encoded structure is damaged"},
        {"(cat ivan.cer; echo more) > more; nal cert show more", 3, "more: "},
        {"nal cert show nokeyid.cer", 0, "", "key id"},
        {"(seq 20000; cat ivan.pem) | nal cert show -", 0, "", "Ivan Petrov"},
    });
    const Json json = RunJson("nal cert show ivan.cer");
    EXPECT_TRUE(HasShape(json[0],
                         "file:s subject:s issuer:s serial:s not_before:s not_after:s version:n signature_algorithm:s "
                         "key:{ oid:s name:s bits:n parameters:s } key_id:s issuer_key_id:s? authority:b path_length:n~ usage:[s]? extended_usage:[s]~ "
                         "key_not_before:s~ key_not_after:s~ alternative_names:[s]~ crl_points:[s]~ policies:[s]~ critical_extensions:[s] "
                         "fingerprint:s"));
}

TEST_F(CliCert, Store) {
    RunAll({
        {"nal cert list", 0, "", "no certificates in @/home/csp/ormatek/storage/cstore.dat"},
        {"nal cert import ivan.cer root.cer", 0, "", "new"},
        {"nal cert import ivan.cer", 0, "", "was there already"},
        {"nal cert import nokeyid.cer", 3, "has no subject key identifier"},
        {"nal cert import root.cer nowhere", 3, "cannot read nowhere"},
        {"nal cert list", 0, "", "Ivan Petrov"},
        {"nal cert find petrov", 0, "", "Ivan Petrov"},
        {"nal cert find nobody", 1, ""},
        {"nal cert find --issuer tests", 0, "", "Ivan Petrov"},
        {"nal cert find --expires-within 0", 1, ""},
        {"nal cert find --with-key", 1, ""},
        {"nal cert export petrov | nal cert show -", 0, "", "Ivan Petrov"},
        {"nal cert export petrov --der -o out.cer && cmp out.cer ivan.cer", 0, ""},
        {"nal cert export petrov -o out.cer", 3, "out.cer is there already"},
        {"nal cert export petrov -o out.cer --force && nal cert show out.cer", 0, "", "Ivan Petrov"},
        {"nal cert export nobody -o x", 3, "no certificate in"},
        {"nal cert export =", 3, "2 certificates in"},
        {"exec setsid -w @NAL@ cert delete petrov", 2, "Give --yes to confirm it"},
        {"nal cert delete petrov --yes", 0, "", "deleted"},
        {"nal cert find petrov", 1, ""},
        {"nal cert list --store ivan.cer", 3, "ivan.cer is damaged, or no certificate store"},
        {"nal cert list --store @", 3, "cannot open the store"},
        {"nal cert import root.cer --store c.dat <&- >&- 2>&-; nal store check c.dat", 0, "", "the store is sound"},
        // A certificate in the place of another with its key, within one import and over two.
        {"nal cert import one.cer two.cer one.cer two.cer --store k.dat --json | grep -c 'replaced by a later one of this import'", 0, "", "3"},
        {"nal cert import two.cer --store k.dat", 0, "", "was there already"},
        {"nal cert import one.cer --store k.dat", 0, "", "replaced another certificate"},
        // What a certificate says makes no line of its own.
        {"nal cert import root.cer ivan.cer --store k.dat && nal cert list --store k.dat", 0, "", "Evil\\x0Aforged\\x1B"},
        {"nal cert export = --store k.dat", 3, "Evil\\x0Aforged\\x1B"},
        {"nal cert import root.cer --store /proc/nal/store", 3, "/proc/nal"},
    });
    // What the store holds keeps the place of its key when another certificate comes and goes within one import.
    {
        CNALCertStorage storage;
        CNALString path(Path("k.dat").c_str());
        ASSERT_TRUE(storage.OpenStorage(path, CERT_STORE_PROV_FILENAME_A, 0, 0, nullptr));
        CNALCertContext one(m_one);
        CRYPT_HASH_BLOB context{sizeof(CERT_CONTEXT), const_cast<BYTE*>(reinterpret_cast<const BYTE*>(one.GetContext()))};
        std::list<CNALCertContext> found;
        ASSERT_TRUE(storage.FindCertList(found, CERT_FIND_EXISTING, &context));
        EXPECT_TRUE(found.front().SetContainer("evil"));
    }
    RunAll({
        {"nal cert import two.cer one.cer --store k.dat --json | grep result", 0, "", "replaced by a later one of this import\",\n      \"result\": \"was there already"},
        {"nal cert find --with-key --store k.dat", 0, "", "Evil"},
        {"nal cert import two.cer --store k.dat > /dev/full", 5, "This was done before and stays:\n  1 certificate(s) were stored in k.dat"},
        {"nal cert delete Two --yes --store k.dat > /dev/full", 5, "was deleted from k.dat"},
        {"nal cert import one.cer --store k.dat; nal cert export petrov --store k.dat -o k.dat -f", 2, "the output k.dat is a file that is read", "new"},
        {"nal cert import root.cer; nal cert export root -o home/csp/ormatek/storage/cstore.dat -f", 3, "is a certificate store, which no output replaces", "was there already"},
    });
    EXPECT_NE(RunJson("nal cert find Evil --store k.dat")["certificates"][0]["subject"].get<std::string>().find("Evil\nforged\x1B"), std::string::npos);
    // A store that is named must be there.
    for (const char* command : {"cert list", "cert find x", "cert export x", "cert delete x", "cert verify x", "cert verify ivan.cer", "crl list", "crl import root.crl",
                                "crl check root.crl", "encrypt ivan.cer --to x"}) {
        RunAll({{"nal " + std::string(command) + " --store typo", 3, "there is no store typo"}});
    }
    EXPECT_TRUE(HasShape(RunJson("nal cert list"),
                         "store:s certificates:[ subject:s issuer:s serial:s not_before:s not_after:s key_id:s type:s container:s? valid_now:b ]"));
    EXPECT_TRUE(HasShape(RunJson("nal cert import ivan.cer"),
                         "store:s imported:[ subject:s issuer:s serial:s not_before:s not_after:s key_id:s result:s replaced:s~ ]"));
}

TEST_F(CliCert, CheckAndSalvage) {
    RunAll({
        {"nal cert import ivan.cer root.cer --store s.dat", 0, "", "new"},
        {"nal store check s.dat", 0, "", "the store is sound"},
        {"nal store salvage s.dat s.dat", 3, "s.dat"},
        {"nal store check nowhere", 3, "nowhere"},
        {"nal store check ivan.cer", 1, "", "damaged"},
        {"printf XXXX | dd of=s.dat bs=1 seek=12314 conv=notrunc status=none; nal store check s.dat", 1, "", "damaged"},
        {"nal store salvage s.dat new.dat && nal cert list --store new.dat", 0, "", "KEY ID"},
        {"nal store check --nonsense", 2, "unknown option"},
    });
    EXPECT_TRUE(HasShape(RunJson("nal store check new.dat"),
                         "store:s certificates:n crls:n properties:n damaged:n findings:[s] good:b verdict:s"));
}

}  // namespace
}  // namespace nal_test

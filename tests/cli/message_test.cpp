// nal sign, verify, unsign, signatures, encrypt, decrypt.
#include "cli_fixture.h"
#include "keycentre/key.h"
#include "nal/user.h"

namespace nal_test {
namespace {

// Two users with containers, certificates of a trusted root, and a content.
class CliMessage : public Cli {
protected:
    CliMessage() {
        Write("root.cer", m_authority.root.GetCertificate());
        Write("root.crl", m_authority.root.MakeCrl({}));
        AddUser("ivan", "CN=Ivan");
        AddUser("petr", "CN=Petr");
        Run("printf secret > pw; chmod 600 pw; seq 100000 > doc; nal trust add root.cer --crl root.crl --yes");
    }

    void AddUser(const std::string& name, const char* subject) {
        keycentre::Profile profile = keycentre::SignatureProfile();
        profile.keyUsage = CNALKeyUsage::DigitalSignature | CNALKeyUsage::KeyEncipherment | CNALKeyUsage::KeyAgreement;
        const keycentre::KeyPair key = keycentre::KeyPair::Create(Path(name + ".keys"), "secret");
        const IdentObj certificate = m_authority.root.Certify(keycentre::Name(subject), key.GetPublicKey(), profile);
        CNALUser user;
        user.LogInUser(Path(name + ".keys").c_str(), "secret", nullptr, false);
        user.PutCertificate(CNALCertContext(certificate), nullptr, nullptr);
        Write(name + ".cer", certificate);
    }

    Authority m_authority;
};

TEST_F(CliMessage, Sign) {
    RunAll({
        {"nal sign doc -k ./ivan.keys --password-file pw", 0, "", "doc.p7s"},
        {"nal sign doc -k ./ivan.keys --password-file pw", 3, "doc.p7s is there already"},
        {"nal sign doc -k ./ivan.keys --password-file pw -o doc --force", 2, "the output doc is a file that is read"},
        {"nal sign doc -k ./ivan.keys --password-file pw -o ./ivan.keys -f", 3, "the output ./ivan.keys is a key container, which no output replaces"},
        {"printf wrong > bad; chmod 600 bad; nal sign doc -k ./ivan.keys --password-file bad -o x", 4, "the password or PIN is wrong"},
        {"ls x", 2, "x"},
        {"nal sign nowhere -k ./ivan.keys --password-file pw", 3, "cannot read nowhere"},
        {"nal sign @ -k ./ivan.keys --password-file pw -o x", 3, "Is a directory"},
        {"nal sign doc -k nobody --password-file pw -o x", 4, "nal container list shows"},
        {"nal sign doc -k ./ivan.keys --password-file pw --cert petr -o x", 4, "has no certificate that matches 'petr'"},
        {"nal sign doc -k ./ivan.keys --password-file pw -o nowhere/x", 3, "nowhere"},
        {"nal sign doc -k ./ivan.keys --password-file pw --hash 1.2.3 -o x", 2, "is not the OID of a hash"},
        {"nal sign -k ./ivan.keys", 2, "FILE is needed, or --add MESSAGE"},
        {"nal signatures list doc.p7s", 0, "", "signer issuer  o=Tests,cn=Root"},
        {"nal sign --add doc.p7s -k ./ivan.keys --password-file pw", 3, "has signed this already"},
        {"nal sign --add doc.p7s -k ./petr.keys --password-file pw -o both.p7s", 0, "", "both.p7s"},
        {"nal signatures list both.p7s --json | grep -c '\"number\"'", 0, "", "2"},
        {"nal signatures list doc", 3, "doc is text, not a signed message"},
        {"nal sign --add ivan.cer -k ./petr.keys --password-file pw", 3, "ivan.cer is a certificate, not a signed message"},
        // Detached, PEM, streams.
        {"nal sign doc -k ./ivan.keys --password-file pw --detached --pem -o d.pem && head -1 d.pem", 0, "", "-----BEGIN CMS-----"},
        {"nal sign --add d.pem -k ./petr.keys --password-file pw", 2, "d.pem does not carry its content: name the FILE too"},
        {"nal sign doc --add d.pem -k ./petr.keys --password-file pw && head -1 d.pem", 0, "", "-----BEGIN CMS-----"},
        {"nal sign ivan.cer --add d.pem -k ./petr.keys --password-file pw --again", 3, "not about this content"},
        {"cat doc | nal sign - -k ./ivan.keys --password-file pw > piped.p7s && nal signatures list piped.p7s", 0, "", "attached      yes"},
        {"cat doc | nal sign - -k ./ivan.keys --password-file pw --json", 2, "cannot both go to standard output"},
        {"nal sign doc -k ./ivan.keys --password-file pw -o - > /dev/full", 5, "standard output"},
        {"nal sign --add <(cat doc.p7s) -k ./petr.keys --password-file pw -o both2.p7s && nal signatures list both2.p7s --json | grep -c '\"number\"'", 0, "", "2"},
        {"nal sign --add <(cat doc.p7s) -k ./petr.keys --password-file pw", 2, "is no file that could be replaced"},
        {"nal sign -c - doc -k ./ivan.keys --password-file pw -o - < ivan.cer | nal signatures list -", 0, "", "cn=Root"},
        {"nal sign --add <(cat d.pem) doc -k ./petr.keys --password-file pw --again -o - | head -1", 0, "", "-----BEGIN CMS-----"},
        // A failure on the way to PEM leaves what was there.
        {"nal sign doc -k ./ivan.keys --password-file pw --pem -o x.pem && (ulimit -f 700; trap '' XFSZ; nal sign doc -k ./ivan.keys --password-file pw --pem -f -o x.pem); head -1 x.pem",
         0, "x.pem", "-----BEGIN CMS-----"},
        {"rm x.pem", 0, ""},
        // A file that comes meanwhile is not replaced, and no temporary folder stays.
        {"mkfifo slow; for pem in '' --pem; do nal sign slow -k ./ivan.keys --password-file pw $pem -o late & p=$!; exec 3> slow; echo other > late; cat doc >&3; exec 3>&-; "
         "wait $p; echo $? $(cat late; rm late; compgen -G '.nal-*'); done", 0, "late is there already", "3 other\n3 other\n"},
        // Taking apart and putting together.
        {"nal signatures extract both.p7s 2 -o petr.p7s && nal signatures delete both.p7s 2 -o ivan.p7s", 0, "", "signatures  1"},
        {"nal signatures extract both.p7s 3 -o x", 3, "has no signature 3; it has 2"},
        {"nal signatures extract both.p7s 0 -o x", 3, "has no signature 0"},
        {"nal signatures merge ivan.p7s petr.p7s -o merged.p7s", 0, "", "signatures  2"},
        {"nal signatures merge ivan.p7s -o x", 2, "two messages are needed"},
        {"cp both.p7s kept; for edit in 'extract both.p7s 1' 'delete both.p7s 1' 'merge ivan.p7s both.p7s'; do nal signatures $edit -o both.p7s -f && break; done; "
         "cmp both.p7s kept", 0, "the output both.p7s is a file that is read"},
        {"nal sign ivan.cer -k ./ivan.keys --password-file pw -o other.p7s && nal signatures merge ivan.p7s other.p7s -o x", 3, "not about the same content"},
    });
    const std::string signature = "number:n signer_issuer:s? signer_serial:s? signer_key_id:s? signing_time:s? hash:s algorithm:s";
    EXPECT_TRUE(HasShape(RunJson("nal signatures list both.p7s"), "message:s attached:b certificates:n crls:n signatures:[ " + signature + " ]"));
    EXPECT_TRUE(HasShape(RunJson("nal sign doc -k ./ivan.keys --password-file pw -o y.p7s"),
                         "output:s attached:b signer:{ subject:s issuer:s serial:s not_before:s not_after:s key_id:s }"));
}

TEST_F(CliMessage, Verify) {
    RunAll({
        {"nal sign doc -k ./ivan.keys --password-file pw && nal verify doc.p7s", 0, "", "all signatures are valid"},
        {"nal sign --add doc.p7s -k ./petr.keys --password-file pw && nal verify doc.p7s -o out && cmp out doc", 0, "", "signature 2: valid"},
        {"nal verify < doc.p7s -", 0, "", "all signatures are valid"},
        {"nal verify <(cat doc.p7s)", 0, "", "all signatures are valid"},
        {"nal verify <(cat doc.p7s) -o - -f", 2, "name a file for the content"},
        {"nal verify doc.p7s -o out", 3, "out is there already"},
        {"for c in verify unsign; do nal $c doc.p7s -o doc.p7s -f && break; done; nal verify doc.p7s", 0, "the output doc.p7s is a file that is read", "all signatures are valid"},
        {"nal sign doc -k ./ivan.keys --password-file pw -d --pem -o d.pem && nal verify d.pem doc", 0, "", "all signatures are valid"},
        {"nal verify d.pem", 2, "does not carry its content"},
        {"nal verify d.pem ivan.cer", 1, "", "the signature does not hold"},
        {"nal verify - - < d.pem", 2, "named more than once"},
        {"sed 's/^100000$/100001/' doc.p7s > bad.p7s; nal verify bad.p7s -o stolen", 1, "", "the content was not written"},
        {"ls stolen", 2, "stolen"},
        {"nal verify doc.p7s --home @/elsewhere", 1, "", "intact, but not to be trusted"},
        {"nal verify ivan.cer", 3, "ivan.cer is a certificate, not a signed message"},
        {"nal verify doc", 3, "doc is text, not a signed message"},
        {"head -c 3000 doc.p7s > half.p7s; nal verify half.p7s", 3, "half.p7s"},
        {"nal unsign doc.p7s -o - 2> note | cmp - doc && cat note", 0, "", "no signature was checked"},
        {"nal unsign d.pem -o x", 3, "does not carry its content"},
        {"base64 -w 64 doc.p7s | sed '1i -----BEGIN PKCS7-----' | sed '$a -----END PKCS7-----' > doc.pem; nal unsign doc.pem -q -o - | cmp - doc", 0, ""},
        {"nal verify doc.pem", 0, "", "all signatures are valid"},
        {"(seq 10000; cat doc.pem) | nal verify -", 0, "", "all signatures are valid"},
        {"nal sign --add doc.pem -k ./ivan.keys --password-file pw --again && head -1 doc.pem && nal verify doc.pem", 0, "", "all signatures are valid"},
        {"nal unsign doc.p7s", 3, "doc is there already"},
    });
    const std::string summary = "subject:s issuer:s serial:s not_before:s not_after:s key_id:s";
    EXPECT_TRUE(HasShape(RunJson("nal verify doc.p7s"),
                         "message:s attached:b good:b signatures:[ number:n signer_issuer:s? signer_serial:s? signer_key_id:s? signing_time:s? hash:s algorithm:s "
                         "signer:{? " + summary + " } status:s status_text:s intact:b trusted:b good:b verdict:s faults:[s] ]"));
}

TEST_F(CliMessage, Encrypt) {
    keycentre::Profile signOnly = keycentre::SignatureProfile();
    signOnly.keyUsage = CNALKeyUsage::DigitalSignature;
    Write("signer.cer", m_authority.root.Certify(keycentre::Name("CN=Signer"), m_authority.NewKey().GetPublicKey(), signOnly));
    Authority other;
    keycentre::Profile usage = keycentre::ExchangeProfile();
    Write("stranger.cer", other.root.Certify(keycentre::Name("CN=Stranger"), m_authority.NewKey().GetPublicKey(), usage));
    RunAll({
        {"nal encrypt doc --to ivan.cer --to petr.cer", 0, "", "doc.p7m"},
        {"nal decrypt doc.p7m -k ./petr.keys --password-file pw -o out && cmp out doc", 0, "", "out"},
        {"nal decrypt doc.p7m -k ./ivan.keys --password-file pw -o - | cmp - doc", 0, ""},
        {"nal decrypt doc.p7m -k ./ivan.keys --password-file pw", 3, "doc is there already"},
        {"nal decrypt doc.p7m -k ./ivan.keys --password-file pw -o doc.p7m -f", 2, "the output doc.p7m is a file that is read"},
        {"for to in ./ivan.cer petr.cer; do nal encrypt doc --to ivan.cer --to petr.cer -o $to -f && break; done; nal cert show ivan.cer petr.cer", 0, "is a file that is read", "cn=Petr"},
        {"nal decrypt doc.p7m -k ./ivan.keys --password-file pw --store typo -o x", 3, "there is no store typo"},
        {"nal encrypt doc --to signer.cer -o x", 1, "the key usage of this certificate does not allow"},
        {"nal encrypt doc --to stranger.cer -o x", 1, "the certificate does not verify"},
        {"ls x", 2, "x"},
        {"nal encrypt doc --to stranger.cer --unchecked -o stranger.p7m", 0, "", "stranger.p7m"},
        {"nal decrypt stranger.p7m -k ./ivan.keys --password-file pw -o x", 4, "was not encrypted for a key of container ./ivan.keys"},
        {"nal encrypt doc --to nobody -o x", 3, "there is no file 'nobody'"},
        {": > empty; nal encrypt empty --to ivan.cer -o x", 3, "empty is empty"},
        {"nal encrypt doc --to ivan.cer --pem -o doc.pem && nal decrypt doc.pem -k ./ivan.keys --password-file pw -o - | cmp - doc", 0, ""},
        {"cat doc | nal encrypt - --to ivan.cer | nal decrypt - -k ./ivan.keys --password-file pw -o - | cmp - doc", 0, ""},
        {"nal decrypt doc -k ./ivan.keys --password-file pw -o x", 3, "doc is text, not an encrypted message"},
        {"head -c 200 doc.p7m > half.p7m; nal decrypt half.p7m -k ./ivan.keys --password-file pw -o x", 3, "half.p7m"},
    });
    EXPECT_TRUE(HasShape(RunJson("nal encrypt doc --to ivan.cer -o z.p7m"),
                         "output:s recipients:[ subject:s issuer:s serial:s not_before:s not_after:s key_id:s ]"));
}

TEST_F(CliMessage, SignalsLeaveNothing) {
    const auto once = [](const std::string& ready) { return "until { " + ready + "; } || ! kill -0 $p; do sleep .05; done >/dev/null 2>&1; sleep .1; kill -TERM $p; "; };
    const std::string start = once("ls tmp/nal-*");
    RunAll({
        {"mkdir tmp; mkfifo full wait; seq 3000000 > big; nal sign big -k ./ivan.keys --password-file pw -q && nal encrypt doc --to ivan.cer && "
         "nal cert import ivan.cer", 0, "", "new"},
        // A reader that reads no more is not waited for.
        {"true; sleep 60 < full & reader=$!; TMPDIR=@/tmp @NAL@ unsign big.p7s -o full & p=$!; " + once("cmp big tmp/nal-*/output") + "wait $p; echo $?; kill $reader", 0,
         "stopped; nothing was left behind", "143\n"},
        // A password file that nobody opens for writing.
        {"mkfifo nopw; mkdir -p net/d_station/o_users; TMPDIR=@/tmp @NAL@ request new -k new -s CN=New --transport net --password-file nopw -o r.pem & p=$!; " +
         once("grep SigCgt.*4...$ /proc/$p/status && grep State:.S /proc/$p/status") + "wait $p; echo $?", 0, "stopped; nothing was left behind", "143\n"},
        {"[ -z \"$(ls -A tmp; compgen -G '.nal-*')\" ]", 0},
        // A second signal ends what does not hear the first: here, while another process has the store.
        {"true; (exec 9< home/csp/ormatek/storage/cstore.dat.lock; flock 9; exec sleep 60) & holder=$!; sleep .3; TMPDIR=@/tmp @NAL@ decrypt doc.p7m "
         "-k ./ivan.keys --password-file pw -o wait & p=$!; " + start + "sleep 3.2; ls tmp; kill -TERM $p; wait $p; echo $?; kill $holder", 0, "", "nal-"},
        {"[ -z \"$(ls -A tmp)\" ]", 0},
    });
}

// Every command that reads a file refuses what is none of its kind, says so, and makes nothing. The exit codes are those for a folder, an
// empty file, one of 300 MiB, noise, and none.
TEST_F(CliMessage, BadInputs) {
    RunAll({{"nal sign doc -k ./ivan.keys --password-file pw -d -o d.p7s", 0, "", "d.p7s"},
            {"mkdir folder && : > empty && truncate -s 300M huge && (printf '\\x30\\x82'; seq 2000) > noise && chmod 600 *", 0}});
    const std::string key = " -k ./ivan.keys --password-file pw";
    const struct {
        std::string command;
        const char* exits = "33333";
    } cases[] = {{"cert show $f"}, {"cert import $f"}, {"cert verify ./$f"}, {"cert verify ivan.cer --with $f"}, {"cert verify ivan.cer --crl $f"},
                 {"cert list --store $f"}, {"crl show $f"}, {"crl import $f"}, {"crl check $f"}, {"crl check root.crl --issuer $f"},
                 {"crl check root.crl --cert $f"}, {"trust add $f --yes"}, {"trust add root.cer --yes --crl $f"}, {"verify $f"}, {"verify $f doc"},
                 {"unsign $f -o x"}, {"signatures list $f"}, {"signatures extract $f 1 -o x"}, {"signatures delete $f 1 -o x"},
                 {"signatures merge d.p7s $f -o x"}, {"sign doc -o x --add $f" + key}, {"sign doc -o x -c ./$f" + key}, {"decrypt $f -o x" + key},
                 {"encrypt doc -o x --to ./$f"}, {"name --der $f -o x"}, {"store check $f", "31113"}, {"store salvage $f x"}, {"dh list --file $f"},
                 {"container show ./$f", "44444"}, {"sign doc -o x -k ./$f", "44444"}, {"sign doc -o x -k ./ivan.keys --password-file $f", "44444"}};
    for (const auto& [command, exits] : cases) {
        SCOPED_TRACE(command);
        const ProcessResult result = Run("for f in folder empty huge noise nowhere; do nal " + command + " > out 2> err; e=$?; printf $e; [ -s err ] || [ $e = 1 ] || echo silent; done");
        EXPECT_EQ(result.output, exits);
    }
    RunAll({{"ls x", 2, "x"}, {"nal trust list", 0, "", "root"}});
}

}  // namespace
}  // namespace nal_test

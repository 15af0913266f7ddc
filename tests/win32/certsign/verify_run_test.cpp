// What keeps a verification from being carried out, and that it then leaves nothing behind; chains of signers; taking content out.
#include <gtest/gtest.h>

#include <filesystem>

#include "nal/progress.h"
#include "nal/trust_storages.h"
#include "support/hex.h"
#include "support/status_of.h"
#include "too/testing.h"
#include "win32/certsign/message_maker.h"

namespace {

using nal_test::FailureOf;
using nal_test::FromText;
using nal_test::Records;
using nal_test::Signatory;
using nal_test::Signing;
using Chains = std::list<CERT_TRUST_STATUS>;

class Run : public nal_test::MessageTest {
protected:
    static void SetUpTestSuite() {
        MessageTest::SetUpTestSuite();
        s_who.emplace(NewSignatory("Signer"));
    }
    static void TearDownTestSuite() {
        s_who.reset();
        MessageTest::TearDownTestSuite();
    }

    const IdentObj m_content = FromText("what was signed");
    static std::optional<Signatory> s_who;
};

std::optional<Signatory> Run::s_who;

TEST_F(Run, FailsWithAStatusAndAContext) {
    const IdentObj attached = Encoded(MessageOf(m_content, {{&*s_who}}));
    const IdentObj detached = Encoded(MessageOf(m_content, {{&*s_who}}, false));
    const std::string message = Store("attached", attached);
    const std::string alone = Store("detached", detached);
    const std::string content = Store("content", m_content);
    const std::string unsignedMessage = Store("unsigned", Encoded(MessageOf(m_content, {})));
    const IdentObj garbage = FromText("not a message");
    const struct {
        const char* path;
        const IdentObj* message;
        std::string failure;
    } files[] = {
        {nullptr, nullptr, "28 NALVerifySignatureOnFile"},
        {nullptr, &detached, "28 NALVerifySignatureOnFile"},
        {"/no/such/file", nullptr, "4 NALVerifySignatureOnFile"},
        {"/no/such/file", &detached, "4 NALVerifySignatureOnFile"},
        {unsignedMessage.c_str(), nullptr, "140 " + unsignedMessage},
        {alone.c_str(), nullptr, "42 " + alone},
    };
    Records records;
    for (const auto& item : files) {
        records.resize(3);
        const auto verify = [&](int* err) { return NALVerifySignatureOnFile(records, item.path, item.message, nullptr, err); };
        EXPECT_EQ(FailureOf([&] { verify(nullptr); }), item.failure);
        EXPECT_TRUE(records.empty());
        int err = 0;
        EXPECT_EQ(verify(&err), 0);
        EXPECT_EQ(std::to_string(err), item.failure.substr(0, item.failure.find(' ')));
    }
    for (const IdentObj* beside : {static_cast<const IdentObj*>(nullptr), &garbage}) {
        const auto verify = [&] { NALVerifySignatureOnFile(records, content.c_str(), beside, nullptr, nullptr); };
        EXPECT_EQ(FailureOf(verify).find("131 NALVerifySignatureOnFile: "), 0u);
    }

    WhatToSignStruct noPath = InFile(content);
    noPath.data = nullptr;
    WhatToSignStruct noPieces = InFile(content);
    noPieces.flags |= c_NAL_CONTENT_IN_PIECES;
    const struct {
        WhatToSignStruct what;
        IdentObj message;
        std::string failure;
    } data[] = {
        {noPath, detached, "28 WhatToSignStruct "},
        {InFile(content, 0, 0, 16), detached, "37 WhatToSignStruct "},
        {noPieces, detached, "206 WhatToSignStruct "},
        {InFile("/no/such/file"), detached, "4 /no/such/file"},
        {{}, Encoded(MessageOf(m_content, {})), "140 NALVerifySignedData"},
    };
    for (const auto& item : data) {
        records.resize(3);
        EXPECT_EQ(FailureOf([&] { NALVerifySignedData(&records, item.what, item.message, nullptr, nullptr); }), item.failure);
        EXPECT_TRUE(records.empty());
    }
    int err = -1;
    EXPECT_EQ(NALVerifySignedData(nullptr, {}, attached, nullptr, &err), 1);
    EXPECT_EQ(err, 0);
}

// Empty content can be signed, and in a message in memory it looks like none.
TEST_F(Run, OfEmptyContentHolds) {
    const IdentObj message = Encoded(MessageOf({}, {{&*s_who}}));
    const std::vector<DWORD> good{0};
    EXPECT_EQ(StatusesOf(RecordsOf(message)), good);
    Records records;
    EXPECT_TRUE(NALVerifySignatureOnFile(records, Store("empty", message).c_str(), nullptr, nullptr, nullptr));
    EXPECT_EQ(StatusesOf(records), good);
    EXPECT_TRUE(NALVerifySignatureOnFile(records, Store("nothing", {}).c_str(), &message, nullptr, nullptr));
    EXPECT_EQ(StatusesOf(records), good);
}

TEST_F(Run, FailsWhenTheProviderDoes) {
    const IdentObj message = Encoded(MessageOf(m_content, {{&*s_who}}));
    const std::string path = Store("attached", message);
    const struct {
        const char *call, *context;
    } cases[] = {{"ORKAcquireContext", "ORKHashData"},        {"ORKCreateHash", "ORKHashData"},
                 {"ORKHashData", "ORKHashData"},              {"ORKDuplicateHash", "ORKGetHashParam"},
                 {"ORKGetHashParam", "ORKGetHashParam"},      {"ORKVerifySignature", "NALVerifySignedData: SignerCheck"}};
    for (const auto& item : cases) {
        const too_testing::ScopedCallFailure failure(item.call, ORK_E_NO_MEMORY);
        Records records;
        EXPECT_EQ(FailureOf([&] { NALVerifySignedData(&records, {}, message, nullptr, nullptr); }), std::string("1 ") + item.context);
        const auto verifyFile = [&] { NALVerifySignatureOnFile(records, path.c_str(), nullptr, nullptr, nullptr); };
        EXPECT_EQ(FailureOf(verifyFile).find("1 NALVerifySignatureOnFile"), 0u) << item.call;
        EXPECT_TRUE(records.empty());
    }
}

TEST_F(Run, IsCancelledAndSurvivesFilesThatChangeUnderIt) {
    const std::string path = Store("file", Encoded(MessageOf(FromText(std::string(1 << 20, 'x')), {{&*s_who}})));
    const auto size = static_cast<std::uintmax_t>(std::filesystem::file_size(path));
    std::function<bool()> action;
    NALSetProgressHandler(
        [](std::uint64_t, std::uint64_t, void* context) { return (*static_cast<std::function<bool()>*>(context))(); }, &action);
    // A name is no file: what was opened is read to its end.
    const std::pair<std::function<bool()>, int> cases[] = {
        {[] { return false; }, TOO_E_CANCELLED},
        {[&] { return std::filesystem::resize_file(path, size + 100), true; }, TOO_OK},
        {[&] { return std::filesystem::resize_file(path, 100000), true; }, TOO_E_READ},
        {[&] { return std::filesystem::remove(path), true; }, TOO_OK},
    };
    const IdentObj file = Load(path);
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        const auto& [interfere, status] = one;
        Store("file", file);
        action = interfere;
        Records records;
        int err = -1;
        NALVerifySignatureOnFile(records, path.c_str(), nullptr, nullptr, &err);
        EXPECT_EQ(err, status);
        EXPECT_EQ(StatusesOf(records), std::vector<DWORD>(err == TOO_OK ? 1 : 0));
    }
    NALSetProgressHandler(nullptr, nullptr);
}

class SignerChain : public Run {
protected:
    SignerChain() {
        std::filesystem::create_directories(Path("home/trust"));
        setenv("NAL_HOME", Path("home").c_str(), 1);
        m_VPN_TrustStorages.Reset();
    }
    ~SignerChain() override {
        unsetenv("NAL_HOME");
        m_VPN_TrustStorages.Reset();
    }

    void Trust(const std::vector<IdentObj>& certs, const std::vector<IdentObj>& crls) {
        CNALString name(Path("home/trust/trusted.dat").c_str());
        CNALCertStorage storage(name, CERT_STORE_PROV_FILENAME_A, 0, 0, nullptr);
        for (const IdentObj& cert : certs) EXPECT_TRUE(storage.AddEncodetCertificate(cert, X509_ASN_ENCODING));
        for (const IdentObj& crl : crls) EXPECT_TRUE(storage.AddEncodetCRL(crl, X509_ASN_ENCODING));
        storage.CloseStorage();
        m_VPN_TrustStorages.Reset();
    }

    static DWORD ChainOf(const CNALSignData& message, const CNALCertStorage* storage = nullptr, DWORD status = 0) {
        Records records;
        Chains chains;
        EXPECT_EQ(NALVerifySignedData(records, chains, {}, Encoded(message), storage, nullptr), 1);
        EXPECT_EQ(StatusesOf(records), std::vector<DWORD>{status});
        EXPECT_EQ(chains.size(), 1u);
        EXPECT_EQ(chains.front().dwInfoStatus, 0u);
        return chains.front().dwErrorStatus;
    }
};

TEST_F(SignerChain, LeadsToATrustedRootOrSaysWhyNot) {
    const keycentre::Issuer& root = s_authority->root;
    const IdentObj rootCrl = root.MakeCrl({});
    const keycentre::Issuer middle = root.CertifyIssuer(s_authority->NewKey(), keycentre::Name("CN=Middle"), keycentre::CaProfile());
    keycentre::KeyPair key = s_authority->NewKey();
    const CNALCertContext cert(middle.Certify(keycentre::Name("CN=Below"), key.GetPublicKey(), ValidFrom(-1, 30)));
    const Signatory below{std::move(key), cert};
    const CNALSignData direct = MessageOf(m_content, {{&*s_who}});
    CNALSignData indirect = MessageOf(m_content, {{&below}});
    // Nothing is known of a certificate without issuer, so every check counts as failed.
    constexpr DWORD noIssuer = CERT_TRUST_IS_PARTIAL_CHAIN | CERT_TRUST_IS_NOT_SIGNATURE_VALID | CERT_TRUST_IS_NOT_TIME_VALID |
                               CERT_TRUST_IS_REVOKED;
    EXPECT_EQ(ChainOf(direct), noIssuer);
    // A message cannot make its own root trusted.
    CNALSignData withRoot = direct;
    withRoot.certificates.push_back(root.GetCertificate());
    withRoot.crls.push_back(rootCrl);
    EXPECT_EQ(ChainOf(withRoot), DWORD{CERT_TRUST_IS_UNTRUSTED_ROOT});
    const CNALCertStorage rootStorage = StorageOf({root.GetContext()});
    EXPECT_NE(ChainOf(direct, &rootStorage) & CERT_TRUST_IS_UNTRUSTED_ROOT, 0u);

    Trust({root.GetCertificate()}, {rootCrl});
    EXPECT_EQ(ChainOf(direct), 0u);
    EXPECT_EQ(ChainOf(withRoot), 0u);
    // An issuer between may come from the message or the storage; its CRL is needed.
    EXPECT_EQ(ChainOf(indirect), noIssuer);
    indirect.certificates.push_back(middle.GetCertificate());
    EXPECT_EQ(ChainOf(indirect), DWORD{CERT_TRUST_REVOCATION_STATUS_UNKNOWN});
    indirect.crls = {middle.MakeCrl({})};
    EXPECT_EQ(ChainOf(indirect), 0u);
    // Others of its name do not keep it out, though they come first or have its key identifier.
    CNALSignData crowded = indirect;
    const keycentre::Issuer stranger = keycentre::Issuer::SelfSigned(s_authority->NewKey(), keycentre::Name("CN=Middle"), keycentre::CaProfile());
    keycentre::Profile other = keycentre::CaProfile();
    const auto addOther = [&](const IdentObj& keyId) {
        other.subjectKeyId = keyId;
        return stranger.Certify(keycentre::Name("CN=Middle"), stranger.GetKeyPair().GetPublicKey(), other);
    };
    for (unsigned char i = 0; i < 40; ++i)
        crowded.certificates.push_front(addOther(IdentObj(std::string(20, static_cast<char>(i + 1)).data(), 20)));
    crowded.certificates.push_back(addOther(middle.GetContext().GetSubjectKeyId()));
    EXPECT_EQ(ChainOf(crowded), 0u);
    // Nor does the issuer of a signer between two of theirs, though it takes their issuer's place while his chain is judged.
    keycentre::Profile copied = keycentre::CaProfile();
    copied.subjectKeyId = middle.GetContext().GetSubjectKeyId();
    const keycentre::Issuer copy = keycentre::Issuer::SelfSigned(s_authority->NewKey(), keycentre::Name("CN=Copy"), copied);
    const auto signatoryOf = [&](const keycentre::Issuer& issuer, const char* name) {
        keycentre::KeyPair own = s_authority->NewKey();
        const CNALCertContext ownCert(issuer.Certify(keycentre::Name(name), own.GetPublicKey(), ValidFrom(-1, 30)));
        return Signatory{std::move(own), ownCert};
    };
    const Signatory between = signatoryOf(copy, "CN=Between");
    const Signatory second = signatoryOf(middle, "CN=Second");
    CNALSignData mixed = MessageOf(m_content, {{&below}, {&between}, {&second}});
    mixed.certificates.push_back(middle.GetCertificate());
    mixed.certificates.push_back(copy.GetCertificate());
    mixed.crls = indirect.crls;
    Records records;
    Chains chains;
    EXPECT_EQ(NALVerifySignedData(records, chains, {}, Encoded(mixed), nullptr, nullptr), 1);
    ASSERT_EQ(chains.size(), 3u);
    EXPECT_EQ(chains.front().dwErrorStatus, 0u);
    EXPECT_NE(std::next(chains.begin())->dwErrorStatus & CERT_TRUST_IS_UNTRUSTED_ROOT, 0u);
    EXPECT_EQ(chains.back().dwErrorStatus, 0u);
    keycentre::CrlProfile old;
    old.thisUpdate = DaysFromNow(-10);
    old.nextUpdate = DaysFromNow(-5);
    indirect.crls = {middle.MakeCrl(old)};
    EXPECT_EQ(ChainOf(indirect), DWORD{CERT_TRUST_REVOCATION_STATUS_UNKNOWN});
    indirect.certificates.pop_back();
    indirect.crls.clear();
    CNALCertStorage storage = StorageOf({middle.GetContext()});
    EXPECT_TRUE(storage.AddEncodetCRL(middle.MakeCrl({}), X509_ASN_ENCODING));
    EXPECT_EQ(ChainOf(indirect, &storage), 0u);

    keycentre::CrlProfile revoking;
    revoking.counter = 2;
    revoking.revoked.push_back({CNALCertInfo(*s_who->cert.GetContext()).m_serialNumber, {}, {}});
    Trust({root.GetCertificate()}, {root.MakeCrl(revoking)});
    EXPECT_EQ(ChainOf(direct), DWORD{CERT_TRUST_IS_REVOKED});

    // A good chain mends no signature, and nothing else does.
    CNALSignData changed = direct;
    changed.eContent = FromText("something else");
    EXPECT_EQ(ChainOf(changed, nullptr, c_NAL_SIGNATURE_INVALID), DWORD{CERT_TRUST_IS_REVOKED});
    changed.certificates.clear();
    EXPECT_EQ(ChainOf(changed, nullptr, c_NAL_SIGNATURE_INVALID), DWORD{CERT_TRUST_IS_PARTIAL_CHAIN});
}

TEST_F(SignerChain, IsGivenForFilesToo) {
    Trust({s_authority->root.GetCertificate()}, {s_authority->root.MakeCrl({})});
    const std::string path = Store("message", Encoded(MessageOf(m_content, {{&*s_who}, {&*s_who}})));
    Records records;
    Chains chains(5);
    EXPECT_TRUE(NALVerifySignatureOnFile(records, chains, path.c_str(), nullptr, nullptr, nullptr));
    ASSERT_EQ(chains.size(), 2u);
    EXPECT_EQ(chains.back().dwErrorStatus, 0u);
    int err = 0;
    EXPECT_FALSE(NALVerifySignatureOnFile(records, chains, Path("none").c_str(), nullptr, nullptr, &err));
    EXPECT_TRUE(records.empty() && chains.empty());
}

class Removal : public Run {};

TEST_F(Removal, LeavesTheContentAndGivesTheMessage) {
    const IdentObj message = Encoded(MessageOf(m_content, {{&*s_who}}));
    const std::string source = Store("message", message);
    const std::string target = Path("content");
    IdentObj again;
    EXPECT_EQ(NALRemoveSignaturesFromFile(source.c_str(), target.c_str(), &again, nullptr), 1);
    EXPECT_EQ(Load(target), m_content);
    EXPECT_EQ(again, message);
    EXPECT_EQ(Load(source), message);
    again.Clear();
    EXPECT_EQ(NALRemoveSignaturesFromFile(source.c_str(), nullptr, &again, nullptr), 1);
    EXPECT_EQ(again, message);
    EXPECT_EQ(NALRemoveSignaturesFromFile(source.c_str(), source.c_str(), nullptr, nullptr), 1);
    EXPECT_EQ(Load(source), m_content);
}

TEST_F(Removal, ThatFailsChangesNothing) {
    const IdentObj message = Encoded(MessageOf(FromText(std::string(300000, 'x')), {{&*s_who}}));
    const std::string source = Store("message", message);
    const std::string target = Store("target", FromText("before"));
    const std::string detached = Store("detached", Encoded(MessageOf(m_content, {{&*s_who}}, false)));
    const std::string garbage = Store("garbage", FromText("not a message"));
    IdentObj out = FromText("before");
    const struct {
        const char *source, *target;
        IdentObj* message;
        std::string failure;
    } cases[] = {{nullptr, target.c_str(), &out, "28 NALRemoveSignaturesFromFile"},
                 {source.c_str(), nullptr, nullptr, "28 NALRemoveSignaturesFromFile"},
                 {"/no/such/file", target.c_str(), &out, "4 /no/such/file"},
                 {detached.c_str(), target.c_str(), &out, "42 NALRemoveSignaturesFromFile"},
                 {garbage.c_str(), target.c_str(), &out, "205 NALRemoveSignaturesFromFile"}};
    for (const auto& item : cases) {
        EXPECT_EQ(FailureOf([&] { NALRemoveSignaturesFromFile(item.source, item.target, item.message, nullptr); }), item.failure);
    }
    for (const std::string& where : {target, source}) {
        int done = 0;
        for (unsigned step = 1; done == 0; ++step) {
            Store("message", message);
            Store("target", FromText("before"));
            out = FromText("before");
            const IdentObj before = Load(where);
            int err = 0;
            {
                const too_testing::ScopedStepFailure full(step);
                done = NALRemoveSignaturesFromFile(source.c_str(), where.c_str(), &out, &err);
            }
            // Once the file is in place, only making its name durable may fail.
            if (done != 0 || Load(where) != before) continue;
            EXPECT_EQ(err, TOO_E_DISK_FULL) << step;
            EXPECT_EQ(out, FromText("before"));
            EXPECT_EQ(Load(source), message);
        }
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_folder.Path()), {}), 4);
}

}  // namespace

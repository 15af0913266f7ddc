// Requests: what they say, who may sign them, and the installation of what comes back.
#include "win32/cnaluser/request_test.h"

#include "ork/csp.h"
#include "support/cert_builder.h"

namespace {

using nal_test::Date;
using nal_test::RequestTest;

IdentObj IdentityOf(const CNALPKCS10Request& request) {
    asnt::View value;
    EXPECT_TRUE(request.GetData().m_attributes.GetSingleValue(c_NAL_OID_REQUEST_IDENTITY, value));
    asnt::Reader reader(value);
    return reader.Octets().Copy();
}

CNALProvider Verifier() {
    CNALProvider provider;
    provider.Init(nullptr, nullptr, 0, ORK_OPEN_VERIFY, nullptr);
    return provider;
}

int CheckOuter(const CNALPKCS10Request& request) {
    int err = 0;
    request.CheckSignature(Verifier().GetProviderHandle(), &err);
    return err;
}

int CheckInner(const CNALPKCS10Request& request, const CNALCertContext& signer) {
    int err = 0;
    const CNALCertPublicKeyInfo key(signer.GetContext()->pCertInfo->SubjectPublicKeyInfo);
    request.GetData().CheckSecondSignature(Verifier().GetProviderHandle(), key, &err);
    return err;
}

TEST_F(RequestTest, AFirstRequestIsSignedByTheNewKeyAlone) {
    const too_testing::ScopedClock clock(Date(2027, 3, 31));
    CNALUser user;
    LogIn(user, "ivan", true, "secret", "1234");
    const CNALCertReqContext request = FirstRequest(user);
    EXPECT_EQ(static_cast<DWORD>(NAL_REQ_STATUS_MADE), request->dwStatus);
    EXPECT_EQ(static_cast<DWORD>(NAL_REQ_TYPE_OWN), request->dwRequestType);
    EXPECT_EQ(static_cast<DWORD>(AT_SIGNATURE), request->dwValue);
    EXPECT_EQ(CTOOFileTime(Date(2027, 3, 31)).GetTicks(), request->rgTime[NAL_REQ_TIME_MADE]);
    EXPECT_EQ(File("ivan"), std::string(reinterpret_cast<char*>(request->Container.pbData), request->Container.cbData));
    EXPECT_EQ((std::vector<std::string>{"2027_ownu.log"}), FilesIn("o_users", ".log"));
    EXPECT_EQ((std::vector<std::string>{"00000000_ownu.req"}), FilesIn("o_users", ".req"));
    EXPECT_EQ(1U, ExpectWhole("ivan", 0));

    const CNALPKCS10Request decoded = Decoded(*request);
    EXPECT_EQ(TOO_OK, CheckOuter(decoded));
    CNALSecondSignature second;
    EXPECT_FALSE(decoded.GetData().GetSecondSignature(second));
    EXPECT_EQ(Ivan().m_subject, decoded.GetData().m_subject);
    EXPECT_EQ(user.GetNewPublicKey().WriteData(), decoded.GetData().m_publicKey.WriteData());
    const IdentObj identity = IdentityOf(decoded);
    EXPECT_EQ(identity, IdentObj(request->Identity.pbData, request->Identity.cbData));
    ASSERT_EQ(16U, identity.GetSize());
    const unsigned char known[8] = {};
    EXPECT_EQ(0, std::memcmp(known, identity.GetData(), sizeof known)) << "network 0, number 0";

    const CNALCertExtensionList extensions = decoded.GetData().GetExtensions();
    for (const char* oid : {c_NAL_OID_KEY_USAGE, c_NAL_OID_SUBJECT_ALT_NAME}) {
        ASSERT_NE(nullptr, extensions.FindExtension(oid)) << oid;
        EXPECT_EQ(*Ivan().m_extensions.FindExtension(oid), *extensions.FindExtension(oid));
    }
    EXPECT_EQ(nullptr, extensions.FindExtension(c_NAL_OID_BASIC_CONSTRAINTS)) << "whether one is a CA is not for the user to say";
    CNALSubjectKeyID keyId;
    EXPECT_TRUE(keyId.ReadFrom(extensions, c_NAL_OID_SUBJECT_KEY_ID));
    EXPECT_EQ(user.GetNewPublicKey().GetKeyID(), keyId.m_keyId);
    CKeyUsagePeriod period;
    EXPECT_TRUE(period.ReadFrom(extensions, c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD));
    EXPECT_EQ(CTOOFileTime(Date(2027, 3, 31)), CTOOFileTime(period.m_notBefore));
    EXPECT_EQ(CTOOFileTime(Date(2028, 3, 31)), CTOOFileTime(period.m_notAfter));

    // The next one has the next number; the template's network and period count.
    CNALCertInfo info = Ivan();
    info.m_issuerUniqueId = CTOOCryptBitBlob(IdentObj("0A1b", 4));
    info.m_notBefore = Date(2027, 5);
    info.m_notAfter = Date(2027, 6);
    const NAL_REQ_CONTEXT* made = nullptr;
    ASSERT_TRUE(user.CreateNewRequest(CNALUser(), nullptr, info, NAL_REQ_TYPE_EXTERNAL, &made, nullptr, nullptr));
    const CNALCertReqContext external(made);
    EXPECT_EQ((std::vector<std::string>{"0a1b0001_extu.req"}), FilesIn("e_users", ".req"));
    const unsigned char layout[8] = {0, 0, 0x1B, 0x0A, 1, 0, 0, 0};
    EXPECT_EQ(0, std::memcmp(layout, external->Identity.pbData, sizeof layout));
    EXPECT_TRUE(period.ReadFrom(Decoded(*external).GetData().GetExtensions(), c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD));
    EXPECT_EQ(CTOOFileTime(Date(2027, 6)), CTOOFileTime(period.m_notAfter));
    EXPECT_EQ(2U, ExpectWhole("ivan", 0));
}

TEST_F(RequestTest, ARenewalIsOfTheOldKindAndSignedByTheOldKey) {
    constexpr struct {
        const char *algorithm, *set, *askedAlgorithm, *askedSet, *madeAlgorithm, *madeSet;
        unsigned type;
    } cases[] = {
        {c_NAL_OID_KEY_GOST2001, "1.2.643.2.2.35.3", "", "", c_NAL_OID_KEY_GOST2001, "1.2.643.2.2.35.3", AT_SIGNATURE},
        {c_NAL_OID_KEY_GOST94, "1.2.643.2.2.32.3", "", "", c_NAL_OID_KEY_GOST94, "1.2.643.2.2.32.3", AT_SIGNATURE},
        {c_NAL_OID_DH_GOST2001, "1.2.643.2.2.36.1", "", "", c_NAL_OID_DH_GOST2001, "1.2.643.2.2.36.1", AT_KEYEXCHANGE},
        {c_NAL_OID_KEY_PRIVATE, "", "", "", c_NAL_OID_KEY_PRIVATE, "", AT_SIGNATURE},
        {c_NAL_OID_KEY_GOST94, "", c_NAL_OID_KEY_GOST2001, "", c_NAL_OID_KEY_GOST2001, "1.2.643.2.2.35.1", AT_SIGNATURE},
        {c_NAL_OID_KEY_GOST2001, "", "", "1.2.643.2.2.35.2", c_NAL_OID_KEY_GOST2001, "1.2.643.2.2.35.2", AT_SIGNATURE},
    };
    int number = 0;
    for (const auto& test : cases) {
        SCOPED_TRACE(number);
        const std::string container = "olga" + std::to_string(number++);
        CNALUser user;
        const CNALCertContext old = Enrol(user, container, keycentre::SignatureProfile(), test.algorithm, test.set);
        const CNALCertReqContext request = Renewal(user, old, test.askedSet, test.askedAlgorithm);
        const CNALPKCS10Request decoded = Decoded(*request);
        EXPECT_EQ(TOO_OK, CheckOuter(decoded));
        EXPECT_EQ(TOO_OK, CheckInner(decoded, old));
        CNALSecondSignature second;
        ASSERT_TRUE(decoded.GetData().GetSecondSignature(second));
        const CNALCertInfo info(*old.GetContext());
        EXPECT_EQ(info.m_issuer, second.m_issuer);
        EXPECT_EQ(info.m_serialNumber, second.m_serialNumber);
        EXPECT_EQ(old.GetSubjectKeyId(), second.m_keyIdentifier);
        EXPECT_EQ(IdentObj(info.m_subject), IdentObj(decoded.GetData().m_subject));
        EXPECT_EQ(test.type, request->dwValue);

        CNALUserContainerInfo keys;
        ASSERT_TRUE(user.GetContainerInfo(keys, nullptr, nullptr));
        ASSERT_EQ(2U, keys.m_keys.size());
        CTOOString algorithm;
        CTOOString set;
        keys.m_keys.back().GetParams(algorithm, set);
        EXPECT_EQ(test.madeAlgorithm, algorithm);
        EXPECT_EQ(test.madeSet, set);
        const CNALCertExtensionList asked = decoded.GetData().GetExtensions();
        for (const char* oid : {c_NAL_OID_KEY_USAGE, c_NAL_OID_SUBJECT_ALT_NAME, c_NAL_OID_AUTHORITY_KEY_ID}) {
            ASSERT_NE(nullptr, asked.FindExtension(oid)) << oid;
            EXPECT_EQ(*info.m_extensions.FindExtension(oid), *asked.FindExtension(oid));
        }
        EXPECT_EQ(0x0A1B, request->Identity.pbData[2] | request->Identity.pbData[3] << 8);
    }
    EXPECT_EQ(6U, FilesIn("o_users", ".req").size());
    EXPECT_EQ("0a1b0000_ownu.req", FilesIn("o_users", ".req").front());
}

TEST_F(RequestTest, OnlyGoodCertificatesSignRequests) {
    CNALUser user;
    const CNALCertContext good = Enrol(user, "olga");
    CNALUser target;
    LogIn(target, "target", true, "");
    CTOOString msg;
    const auto update = [&](CNALUser& by, const CNALCertContext& cert, const char* set = "", CTOOFileTime from = {},
                            CTOOFileTime until = {}) {
        const NAL_REQ_CONTEXT* made = nullptr;
        const int status = Status([&](int* s) { return by.UpdateKey(set, "", from, until, cert, &made, s, &msg); });
        NALCloseReqContext(made);
        return status;
    };
    const auto create = [&](const CNALUser& signer, const CNALCertContext& cert) {
        const NAL_REQ_CONTEXT* made = nullptr;
        const int status = Status([&](int* s) { return target.CreateNewRequest(signer, &cert, Ivan(), &made, s, &msg); });
        NALCloseReqContext(made);
        return status;
    };
    keycentre::Profile expired = keycentre::SignatureProfile();
    expired.notBefore = Date(2020);
    expired.notAfter = Date(2021);
    CNALUser other;
    const CNALCertContext old = Enrol(other, "old", expired);
    EXPECT_EQ(TOO_E_CERT_REFUSED, update(other, old));
    EXPECT_EQ(TOO_E_CERT_REFUSED, create(other, old));

    const CNALCertContext untrusted = NewKey(user);
    EXPECT_EQ(TOO_E_CERT_REFUSED, update(user, untrusted));
    EXPECT_EQ(TOO_E_KEY_NOT_FOUND, update(other, good)) << "the key is in another container";
    EXPECT_EQ(TOO_E_KEY_NOT_FOUND, create(other, good));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, update(user, CNALCertContext()));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, create(user, CNALCertContext()));
    CNALUser nobody;
    EXPECT_EQ(TOO_E_NOT_INITIALIZED, update(nobody, good));

    // A signer that is set up, but not open, is opened; when that fails, the text says that it was the signer.
    nobody.SetPath(File("missing"));
    EXPECT_EQ(TOO_E_NO_CONTAINER, create(nobody, good));
    EXPECT_EQ("CreateExternAbonentSign: CryptCreateContext", msg);
    nobody.SetPath(File("olga"));
    EXPECT_EQ(TOO_OK, create(nobody, good));

    EXPECT_EQ(TOO_E_BAD_ARGUMENT, update(user, good, "", Date(2030), Date(2029)));
    EXPECT_EQ("CNALUser::UpdateKey", msg);
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, Status([&](int* s) { return user.UpdateKey("", "", {}, {}, good, nullptr, s, nullptr); }));
    EXPECT_EQ(TOO_E_UNKNOWN_ALGORITHM, update(user, good, "1.2.3"));
    EXPECT_EQ("CNALUser::UpdateKey CNALUser::CreateNewKeys", msg);

    // Nobody knows whether it was revoked: good enough for a renewal, not to answer for somebody else.
    {
        const too_testing::ScopedClock later(CTOOFileTime(CTOOFileTime::Now().GetTicks() + 2 * CTOOFileTime::c_ticksPerDay));
        Trust({});
        EXPECT_EQ(TOO_E_CERT_REFUSED, create(user, good));
        EXPECT_EQ(TOO_OK, update(user, good));
    }
    EXPECT_EQ(2U, Requests().size());
}

TEST_F(RequestTest, LifeOfAUser) {
    // Takes the key centre's answer in and installs it.
    const auto answer = [&](CNALUser& user, CNALCertReqContext request) {
        const CNALCertContext cert = Answer(*request);
        CNALCertReqContext answered = Received(*request);
        EXPECT_EQ(static_cast<DWORD>(NAL_REQ_STATUS_RECEIVED), answered->dwStatus);
        const NAL_REQ_CONTEXT* context = answered.Detach();
        EXPECT_TRUE(user.PutCertificate(&context, nullptr, nullptr));
        answered.Attach(context);
        EXPECT_EQ(static_cast<DWORD>(NAL_REQ_STATUS_INSTALLED), answered->dwStatus);
        EXPECT_NE(0U, answered->rgTime[NAL_REQ_TIME_INSTALLED]);
        return cert;
    };
    CNALUser user;
    LogIn(user, "ivan", true, "secret", "1234");
    const CNALCertContext first = answer(user, FirstRequest(user));

    // Somebody else renews the key before it expires.
    CNALUser second;
    LogIn(second, "ivan", false, "secret", "1234");
    CNALCertContext found;
    ASSERT_TRUE(second.FindCertificate(found));
    EXPECT_TRUE(found == first);
    const CNALCertContext renewed = answer(second, Renewal(second, found));

    // The first one sees the renewed certificate, deletes the old key and moves to another container.
    ASSERT_TRUE(user.CheckSignKeys(renewed, nullptr, nullptr));
    CNALUserContainerInfo info;
    ASSERT_TRUE(user.GetContainerInfo(info, nullptr, nullptr));
    ASSERT_TRUE(user.DeleteKey(info.m_keys.front().m_publicKeyInfo, nullptr, nullptr));
    ASSERT_TRUE(user.TransferKeys(File("moved"), "other", "5678", 0, nullptr, nullptr));
    EXPECT_EQ(TOO_E_NO_CONTAINER, second.LogInUser(File("ivan").c_str(), "secret", "1234", false));
    LogIn(second, "moved", false, "other", "5678");
    ASSERT_TRUE(second.FindCertificate(found));
    EXPECT_TRUE(found == renewed);

    // It answers for another user, whose certificate is kept in the storage of the year.
    CNALUser other;
    LogIn(other, "petr", true, "");
    const NAL_REQ_CONTEXT* context = nullptr;
    ASSERT_TRUE(other.CreateNewRequest(second, &renewed, Ivan(), &context, nullptr, nullptr));
    EXPECT_EQ(static_cast<DWORD>(NAL_REQ_TYPE_EXTERNAL), context->dwRequestType);
    EXPECT_EQ(TOO_OK, CheckInner(Decoded(*context), renewed));
    const CNALCertContext external = answer(other, CNALCertReqContext(context));
    std::list<CNALCertContext> list;
    CNALString name(Station("e_users/" + std::to_string(CTOODateTime(true).GetFields().wYear) + "_extu.cer").c_str());
    const CNALCertStorage kept(name, CERT_STORE_PROV_FILENAME_A, 0x10000, 0, nullptr);
    ASSERT_TRUE(kept.FindCertList(list, CERT_FIND_ANY, nullptr));
    EXPECT_TRUE(list.back() == external);
    // The input storages hold the issuer's certificate alone.
    for (const char* input : {"tmp/own_input.cer", "tmp/ext_input.cer"}) {
        CNALString path(Station(input).c_str());
        const CNALCertStorage storage(path, CERT_STORE_PROV_FILENAME_A, 0x10000, 0, nullptr);
        list.clear();
        ASSERT_TRUE(storage.FindCertList(list, CERT_FIND_ANY, nullptr));
        EXPECT_EQ(1U, list.size());
    }
}

TEST_F(RequestTest, InstallsWhatVerifies) {
    constexpr struct {
        const char* name;
        int notBefore;  // years from now; the certificate is for two
        bool isRevoked, hasCrl;
        int status;
    } cases[] = {
        {"good", 0, false, true, TOO_OK},
        {"not yet", 1, false, true, TOO_OK},
        {"nobody knows", 0, false, false, TOO_OK},
        {"expired", -3, false, true, TOO_E_REQUEST_STATE},
        {"revoked", 0, true, true, TOO_E_REQUEST_STATE},
        {"revoked and not yet", 1, true, true, TOO_E_REQUEST_STATE},
    };
    const unsigned year = CTOODateTime(true).GetFields().wYear;
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        CNALUser user;
        LogIn(user, test.name, true, "");
        CNALCertReqContext request = FirstRequest(user);
        keycentre::Profile profile = keycentre::SignatureProfile();
        profile.notBefore = Date(year + test.notBefore);
        profile.notAfter = Date(year + test.notBefore + 2);
        const CNALCertContext cert = Answer(*request, profile);

        keycentre::CrlProfile crl;
        if (test.isRevoked) crl.revoked.push_back({CNALCertInfo(*cert.GetContext()).m_serialNumber, {0, 0}, {}});
        Trust(test.hasCrl ? std::vector{authority.root.MakeCrl(crl)} : std::vector<IdentObj>());
        CNALCertReqContext answered = Received(*request);
        request = CNALCertReqContext();
        CNALCertReqContext keep(NALDuplicateReqContext(answered.Get()));
        const NAL_REQ_CONTEXT* context = answered.Detach();
        CTOOString msg;
        EXPECT_EQ(test.status, Status([&](int* s) { return user.PutCertificate(&context, s, &msg); })) << msg;
        request.Attach(context);
        CNALCertContext bound;
        EXPECT_EQ(test.status == TOO_OK, user.FindCertificate(bound));
        EXPECT_EQ(test.status == TOO_OK ? NAL_REQ_STATUS_INSTALLED : NAL_REQ_STATUS_RECEIVED, static_cast<int>(request->dwStatus));
        if (test.status == TOO_OK) {
            // The older picture of the request still says 5: it is not believed.
            context = keep.Detach();
            EXPECT_EQ(TOO_E_REQUEST_STATE, Status([&](int* s) { return user.PutCertificate(&context, s, &msg); }));
            EXPECT_EQ("PutCertificate ", msg);
            keep.Attach(context);
        } else {
            EXPECT_EQ(0U, msg.find("PutCertificate "));
            EXPECT_GT(msg.length(), 15U) << "says what is wrong";
        }
    }
}

TEST_F(RequestTest, InstallingCanBeMadeAgain) {
    CNALUser user;
    LogIn(user, "petr", true, "");
    const NAL_REQ_CONTEXT* context = nullptr;
    int err = 0;
    CTOOString msg;
    EXPECT_FALSE(user.PutCertificate(static_cast<const NAL_REQ_CONTEXT**>(nullptr), &err, &msg));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, err);
    EXPECT_FALSE(user.PutCertificate(&context, &err, &msg));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, err);
    ASSERT_TRUE(user.CreateNewRequest(CNALUser(), nullptr, Ivan(), NAL_REQ_TYPE_EXTERNAL, &context, nullptr, nullptr));
    EXPECT_FALSE(user.PutCertificate(&context, &err, &msg));
    EXPECT_EQ(TOO_E_REQUEST_STATE, err) << "made, not received";
    CNALCertReqContext request(context);
    const CNALCertContext cert = Answer(*request);
    CNALCertReqContext answered = Received(*request);
    context = answered.Detach();
    CNALUser stranger;
    LogIn(stranger, "stranger", true, "");
    EXPECT_EQ(TOO_E_KEY_NOT_FOUND, Status([&](int* s) { return stranger.PutCertificate(&context, s, nullptr); }));

    // Whatever step fails, the request stays at 5, and the next call goes through.
    unsigned nth = 0;
    for (int status = 1; status != TOO_OK; ++nth) {
        ASSERT_LT(nth, 200U);
        too_testing::FailStep(nth + 1);
        status = Status([&](int* s) { return user.PutCertificate(&context, s, nullptr); });
        too_testing::ResetSteps();
        EXPECT_EQ(status == TOO_OK ? NAL_REQ_STATUS_INSTALLED : NAL_REQ_STATUS_RECEIVED, static_cast<int>(context->dwStatus));
    }
    EXPECT_GT(nth, 5U);
    request.Attach(context);

    // A certificate that came without a request.
    CNALUser other;
    LogIn(other, "other", true, "");
    ASSERT_TRUE(other.CreateNewKeys(0, "", nullptr, nullptr));
    const CNALCertContext alone(
        authority.root.Certify(keycentre::Name("CN=Alone"), other.GetNewPublicKey(), keycentre::SignatureProfile()));
    context = NALCreateReqContext(alone.GetContext(), false);
    EXPECT_TRUE(other.PutCertificate(&context, nullptr, nullptr));
    EXPECT_EQ(static_cast<DWORD>(NAL_REQ_STATUS_INSTALLED), context->dwStatus);
    NALCloseReqContext(context);
    EXPECT_TRUE(other.CheckSignKeys(alone, nullptr, nullptr));
}

}  // namespace

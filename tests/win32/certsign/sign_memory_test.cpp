// NALSignData, NALGetKeyData and NALGetSignaturesSizes.
#include <algorithm>

#include "nal/certificate.h"
#include "too/testing.h"
#include "win32/certsign/signing_test.h"

namespace {

using nal_test::Person;
using nal_test::StatusOf;
using Statuses = std::vector<DWORD>;

class SignMemory : public nal_test::SigningTest {
protected:
    static IdentObj Sign(const Person& who, const WhatToSignStruct& what, const IdentObj& before = IdentObj()) {
        IdentObj message = before;
        EXPECT_EQ(1, NALSignData(who.user, who.cert, what, &message, nullptr, nullptr));
        return message;
    }
    static int StatusOfSigning(const Person& who, const WhatToSignStruct& what, const IdentObj& before = IdentObj(),
                               const char* hash = nullptr) {
        IdentObj message = before;
        int err = 0;
        const CTOOString oid(hash);
        EXPECT_EQ(0, NALSignData(who.user, who.cert, what, &message, hash != nullptr ? &oid : nullptr, &err));
        EXPECT_EQ(before, message);
        EXPECT_EQ(err, StatusOf([&] { NALSignData(who.user, who.cert, what, &message, hash != nullptr ? &oid : nullptr, nullptr); }));
        return err;
    }
};

TEST_F(SignMemory, EveryOptionOverMemoryAndFiles) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{200000}}) {
        const std::string bytes = MakeBytes(size);
        const std::string path = Stored("content", bytes);
        const auto third = static_cast<DWORD>(size / 3);
        for (DWORD options = 0; options < 8; ++options) {
            const DWORD flags = options << 16;  // no certificate, attached, by key identifier
            for (const bool part : {false, true}) {
                WhatToSignStruct memory = Memory(bytes, flags);
                WhatToSignStruct file = File(path, flags);
                if (part) memory.start = file.start = third, memory.end = file.end = 2 * third;
                const std::string content = part ? bytes.substr(third, third) : bytes;
                for (const WhatToSignStruct& what : {memory, file}) {
                    const CNALSignData message = Read(Sign(*s_ann, what));
                    EXPECT_EQ((flags & c_NAL_SIGN_ATTACHED) != 0 && !content.empty(), message.IsAttached());
                    EXPECT_EQ((flags & c_NAL_SIGN_NO_CERTIFICATE) != 0 ? 0U : 1U, message.certificates.size());
                    EXPECT_EQ((flags & c_NAL_SIGN_BY_KEY_ID) != 0 ? 3 : 1, message.version);
                    const auto certs = std::list<IdentObj>{s_authority->root.GetCertificate(),
                                                           asnt::View(s_ann->cert.GetContext()->pbCertEncoded,
                                                                      s_ann->cert.GetContext()->cbCertEncoded).Copy()};
                    EXPECT_EQ(Statuses{0}, Check(message, content, certs)) << size << " " << flags;
                    if (message.IsAttached()) {
                        EXPECT_EQ(Statuses{0}, Check(message, std::nullopt, certs));
                    }
                    const CNALMessageSignerInfo signer = SignerOf(message.signerInfos.front());
                    EXPECT_EQ((flags & c_NAL_SIGN_BY_KEY_ID) != 0 ? 3 : 1, signer.version);
                    EXPECT_TRUE(signer.signedAttrs[1].HasOID(c_NAL_OID_MESSAGE_DIGEST));
                    EXPECT_TRUE(signer.signedAttrs[2].HasOID(c_NAL_OID_SIGNING_TIME));
                }
            }
        }
    }
}

TEST_F(SignMemory, EveryKeySigns) {
    const std::string bytes = MakeBytes(1000);
    for (const DWORD algId : {ORK_ALG_GOST2001_EXCHANGE, ORK_ALG_GOST94_SIGN, ORK_ALG_PRIVATE_SIGN}) {
        const Person who = NewPerson("Carl", algId, keycentre::ExchangeProfile());
        IdentObj message = Sign(*s_ann, Memory(bytes, c_NAL_SIGN_ATTACHED));
        message = Sign(who, Memory(bytes, 0), message);
        message = Sign(*s_bob, Memory(bytes, 0), message);
        EXPECT_EQ((Statuses{0, 0, 0}), Check(Read(message)));
        EXPECT_EQ(algId == ORK_ALG_PRIVATE_SIGN ? 2U : 1U, Read(message).digestAlgorithms.size());
    }
}

TEST_F(SignMemory, SignersOfOneContentLiveInOneMessage) {
    const std::string bytes = MakeBytes(5000);
    const WhatToSignStruct again = Memory(bytes, c_NAL_SIGN_AGAIN);
    const IdentObj one = Sign(*s_ann, Memory(bytes, c_NAL_SIGN_ATTACHED));
    const IdentObj two = Sign(*s_bob, Memory(bytes, 0), one);
    CNALSignData message = Read(two);
    EXPECT_EQ((Statuses{0, 0}), Check(message));
    EXPECT_EQ(2U, message.certificates.size());
    EXPECT_EQ(1U, message.digestAlgorithms.size());
    EXPECT_EQ(Read(one).signerInfos.front(), message.signerInfos.front());

    for (const Person* who : {&*s_ann, &*s_bob}) EXPECT_EQ(TOO_E_ALREADY_SIGNED, StatusOfSigning(*who, Memory(bytes, 0), two));
    message = Read(Sign(*s_ann, again, two));
    EXPECT_EQ((Statuses{0, 0}), Check(message));
    EXPECT_EQ(2U, message.certificates.size());
    EXPECT_TRUE(nal::IsSignerOf(s_ann->cert, SignerOf(message.signerInfos.back())));

    // A signer is known by the certificate or by the signer info.
    const IdentObj bare = Sign(*s_ann, Memory(bytes, c_NAL_SIGN_NO_CERTIFICATE));
    EXPECT_EQ(TOO_E_ALREADY_SIGNED, StatusOfSigning(*s_ann, Memory(bytes, 0), bare));
    CNALSignData certOnly = Read(one);
    certOnly.signerInfos.clear();
    EXPECT_EQ(TOO_E_ALREADY_SIGNED, StatusOfSigning(*s_ann, Memory(bytes, 0), certOnly.WriteObject(nullptr)));
    EXPECT_EQ(Statuses{0}, Check(Read(Sign(*s_ann, again, certOnly.WriteObject(nullptr)))));

    // What cannot be read as a signer info is kept as it is.
    CNALSignData odd = Read(one);
    odd.signerInfos.push_back(IdentObj("\x30\x00", 2));
    EXPECT_EQ(odd.signerInfos.back(), *std::next(Read(Sign(*s_bob, Memory(bytes, 0), odd.WriteObject(nullptr))).signerInfos.begin()));
}

TEST_F(SignMemory, ASignatureAboutOtherContentIsNotAdded) {
    const std::string bytes = MakeBytes(70000);
    std::string other = bytes;
    other.back() ^= 1;
    for (const DWORD options : {DWORD{0}, c_NAL_SIGN_ATTACHED}) {
        const IdentObj message = Sign(*s_ann, Memory(bytes, options));
        const std::string path = Stored("other", other);
        EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOfSigning(*s_bob, Memory(other, 0), message));
        EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOfSigning(*s_bob, File(path, 0), message));
        EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOfSigning(*s_bob, File(path, 0, 0, 5), message));
    }
    // A detached message can be given its content by the next signer.
    const IdentObj detached = Sign(*s_ann, Memory(bytes, 0));
    EXPECT_EQ((Statuses{0, 0}), Check(Read(Sign(*s_bob, Memory(bytes, c_NAL_SIGN_ATTACHED), detached))));
    CNALSignData list = Read(detached);
    list.eContentType = CASNTIdData(c_NAL_OID_TRUST_LIST);
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOfSigning(*s_bob, Memory(bytes, 0), list.WriteObject(nullptr)));
}

TEST_F(SignMemory, FailuresAreToldAndChangeNothing) {
    const std::string bytes = MakeBytes(100);
    const std::string path = Stored("content", bytes);
    const std::string missing = m_folder.File("missing");
    WhatToSignStruct backwards = Memory(bytes, 0);
    backwards.start = 101;
    WhatToSignStruct null = Memory(bytes, 0);
    null.data = nullptr;
    WhatToSignStruct nullPath = File(path, 0);
    nullPath.data = nullptr;
    const WhatToSignStruct good = Memory(bytes, 0);
    const Person stranger{CNALUser(), s_ann->cert, ""};
    Person mixed{s_ann->user, s_bob->cert, ""};
    keycentre::Profile expired = keycentre::SignatureProfile();
    expired.notBefore = FILETIME(CTOOFileTime::FromUnix(1000000000));
    expired.notAfter = FILETIME(CTOOFileTime::FromUnix(1100000000));
    keycentre::Profile ended = keycentre::SignatureProfile();
    ended.privateKeyUsage = keycentre::Period{std::nullopt, FILETIME(CTOOFileTime::FromUnix(1100000000))};
    keycentre::Profile noUsage = keycentre::SignatureProfile();
    noUsage.keyUsage = 0;
    expired.privateKeyMonths = 0;
    const struct {
        const char* name;
        Person who;
        WhatToSignStruct what;
        IdentObj before;
        const char* hash;
        int status;
    } cases[] = {
        {"no such file", *s_ann, File(missing, 0), {}, nullptr, TOO_E_FILE_NOT_FOUND},
        {"region outside the file", *s_ann, File(path, 0, 0, 101), {}, nullptr, TOO_E_BAD_ARGUMENT},
        {"start outside the file", *s_ann, File(path, 0, 101), {}, nullptr, TOO_E_BAD_ARGUMENT},
        {"backwards", *s_ann, backwards, {}, nullptr, TOO_E_BAD_ARGUMENT},
        {"null", *s_ann, null, {}, nullptr, TOO_E_BAD_ARGUMENT},
        {"null path", *s_ann, nullPath, {}, nullptr, TOO_E_BAD_ARGUMENT},
        {"no provider", stranger, good, {}, nullptr, TOO_E_NOT_INITIALIZED},
        {"another's certificate", mixed, good, {}, nullptr, TOO_E_KEY_NOT_FOUND},
        {"unknown hash", *s_ann, good, {}, "1.2.3", TOO_E_UNKNOWN_ALGORITHM},
        {"a hash that the key does not have", *s_ann, good, {}, c_NAL_OID_HASH_PRIVATE, WinErr2ToolsErr(ORK_E_BAD_HASH)},
        {"no message", *s_ann, good, IdentObj("text", 4), nullptr, TOO_E_NOT_SIGNED_MESSAGE},
        {"expired", NewPerson("Old", ORK_KEY_SIGNATURE, expired), good, {}, nullptr, 203},
        {"key's period over", NewPerson("Ended", ORK_KEY_SIGNATURE, ended), good, {}, nullptr, 233},
        {"no usage", NewPerson("None", ORK_KEY_SIGNATURE, noUsage), good, {}, nullptr, 106},
        {"no certificate", Person{s_ann->user, CNALCertContext(), ""}, good, {}, nullptr, TOO_E_BAD_ARGUMENT},
    };
    for (const auto& test : cases) EXPECT_EQ(test.status, StatusOfSigning(test.who, test.what, test.before, test.hash)) << test.name;
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOf([&] { NALSignData(s_ann->user, s_ann->cert, good, nullptr, nullptr, nullptr); }));
    for (const char* call : {"ORKCreateHash", "ORKHashData", "ORKGetHashParam", "ORKSignHash", "ORKDuplicateKey"}) {
        const too_testing::ScopedCallFailure failure(call, ORK_E_NO_MEMORY);
        EXPECT_EQ(WinErr2ToolsErr(ORK_E_NO_MEMORY), StatusOfSigning(*s_ann, good)) << call;
    }
}

TEST_F(SignMemory, TheKeysHandleIsTheCallers) {
    CNALProvider provider;
    unsigned long first = 0;
    unsigned long second = 0;
    CNALCertContext cert = s_ann->cert;
    EXPECT_EQ(1, NALGetKeyData(s_ann->user, cert, provider, &first));
    EXPECT_EQ(1, NALGetKeyData(s_ann->user, cert, provider, &second));
    EXPECT_NE(first, second);
    EXPECT_TRUE(ORKDestroyKey(first));
    EXPECT_TRUE(ORKDestroyKey(second));
    EXPECT_EQ(provider.GetProviderHandle(), s_ann->user.GetProvider().GetProviderHandle());
    EXPECT_TRUE(s_ann->user.CheckSignKeys(cert, nullptr, nullptr));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOf([&] { NALGetKeyData(s_ann->user, cert, provider, nullptr); }));
}

TEST_F(SignMemory, SizesAreNeverExceededAndTight) {
    const IdentObj der = asnt::View(s_bob->cert.GetContext()->pbCertEncoded, s_bob->cert.GetContext()->cbCertEncoded).Copy();
    const Person late = NewPerson("Late", ORK_KEY_SIGNATURE, [] {
        keycentre::Profile profile = keycentre::SignatureProfile();
        profile.months = 600;
        profile.privateKeyMonths = 0;
        return profile;
    }());
    for (const bool in2050 : {false, true}) {
        const Person& who = in2050 ? late : *s_bob;
        const IdentObj cert = in2050 ? asnt::View(who.cert.GetContext()->pbCertEncoded, who.cert.GetContext()->cbCertEncoded).Copy() : der;
        for (const std::size_t size : {1U, 50U, 100U, 127U, 128U, 255U, 256U, 65000U, 65535U, 65536U, 66000U}) {
            const std::string bytes = MakeBytes(size);
            const IdentObj ann = Sign(*s_ann, Memory(bytes, size % 2 == 0 ? c_NAL_SIGN_ATTACHED : 0));
            for (const IdentObj& before : {IdentObj(), ann}) {
                for (DWORD options = 0; options < 8; ++options) {
                    std::optional<too_testing::ScopedClock> clock;
                    if (in2050) clock.emplace(FILETIME(CTOOFileTime::FromUnix(2540000000)));
                    const DWORD flags = options << 16;
                    CNALSignData message = before.IsEmpty() ? CNALSignData() : Read(before);
                    CNALSignData* existing = before.IsEmpty() ? nullptr : &message;
                    IdentObj certificate = cert;
                    const unsigned bound =
                        NALGetSignaturesSizes(certificate, flags, existing, static_cast<unsigned>(size), nullptr, nullptr);
                    CNALCertContext context = who.cert;
                    EXPECT_EQ(bound, NALGetSignaturesSizes(context, flags, existing, static_cast<unsigned>(size), nullptr, nullptr));
                    const unsigned real = Sign(who, Memory(bytes, flags), before).GetSize();
                    EXPECT_LE(real, bound) << size << " " << flags;
                    EXPECT_LE(bound, real + 16) << size << " " << flags;
                }
            }
        }
    }
    IdentObj empty;
    int err = 0;
    EXPECT_EQ(0U, NALGetSignaturesSizes(empty, 0, nullptr, 0, nullptr, &err));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, err);
    IdentObj cert = der;
    EXPECT_EQ(0U, NALGetSignaturesSizes(cert, c_NAL_SIGN_ATTACHED, nullptr, 0xFFFFFF00U, nullptr, &err));
    EXPECT_EQ(TOO_E_TOO_LARGE, err);
}

}  // namespace

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
    const std::vector<CNALCertContext> certs = {s_authority->root.GetContext(), s_ann->cert};
    for (const unsigned size : {0U, 1U, 200000U}) {
        const IdentObj bytes = MakeBytes(size);
        const std::string path = Store("content", bytes);
        const unsigned third = size / 3;
        const IdentObj middle(bytes.GetData() + third, third);
        for (DWORD options = 0; options < 8; ++options) {
            const DWORD flags = options << 16;  // no certificate, attached, by key identifier
            SCOPED_TRACE(std::to_string(size) + " " + std::to_string(flags));
            const bool byKeyId = (flags & c_NAL_SIGN_BY_KEY_ID) != 0;
            WhatToSignStruct part = InMemory(bytes, flags, third);
            part.end = 2 * third;
            for (const auto& [what, content] : {std::pair{InMemory(bytes, flags), bytes}, {InFile(path, flags), bytes},
                                                {part, middle}, {InFile(path, flags, third, 2 * third), middle}}) {
                const CNALSignData message = Read(Sign(*s_ann, what));
                EXPECT_EQ((flags & c_NAL_SIGN_ATTACHED) != 0 && !content.IsEmpty(), message.IsAttached());
                EXPECT_EQ((flags & c_NAL_SIGN_NO_CERTIFICATE) != 0 ? 0U : 1U, message.certificates.size());
                EXPECT_EQ(byKeyId ? 3 : 1, message.version);
                EXPECT_EQ(Statuses{0}, Check(message, content, certs));
                if (message.IsAttached()) {
                    EXPECT_EQ(Statuses{0}, Check(message, std::nullopt, certs));
                }
                const CNALMessageSignerInfo signer = SignerOf(message.signerInfos.front());
                EXPECT_EQ(byKeyId ? 3 : 1, signer.version);
                EXPECT_TRUE(signer.signedAttrs[1].HasOID(c_NAL_OID_MESSAGE_DIGEST));
                EXPECT_TRUE(signer.signedAttrs[2].HasOID(c_NAL_OID_SIGNING_TIME));
            }
        }
    }
}

TEST_F(SignMemory, EveryKeySigns) {
    const IdentObj bytes = MakeBytes(1000);
    for (const DWORD algId : {ORK_ALG_GOST2001_EXCHANGE, ORK_ALG_GOST94_SIGN, ORK_ALG_PRIVATE_SIGN}) {
        const Person who = NewPerson("Carl", algId, keycentre::ExchangeProfile());
        IdentObj message = Sign(*s_ann, InMemory(bytes, c_NAL_SIGN_ATTACHED));
        message = Sign(who, InMemory(bytes), message);
        message = Sign(*s_bob, InMemory(bytes), message);
        EXPECT_EQ((Statuses{0, 0, 0}), Check(Read(message)));
        EXPECT_EQ(algId == ORK_ALG_PRIVATE_SIGN ? 2U : 1U, Read(message).digestAlgorithms.size());
    }
}

TEST_F(SignMemory, SignersOfOneContentLiveInOneMessage) {
    const IdentObj bytes = MakeBytes(5000);
    const WhatToSignStruct again = InMemory(bytes, c_NAL_SIGN_AGAIN);
    const IdentObj one = Sign(*s_ann, InMemory(bytes, c_NAL_SIGN_ATTACHED));
    const IdentObj two = Sign(*s_bob, InMemory(bytes), one);
    CNALSignData message = Read(two);
    EXPECT_EQ((Statuses{0, 0}), Check(message));
    EXPECT_EQ(2U, message.certificates.size());
    EXPECT_EQ(1U, message.digestAlgorithms.size());
    EXPECT_EQ(Read(one).signerInfos.front(), message.signerInfos.front());

    for (const Person* who : {&*s_ann, &*s_bob}) EXPECT_EQ(TOO_E_ALREADY_SIGNED, StatusOfSigning(*who, InMemory(bytes), two));
    message = Read(Sign(*s_ann, again, two));
    EXPECT_EQ((Statuses{0, 0}), Check(message));
    EXPECT_EQ(2U, message.certificates.size());
    EXPECT_TRUE(nal::IsSignerOf(s_ann->cert, SignerOf(message.signerInfos.back())));

    // A signer is known by the certificate or by the signer info.
    const IdentObj bare = Sign(*s_ann, InMemory(bytes, c_NAL_SIGN_NO_CERTIFICATE));
    EXPECT_EQ(TOO_E_ALREADY_SIGNED, StatusOfSigning(*s_ann, InMemory(bytes), bare));
    CNALSignData certOnly = Read(one);
    certOnly.signerInfos.clear();
    EXPECT_EQ(TOO_E_ALREADY_SIGNED, StatusOfSigning(*s_ann, InMemory(bytes), certOnly.WriteObject(nullptr)));
    EXPECT_EQ(Statuses{0}, Check(Read(Sign(*s_ann, again, certOnly.WriteObject(nullptr)))));
    IdentObj other = bytes;
    other.GetData()[4999] ^= 1;
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOfSigning(*s_bob, InMemory(other), certOnly.WriteObject(nullptr)));

    // What cannot be read as a signer info is kept as it is.
    CNALSignData odd = Read(one);
    odd.signerInfos.push_back(IdentObj("\x30\x00", 2));
    EXPECT_EQ(odd.signerInfos.back(), *std::next(Read(Sign(*s_bob, InMemory(bytes), odd.WriteObject(nullptr))).signerInfos.begin()));
}

TEST_F(SignMemory, ASignatureAboutOtherContentIsNotAdded) {
    const IdentObj bytes = MakeBytes(70000);
    IdentObj other = bytes;
    other.GetData()[69999] ^= 1;
    for (const DWORD options : {DWORD{0}, c_NAL_SIGN_ATTACHED}) {
        const IdentObj message = Sign(*s_ann, InMemory(bytes, options));
        const std::string path = Store("other", other);
        EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOfSigning(*s_bob, InMemory(other), message));
        EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOfSigning(*s_bob, InFile(path), message));
        EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOfSigning(*s_bob, InFile(path, 0, 0, 5), message));
    }
    // A detached message can be given its content by the next signer.
    const IdentObj detached = Sign(*s_ann, InMemory(bytes));
    EXPECT_EQ((Statuses{0, 0}), Check(Read(Sign(*s_bob, InMemory(bytes, c_NAL_SIGN_ATTACHED), detached))));
    CNALSignData list = Read(detached);
    list.eContentType = CASNTIdData(c_NAL_OID_TRUST_LIST);
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOfSigning(*s_bob, InMemory(bytes), list.WriteObject(nullptr)));
}

TEST_F(SignMemory, FailuresAreToldAndChangeNothing) {
    const IdentObj bytes = MakeBytes(100);
    const std::string path = Store("content", bytes);
    const std::string missing = Path("missing");
    WhatToSignStruct null = InMemory(bytes);
    null.data = nullptr;
    const WhatToSignStruct good = InMemory(bytes);
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
        {"no such file", *s_ann, InFile(missing), {}, nullptr, TOO_E_FILE_NOT_FOUND},
        {"region outside the file", *s_ann, InFile(path, 0, 0, 101), {}, nullptr, TOO_E_BAD_ARGUMENT},
        {"null", *s_ann, null, {}, nullptr, TOO_E_BAD_ARGUMENT},
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
    EXPECT_TRUE(ORKDestroyKey(first) && ORKDestroyKey(second));
    EXPECT_EQ(provider.GetProviderHandle(), s_ann->user.GetProvider().GetProviderHandle());
    EXPECT_TRUE(s_ann->user.CheckSignKeys(cert, nullptr, nullptr));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOf([&] { NALGetKeyData(s_ann->user, cert, provider, nullptr); }));
}

TEST_F(SignMemory, SizesAreNeverExceededAndTight) {
    keycentre::Profile profile = keycentre::SignatureProfile();
    profile.months = 600;
    profile.privateKeyMonths = 0;
    const Person late = NewPerson("Late", ORK_KEY_SIGNATURE, profile);
    for (const bool in2050 : {false, true}) {
        const Person& who = in2050 ? late : *s_bob;
        for (const unsigned size : {1U, 50U, 100U, 127U, 128U, 255U, 256U, 65000U, 65535U, 65536U, 66000U}) {
            const IdentObj bytes = MakeBytes(size);
            const IdentObj ann = Sign(*s_ann, InMemory(bytes, size % 2 == 0 ? c_NAL_SIGN_ATTACHED : 0));
            for (const IdentObj& before : {IdentObj(), ann}) {
                for (DWORD options = 0; options < 8; ++options) {
                    std::optional<too_testing::ScopedClock> clock;
                    if (in2050) clock.emplace(FILETIME(CTOOFileTime::FromUnix(2540000000)));
                    const DWORD flags = options << 16;
                    CNALSignData message = before.IsEmpty() ? CNALSignData() : Read(before);
                    CNALSignData* existing = before.IsEmpty() ? nullptr : &message;
                    IdentObj certificate = EncodingOf(who.cert);
                    const unsigned bound = NALGetSignaturesSizes(certificate, flags, existing, size, nullptr, nullptr);
                    CNALCertContext context = who.cert;
                    EXPECT_EQ(bound, NALGetSignaturesSizes(context, flags, existing, size, nullptr, nullptr));
                    const unsigned real = Sign(who, InMemory(bytes, flags), before).GetSize();
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
    IdentObj cert = EncodingOf(s_bob->cert);
    EXPECT_EQ(0U, NALGetSignaturesSizes(cert, c_NAL_SIGN_ATTACHED, nullptr, 0xFFFFFF00U, nullptr, &err));
    EXPECT_EQ(TOO_E_TOO_LARGE, err);
}

}  // namespace

// What fails when messages are encrypted and decrypted: with which status, and with nothing left behind.
#include <gtest/gtest.h>

#include <functional>

#include "encryption/encryption_fixture.h"
#include "support/certificate_parts.h"
#include "support/child.h"
#include "support/hex.h"

namespace {

using nal_test::ChildEnd;
using nal_test::FromHexText;
using nal_test::KeyHolder;

class EncryptionFailure : public nal_test::EncryptionTest {
protected:
    CNALEnvelopedData MakeMessage(unsigned size = 20000) {
        m_plain = MakeBytes(size);
        Store("source", m_plain);
        WhatToSignStruct what = InPieces(m_source);
        EXPECT_EQ(NALEncryptFile(what, {m_person.cert}, m_message.c_str(), nullptr), 1);
        CNALEnvelopedData message;
        const IdentObj der = Load(m_message);
        EXPECT_EQ(message.ReadObject(der.GetData(), der.GetSize(), nullptr), 1);
        return message;
    }

    void ExpectNothingLeft(std::size_t handles) const {
        EXPECT_EQ(nal_test::OpenHandles(), handles);
        EXPECT_EQ(OutFiles(), 0u);
        EXPECT_FALSE(IsPlaintextLeft(m_plain));
    }

    KeyHolder m_person = MakePerson("person");
    IdentObj m_plain;
};

/// A copy of DER with the bytes that follow the first `marker` changed by `change`.
IdentObj Changed(IdentObj der, const std::string& marker, const std::string& bytes) {
    const IdentObj from = FromHexText(marker);
    const IdentObj to = FromHexText(bytes);
    unsigned char* end = der.GetData() + der.GetSize();
    unsigned char* found = std::search(der.GetData(), end, from.GetData(), from.GetData() + from.GetSize());
    EXPECT_LE(from.GetSize() + to.GetSize(), end - found);
    if (found != end) std::copy_n(to.GetData(), to.GetSize(), found + from.GetSize());
    return der;
}

TEST_F(EncryptionFailure, DamagedKeysAndParametersAreRefused) {
    const CNALEnvelopedData good = MakeMessage();
    const auto key = [](CNALEnvelopedData& m) -> IdentObj& { return m.recipientInfos.front().encryptedKey; };
    const auto parameters = [](CNALEnvelopedData& m) -> IdentObj& {
        return m.encryptedContentInfo.contentEncryptionAlgorithm.m_parameters;
    };
    // The ephemeral key of a message to somebody on another curve.
    KeyHolder other = MakePerson("other", ORK_KEY_SIGNATURE, "1.2.643.2.2.35.3");
    IdentObj otherMessage = Encrypt(MakeBytes(10), {other.cert});
    CNALEnvelopedData toOther;
    toOther.ReadObject(otherMessage.GetData(), otherMessage.GetSize(), nullptr);
    const std::string point(16, 'A');
    CNALEnvelopedData unchanged = good;
    const asnt::View whole = asnt::Reader(key(unchanged)).Enter(asnt::tag::Sequence).Next().whole;
    const IdentObj bare = nal_test::Der([&](asnt::Writer& writer) { writer.Sequence([&] { writer.Raw(whole); }); });
    const struct {
        const char* what;
        std::function<void(CNALEnvelopedData&)> change;
        int status;
    } cases[] = {
        {"not changed", [](auto&) {}, TOO_OK},
        {"MAC", [&](auto& m) { key(m) = Changed(key(m), "0404", "00112233"); }, WinErr2ToolsErr(ORK_E_BAD_DATA)},
        {"wrapped key", [&](auto& m) { key(m) = Changed(key(m), "0420", "0011"); }, WinErr2ToolsErr(ORK_E_BAD_DATA)},
        {"UKM", [&](auto& m) { key(m) = Changed(key(m), "0408", "00"); }, WinErr2ToolsErr(ORK_E_BAD_DATA)},
        {"off the curve", [&](auto& m) { key(m) = Changed(key(m), "03430004 40", point); }, WinErr2ToolsErr(ORK_E_BAD_PUBLIC_KEY)},
        {"on another curve", [&](auto& m) { key(m) = key(toOther); }, WinErr2ToolsErr(ORK_E_BAD_KEY)},
        {"another curve's name", [&](auto& m) { key(m) = Changed(key(m), "3012 06072A85030202", "2302"); },
         WinErr2ToolsErr(ORK_E_BAD_PUBLIC_KEY)},
        {"unknown wrap set", [&](auto& m) { key(m) = Changed(key(m), "06072A85030202 1F", "09"); }, TOO_E_UNKNOWN_ALGORITHM},
        {"unknown key algorithm", [&](auto& m) { key(m) = Changed(key(m), "301C0606 2A85030202", "77"); }, TOO_E_UNKNOWN_ALGORITHM},
        {"key that is none", [&](auto& m) { key(m) = FromHexText("0500"); }, TOO_E_BAD_STRUCTURE},
        {"no transport parameters", [&](auto& m) { key(m) = bare; }, 56},
        {"another cipher", [](auto& m) { m.encryptedContentInfo.contentEncryptionAlgorithm.m_algorithm = IdentObj("1.2.3", 5); },
         TOO_E_UNKNOWN_ALGORITHM},
        {"unknown cipher set", [&](auto& m) { parameters(m) = Changed(parameters(m), "06072A850302021F", "09"); },
         TOO_E_UNKNOWN_ALGORITHM},
        {"short initialisation vector", [&](auto& m) { parameters(m) = FromHexText("3012 0407 01020304050607 0607 2A850302021F01"); },
         TOO_E_BAD_STRUCTURE},
        {"no parameters", [&](auto& m) { parameters(m).Clear(); }, TOO_E_BAD_STRUCTURE},
        {"nobody", [](auto& m) { m.recipientInfos.clear(); }, TOO_E_KEY_NOT_FOUND},
        {"somebody else", [&](auto& m) { m.recipientInfos = toOther.recipientInfos; }, TOO_E_KEY_NOT_FOUND},
    };
    const std::size_t handles = nal_test::OpenHandles();
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        CNALEnvelopedData message = good;
        each.change(message);
        const IdentObj der = message.WriteObject(nullptr);
        EXPECT_EQ(DecryptToFile(der, m_person.user.get()), each.status);
        IdentObj content("old", 3);
        WhatToSignStruct what = InMemory(der);
        int err = -1;
        NALDecryptMem(what, m_person.user.get(), nullptr, content, &err);
        EXPECT_EQ(err, each.status);
        EXPECT_EQ(content, each.status == 0 ? m_plain : IdentObj("old", 3));
        std::filesystem::remove(each.status == 0 ? m_out : m_out + ".none");
        m_person.user->Reset();
        m_person.user->LogInUser(m_person.container.c_str(), nullptr, nullptr, false);
        ExpectNothingLeft(handles);
    }
}

TEST_F(EncryptionFailure, DamageOfAnyByteStaysWithinBounds) {
    MakeMessage(40);
    const IdentObj good = Load(m_message);
    const std::size_t handles = nal_test::OpenHandles();
    const unsigned contentStart = good.GetSize() - 40;
    for (unsigned i = 0; i < good.GetSize(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_NE(DecryptToFile(IdentObj(good.GetData(), i), m_person.user.get()), TOO_OK);
        EXPECT_EQ(OutFiles(), 0u);
        IdentObj flipped = good;
        flipped.GetData()[i] ^= 1U << i % 8;
        WhatToSignStruct what = InMemory(flipped);
        IdentObj content;
        int err = -1;
        const int opened = NALDecryptMem(what, m_person.user.get(), nullptr, content, &err);
        EXPECT_LE(content.GetSize(), 44u);
        // The mode notices no change of the content: it decrypts, to something else.
        if (i >= contentStart) {
            EXPECT_TRUE(opened && content != m_plain);
        }
    }
    EXPECT_EQ(nal_test::OpenHandles(), handles + 1) << "the user's key";
}

TEST_F(EncryptionFailure, EveryCallOfTheProviderMayFail) {
    MakeMessage();
    WhatToSignStruct message = InFile(m_message);
    m_person.user->Reset();
    const std::size_t handles = nal_test::OpenHandles();
    const auto encrypt = [&](int& err) {
        WhatToSignStruct what = InFile(m_source);
        NALEncryptFile(what, {m_person.cert}, m_out.c_str(), &err);
    };
    const auto decrypt = [&](int& err) {
        CNALUser user;
        if ((err = user.LogInUser(m_person.container.c_str(), nullptr, nullptr, false)) != 0) return;
        NALDecryptFile(message, &user, nullptr, m_out.c_str(), &err);
    };
    const struct {
        std::function<void(int&)> action;
        std::vector<const char*> calls;
    } cases[] = {{encrypt,
                  {"ORKAcquireContext", "ORKGenKey", "ORKGetKeyParam", "ORKSetKeyParam", "ORKExportKey", "ORKImportKey", "ORKEncrypt",
                   "ORKGetProvParam", "ORKEncodePublicKeyAndParametrs"}},
                 {decrypt, {"ORKAcquireContext", "ORKGetUserKey", "ORKDuplicateKey", "ORKGetKeyParam", "ORKSetKeyParam", "ORKImportKey",
                            "ORKDecrypt"}}};
    for (const auto& each : cases) {
        for (const char* call : each.calls) {
            int err = -1;
            unsigned nth = 0;
            while (err != 0 && ++nth < 50) {
                SCOPED_TRACE(std::string(call) + " " + std::to_string(nth));
                const too_testing::ScopedCallFailure failure(call, ORK_E_NO_MEMORY, nth, 1);
                each.action(err);
                if (err != 0) {
                    EXPECT_EQ(err, TOO_E_NO_MEMORY);
                    ExpectNothingLeft(handles);
                }
            }
            EXPECT_GT(nth, 1u) << call << " is not called at all";
            EXPECT_EQ(nal_test::OpenHandles(), handles);
            std::filesystem::remove(m_out);
        }
    }
}

TEST_F(EncryptionFailure, AFullDiskAndSuddenDeathLeaveNoPlaintext) {
    MakeMessage(300000);
    WhatToSignStruct message = InFile(m_message);
    const auto decrypt = [&] {
        int err = -1;
        NALDecryptFile(message, m_person.user.get(), nullptr, m_out.c_str(), &err);
        return err;
    };
    ASSERT_EQ(decrypt(), 0);
    std::filesystem::remove(m_out);
    const std::size_t handles = nal_test::OpenHandles();
    for (unsigned nth = 1;; ++nth) {
        SCOPED_TRACE(nth);
        int err = 0;
        {
            const too_testing::ScopedStepFailure full(nth);
            err = decrypt();
        }
        if (err == 0) break;
        EXPECT_EQ(err, TOO_E_DISK_FULL);
        // Only making the name durable comes after the file is in place; then it is whole.
        if (std::filesystem::remove(m_out)) continue;
        ExpectNothingLeft(handles);
        EXPECT_EQ(ChildEnd::killed, nal_test::RunInChild([&] {
                      too_testing::KillAtStep(nth);
                      decrypt();
                  }));
        ExpectNothingLeft(handles);
    }
    EXPECT_EQ(Load(m_out), m_plain);
}

TEST_F(EncryptionFailure, ArgumentsAreChecked) {
    MakeMessage();
    const std::list<CNALCertContext> people = {m_person.cert};
    const std::string missing = Path("missing");
    const std::string link = m_outFolder.File("link");
    const auto region = [](WhatToSignStruct what, DWORD start, DWORD end) {
        what.start = start;
        what.end = end;
        return what;
    };
    const WhatToSignStruct plain = InMemory(m_plain);
    const struct {
        const char* what;
        WhatToSignStruct source;
        std::list<CNALCertContext> recipients;
        int status;
    } encryptions[] = {
        {"no content", region(plain, 5, 5), people, TOO_E_BAD_ARGUMENT},
        {"empty region of a file", region(InFile(m_source), 7, 7), people, TOO_E_BAD_ARGUMENT},
        {"beyond the file", region(InFile(m_source), 0, 20001), people, TOO_E_RANGE},
        {"no file", InFile(missing), people, TOO_E_FILE_NOT_FOUND},
        {"no recipients", plain, {}, TOO_E_BAD_ARGUMENT},
        {"recipient that is none", plain, {m_person.cert, CNALCertContext()}, TOO_E_BAD_ARGUMENT},
        {"fine", region(InFile(m_source), 100, 200), people, TOO_OK},
    };
    const std::size_t handles = nal_test::OpenHandles();
    for (const auto& each : encryptions) {
        SCOPED_TRACE(each.what);
        IdentObj message("old", 3);
        int err = -1;
        EXPECT_EQ(NALEncryptMem(each.source, each.recipients, message, &err), each.status == 0);
        EXPECT_EQ(err, each.status);
        EXPECT_EQ(message == IdentObj("old", 3), each.status != 0);
        WhatToSignStruct source = each.source;
        EXPECT_EQ(NALEncryptFile(source, each.recipients, m_out.c_str(), &err), each.status == 0);
        EXPECT_EQ(err, each.status);
        EXPECT_EQ(OutFiles(), each.status == 0 ? 1u : 0u);
        std::filesystem::remove(m_out);
    }
    ExpectNothingLeft(handles);

    const IdentObj der = Load(m_message);
    const WhatToSignStruct message = InMemory(der);
    IdentObj padded = FromHexText("0102030405");
    padded.Append(der.GetData(), der.GetSize());
    padded.Append("behind", 6);
    const std::string paddedFile = Store("padded", padded);
    const struct {
        const char* what;
        WhatToSignStruct source;
        int status;
    } decryptions[] = {
        {"no message", plain, TOO_E_NOT_SIGNED_MESSAGE},
        {"cut", region(message, 0, der.GetSize() - 1), TOO_E_BAD_STRUCTURE},
        {"no file", InFile(missing), TOO_E_FILE_NOT_FOUND},
        {"beyond the file", region(InFile(m_message), 0, der.GetSize() + 1), TOO_E_RANGE},
        {"file cut", region(InFile(m_message), 0, der.GetSize() - 1), TOO_E_BAD_STRUCTURE},
        {"inside of memory", region(InMemory(padded), 5, padded.GetSize()), TOO_OK},
        {"inside of a file", region(InFile(paddedFile), 5, c_NAL_TO_END_OF_FILE), TOO_OK},
    };
    for (const auto& each : decryptions) {
        SCOPED_TRACE(each.what);
        WhatToSignStruct source = each.source;
        int err = -1;
        EXPECT_EQ(NALDecryptFile(source, m_person.user.get(), nullptr, m_out.c_str(), &err), each.status == 0);
        EXPECT_EQ(err, each.status);
        EXPECT_EQ(OutFiles(), each.status == 0 ? 1u : 0u);
        EXPECT_TRUE(each.status != 0 || Load(m_out) == m_plain);
        std::filesystem::remove(m_out);
    }

    // Onto its own source, by whatever name, and to places that are none.
    std::filesystem::create_symlink(m_message, link);
    for (const char* out : {m_message.c_str(), link.c_str(), static_cast<const char*>(nullptr), "", m_outFolder.Path().c_str()}) {
        SCOPED_TRACE(out != nullptr ? out : "null");
        WhatToSignStruct source = InFile(m_message);
        const int expected = out == m_outFolder.Path().c_str() ? TOO_E_NOT_A_FILE : TOO_E_BAD_ARGUMENT;
        int err = -1;
        EXPECT_EQ(NALEncryptFile(source, people, out, &err), 0);
        EXPECT_EQ(err, expected);
        EXPECT_EQ(NALDecryptFile(source, m_person.user.get(), nullptr, out, &err), 0);
        EXPECT_EQ(err, expected);
        EXPECT_EQ(Load(m_message), der);
    }
    WhatToSignStruct source = InFile(m_message);
    EXPECT_EQ(nal_test::FailureOf([&] { NALDecryptFile(source, m_person.user.get(), nullptr, nullptr, nullptr); }), "28 NALDecryptFile");
}

TEST_F(EncryptionFailure, AWrongPasswordIsTold) {
    MakeMessage();
    ASSERT_TRUE(m_person.user->ChangePassword("secret", nullptr));
    m_person.user->Reset();
    WhatToSignStruct what = InFile(m_message);
    for (const auto& [password, status] : {std::pair{"wrong", TOO_E_WRONG_PASSWORD}, {"", TOO_E_WRONG_PASSWORD}, {"secret", TOO_OK}}) {
        CNALUser user;
        ASSERT_EQ(user.LogInUser(m_person.container.c_str(), password, nullptr, false), 0);
        int err = -1;
        NALDecryptFile(what, &user, nullptr, m_out.c_str(), &err);
        EXPECT_EQ(err, status);
        EXPECT_EQ(OutFiles(), status == 0 ? 1u : 0u);
    }
}

}  // namespace

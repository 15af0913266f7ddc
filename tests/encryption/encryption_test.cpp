// Messages from encryption to decryption and back.
#include <gtest/gtest.h>

#include "asnt/writer.h"
#include "encryption/encryption_fixture.h"
#include "nal/progress.h"
#include "support/hex.h"

namespace {

using nal_test::FromHexText;
using nal_test::KeyHolder;

struct KeyKind {
    const char* name;
    DWORD algId;
    const char* paramOid;
};

constexpr KeyKind c_kinds[] = {
    {"2001 A", ORK_ALG_GOST2001_SIGN, "1.2.643.2.2.35.1"},      {"2001 B", ORK_ALG_GOST2001_SIGN, "1.2.643.2.2.35.2"},
    {"2001 C", ORK_ALG_GOST2001_SIGN, "1.2.643.2.2.35.3"},      {"2001 XchA", ORK_ALG_GOST2001_EXCHANGE, "1.2.643.2.2.36.0"},
    {"2001 XchB", ORK_ALG_GOST2001_EXCHANGE, "1.2.643.2.2.36.1"}, {"94 A", ORK_ALG_GOST94_SIGN, "1.2.643.2.2.32.2"},
    {"94 B", ORK_ALG_GOST94_SIGN, "1.2.643.2.2.32.3"},          {"94 XchA", ORK_ALG_GOST94_EXCHANGE, "1.2.643.2.2.33.1"},
    {"private", ORK_ALG_PRIVATE_SIGN, nullptr}};

class Encryption : public nal_test::EncryptionTest {
protected:
    static CNALEnvelopedData Read(const IdentObj& message) {
        CNALEnvelopedData read;
        EXPECT_EQ(read.ReadObject(message.GetData(), message.GetSize(), nullptr), 1);
        return read;
    }

    static IdentObj Decrypt(const IdentObj& message, CNALUser* user, CNALCertStorage* storage = nullptr) {
        WhatToSignStruct what = InMemory(message);
        IdentObj content;
        EXPECT_EQ(NALDecryptMem(what, user, storage, content, nullptr), 1);
        return content;
    }
};

TEST_F(Encryption, EveryKindOfKeyOpensEveryForm) {
    std::list<KeyHolder> people;
    std::list<CNALCertContext> certs;
    for (const KeyKind& kind : c_kinds) {
        people.push_back(MakePerson(kind.name, kind.algId, kind.paramOid));
        certs.push_back(people.back().cert);
    }
    const std::size_t handles = nal_test::OpenHandles();
    for (const unsigned size : {1U, 8U, 1024U, 4095U, 4096U, 4097U, 65536U, 300001U}) {
        SCOPED_TRACE(size);
        const IdentObj plain = MakeBytes(size);
        Store("source", plain);
        IdentObj messages[3] = {Encrypt(plain, certs)};
        for (const bool inPieces : {false, true}) {
            WhatToSignStruct what = inPieces ? InPieces(m_source) : InFile(m_source);
            ASSERT_EQ(NALEncryptFile(what, certs, m_message.c_str(), nullptr), 1);
            EXPECT_EQ(what.end, size);
            messages[1 + inPieces] = Load(m_message);
        }
        for (const IdentObj& message : messages) {
            const bool inPieces = &message == &messages[2];
            const CNALEnvelopedData read = Read(message);
            EXPECT_EQ(read.encryptedContentInfo.GetOpenTextSize(), size);
            EXPECT_EQ(read.encryptedContentInfo.encryptedLength,
                      read.encryptedContentInfo.GetEncryptSize(0, size, inPieces ? c_NAL_ENCRYPTED_CONTENT_IN_PIECES : 0));
            EXPECT_EQ(read.encryptedContentInfo.contentFlags, inPieces ? 3u : 1u);
            EXPECT_EQ(read.recipientInfos.size(), std::size(c_kinds));
            for (KeyHolder& person : people) EXPECT_EQ(Decrypt(message, person.user.get()), plain) << person.container.c_str();
        }
        // Each way between memory and files gives the same.
        KeyHolder& first = people.front();
        WhatToSignStruct file = InFile(m_message);
        ASSERT_EQ(NALDecryptFile(file, first.user.get(), nullptr, m_out.c_str(), nullptr), 1);
        EXPECT_EQ(file.end, Load(m_message).GetSize());
        EXPECT_EQ(Load(m_out), plain);
        IdentObj content;
        EXPECT_EQ(NALDecryptMem(file, first.user.get(), nullptr, content, nullptr), 1);
        EXPECT_EQ(content, plain);
        EXPECT_EQ(DecryptToFile(messages[0], first.user.get()), 0);
        EXPECT_EQ(Load(m_out), plain);
        EXPECT_EQ(OutFiles(), 1u);
    }
    // What stays open are the keys that the users keep.
    for (KeyHolder& person : people) person.user->Reset();
    EXPECT_EQ(nal_test::OpenHandles(), handles - people.size());
}

TEST_F(Encryption, EachRecipientHasAnEphemeralKeyOfItsOwnAndARepeatedOneOnlyOne) {
    KeyHolder a = MakePerson("a");
    KeyHolder b = MakePerson("b");
    const IdentObj plain = MakeBytes(100);
    const CNALEnvelopedData message = Read(Encrypt(plain, {a.cert, b.cert, a.cert}));
    EXPECT_EQ(message.version, 0);
    ASSERT_EQ(message.recipientInfos.size(), 2u);
    EXPECT_TRUE(message.recipientInfos.front().IsFor(a.cert) && !message.recipientInfos.front().IsFor(b.cert));
    EXPECT_TRUE(message.recipientInfos.back().IsFor(b.cert));
    EXPECT_NE(message.recipientInfos.front().encryptedKey, message.recipientInfos.back().encryptedKey);
    EXPECT_EQ(message.encryptedContentInfo.contentEncryptionAlgorithm.GetID(), c_NAL_OID_GOST28147);
    EXPECT_NE(Read(Encrypt(plain, {a.cert})).encryptedContentInfo.encryptedContent, message.encryptedContentInfo.encryptedContent);
}

TEST_F(Encryption, RecipientsAreFoundByBothIdentifiersInContainersAndStorages) {
    KeyHolder bound = MakePerson("bound");
    KeyHolder unbound = MakePerson("unbound", ORK_KEY_EXCHANGE, nullptr, false);
    KeyHolder stranger = MakePerson("stranger");
    const IdentObj plain = MakeBytes(5000);
    CNALEnvelopedData byIssuer = Read(Encrypt(plain, {stranger.cert, unbound.cert, bound.cert}));
    CNALEnvelopedData byKeyId = byIssuer;
    const CNALCertContext* owner = &stranger.cert;
    for (CNALTransRecipientInfo& info : byKeyId.recipientInfos) {
        info.version = 2;
        info.subjectKeyIdentifier = owner->GetSubjectKeyId();
        info.issuer.Clear();
        info.serialNumber.Clear();
        EXPECT_TRUE(info.IsFor(*owner) && !info.IsFor(m_authority.root.GetContext()));
        owner = owner == &stranger.cert ? &unbound.cert : &bound.cert;
    }
    // One that is named twice is tried twice.
    byIssuer.recipientInfos.push_front(byIssuer.recipientInfos.back());
    byIssuer.recipientInfos.front().encryptedKey.GetData()[10] ^= 1;
    CNALString name("");
    CNALCertStorage storage(name, reinterpret_cast<const char*>(2), 0, 0, nullptr);
    ASSERT_TRUE(storage.AddCertificate(unbound.cert));
    CNALCertStorage withContainers(name, reinterpret_cast<const char*>(2), 0, 0, nullptr);
    ASSERT_TRUE(withContainers.AddCertificate(unbound.cert));
    std::list<CNALCertContext> stored;
    ASSERT_TRUE(withContainers.FindCertList(stored, CERT_FIND_ANY, nullptr));
    ASSERT_TRUE(stored.front().SetContainer(unbound.container.c_str()));
    ASSERT_TRUE(stored.front().SetPrivateKeyType(AT_KEYEXCHANGE));
    stored.clear();
    for (CNALEnvelopedData* form : {&byIssuer, &byKeyId}) {
        const IdentObj message = form->WriteObject(nullptr);
        EXPECT_EQ(Decrypt(message, bound.user.get()), plain);
        EXPECT_EQ(DecryptToFile(message, unbound.user.get()), TOO_E_KEY_NOT_FOUND);
        EXPECT_EQ(Decrypt(message, unbound.user.get(), &storage), plain);
        EXPECT_EQ(DecryptToFile(message, nullptr, &storage), TOO_E_KEY_NOT_FOUND);
        EXPECT_EQ(Decrypt(message, nullptr, &withContainers), plain);
        EXPECT_EQ(DecryptToFile(message, nullptr), TOO_E_BAD_ARGUMENT);
        EXPECT_EQ(OutFiles(), 0u);
    }
    // A container that the storage names for a certificate, but that holds another key, does not have ours.
    const KeyHolder other = MakePerson("other", ORK_KEY_EXCHANGE);
    ASSERT_TRUE(withContainers.FindCertList(stored, CERT_FIND_ANY, nullptr));
    ASSERT_TRUE(stored.front().SetContainer(other.container.c_str()));
    EXPECT_EQ(DecryptToFile(byIssuer.WriteObject(nullptr), nullptr, &withContainers), TOO_E_KEY_NOT_FOUND);
}

TEST_F(Encryption, OurRecipientIsFoundBehindManyOthersOfTheStorage) {
    constexpr unsigned others = 100;
    KeyHolder unbound = MakePerson("unbound", ORK_KEY_SIGNATURE, nullptr, false);
    const IdentObj plain = MakeBytes(50);
    CNALEnvelopedData message = Read(Encrypt(plain, {unbound.cert}));
    const CNALTransRecipientInfo ours = message.recipientInfos.front();
    CNALString name("");
    CNALCertStorage storage(name, reinterpret_cast<const char*>(2), 0, 0, nullptr);
    ASSERT_TRUE(storage.AddCertificate(unbound.cert));
    CNALCertPublicKeyInfo key(unbound.cert.GetContext()->pCertInfo->SubjectPublicKeyInfo);
    for (unsigned i = 0; i < others; ++i) {
        ++key.m_publicKey.m_data.GetData()[5];  // another key, and with it another identifier
        const IdentObj der = m_authority.root.Certify(keycentre::Name("CN=other"), key, keycentre::ExchangeProfile());
        const CNALCertContext cert(der);
        ASSERT_TRUE(storage.AddCertificate(cert));
        CNALTransRecipientInfo& info = message.recipientInfos.emplace_front(cert);
        info.encryptedKey = ours.encryptedKey;
    }
    std::list<CNALCertContext> stored;
    ASSERT_TRUE(storage.FindCertList(stored, CERT_FIND_ANY, nullptr));
    ASSERT_EQ(stored.size(), others + 1);
    EXPECT_EQ(Decrypt(message.WriteObject(nullptr), unbound.user.get(), &storage), plain);
}

TEST_F(Encryption, AnotherToolsEmptyContentIsDecrypted) {
    KeyHolder person = MakePerson("person");
    CNALEnvelopedData message = Read(Encrypt(MakeBytes(1), {person.cert}));
    IdentObj der = message.WriteObject(nullptr);
    // The last element, [0] with one byte, loses it: all lengths around are one less.
    unsigned char* bytes = der.GetData();
    bytes[der.GetSize() - 2] = 0;
    der.SetSize(der.GetSize() - 1);
    const auto shorten = [&](unsigned offset) {
        ASSERT_EQ(bytes[offset - 1], 0x82);
        bytes[offset + 1]--;
    };
    shorten(2);
    shorten(4 + 11 + 2);
    shorten(4 + 11 + 4 + 2);
    const unsigned infoLength = der.GetSize() - 2 - 11 - 31 - 1;
    EXPECT_EQ(bytes[infoLength - 1], 0x30);
    bytes[infoLength]--;
    EXPECT_EQ(Decrypt(der, person.user.get()), IdentObj());
    EXPECT_EQ(DecryptToFile(der, person.user.get()), 0);
    EXPECT_EQ(std::filesystem::file_size(m_out), 0u);
}

TEST_F(Encryption, PartsEncryptAndDecryptByThemselves) {
    KeyHolder person = MakePerson("person");
    CNALProvider provider;
    ASSERT_TRUE(provider.Init(nullptr, ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY, nullptr));
    ork::KeyHandle key;
    ASSERT_TRUE(ORKGenKey(provider.GetProviderHandle(), ORK_ALG_GOST28147, ORK_GEN_EXPORTABLE, key.Receive()));
    const IdentObj plain = MakeBytes(10000);
    Store("source", plain);
    for (const bool inPieces : {false, true}) {
        const WhatToSignStruct what = inPieces ? InPieces(m_source) : InFile(m_source);
        CNALEncryptedContentInfo inFile;
        CNALEncryptedContentInfo inMemory;
        CTOOFile out(m_message, "wb+");
        out.Write("head", 4);
        ASSERT_EQ(inFile.Encrypt(key.Get(), &out, what, nullptr), 1);
        ASSERT_EQ(inMemory.Encrypt(key.Get(), nullptr, what, nullptr), 1);
        EXPECT_EQ(inFile.contentOffset, 4u);
        EXPECT_EQ(out.Length(), 4u + inFile.encryptedLength);
        EXPECT_EQ(inFile.WriteObject(), inMemory.WriteObject());
        for (const CNALEncryptedContentInfo* info : {&inFile, &inMemory}) {
            IdentObj content;
            EXPECT_EQ(info->Decrypt(key.Get(), nullptr, &content, nullptr), 1);
            EXPECT_EQ(content, plain);
        }
        int err = 0;
        EXPECT_EQ(inFile.Decrypt(key.Get(), &out, nullptr, &err), 0) << "onto its own source";
        EXPECT_EQ(err, TOO_E_BAD_ARGUMENT);
        EXPECT_EQ(inMemory.Decrypt(key.Get(), nullptr, nullptr, &err), 0);
        EXPECT_EQ(err, TOO_E_BAD_ARGUMENT);
        {
            const too_testing::ScopedStepFailure full(1, ENOSPC, 1);
            EXPECT_EQ(inMemory.Decrypt(key.Get(), &out, nullptr, &err), 0);
            EXPECT_EQ(err, TOO_E_DISK_FULL);
        }
        EXPECT_EQ(out.Length(), 4u + inFile.encryptedLength);
    }
    CNALCertPublicKeyInfo recipient(person.cert.GetContext()->pCertInfo->SubjectPublicKeyInfo);
    const auto refusal = [](unsigned long session, CNALCertPublicKeyInfo to) {
        EXPECT_EQ(NALExportEncryptKey(session, to), FALSE);
        return GetLastError();
    };
    EXPECT_EQ(refusal(0, recipient), ORK_E_INVALID_HANDLE);
    CNALCertPublicKeyInfo unknown = recipient;
    unknown.m_algorithm.SetParams("1.2.3.4", "1.2.643.2.2.35.1");
    EXPECT_EQ(refusal(key.Get(), unknown), ORK_E_BAD_ALGID);
    recipient.m_publicKey.m_data.GetData()[20] ^= 1;
    EXPECT_EQ(refusal(key.Get(), recipient), ORK_E_BAD_PUBLIC_KEY);
}

bool Count(std::uint64_t done, std::uint64_t all, void* context) {
    auto& limit = *static_cast<std::uint64_t*>(context);
    return all == 600000 && done <= limit;
}

TEST_F(Encryption, ProgressIsToldAndCancels) {
    KeyHolder person = MakePerson("person");
    Store("source", MakeBytes(600000));
    WhatToSignStruct plain = InFile(m_source);
    ASSERT_EQ(NALEncryptFile(plain, {person.cert}, m_message.c_str(), nullptr), 1);
    for (const auto& [limit, expected] : {std::pair{std::uint64_t{600000}, TOO_OK}, {std::uint64_t{300000}, TOO_E_CANCELLED}}) {
        std::uint64_t most = limit;
        NALSetProgressHandler(Count, &most);
        for (const bool encrypts : {true, false}) {
            SCOPED_TRACE(std::to_string(limit) + (encrypts ? " encrypts" : " decrypts"));
            WhatToSignStruct what = InFile(encrypts ? m_source : m_message);
            int err = -1;
            encrypts ? NALEncryptFile(what, {person.cert}, m_out.c_str(), &err)
                     : NALDecryptFile(what, person.user.get(), nullptr, m_out.c_str(), &err);
            EXPECT_EQ(err, expected);
            EXPECT_EQ(OutFiles(), expected == TOO_OK ? 1u : 0u);
            std::filesystem::remove(m_out);
        }
    }
    NALSetProgressHandler(nullptr, nullptr);
}

// The keys and contents of the two enveloped messages of RFC 4490 section 9, for the key of RFC 4491 section 4.2.
TEST_F(Encryption, TheStandardsOwnMessagesAreDecrypted) {
    namespace provider = nalhost::provider;
    const std::string container = m_folder.File("standard");
    {
        ork::ContextHandle context;
        ASSERT_TRUE(ORKAcquireContext(context.Receive(), container.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_NEW));
        const auto format = provider::FormatForSet(ORK_ALG_GOST2001_EXCHANGE, "1.2.643.2.2.36.0");
        const nal_test::Bytes secret =
            nal_test::Reversed(nal_test::FromHex("0B293BE050D0082BDAE785631A6BAB68F35B42786D6DDA56AFAF169891040F77"));
        auto privateKey = nalhost::crypto::PrivateKey::Import(*format->set, secret);
        provider::Contexts().Get(context.Get())->AddKey(*format, ORK_KEY_EXCHANGE, std::move(privateKey));
    }
    CNALUser user;
    ASSERT_EQ(user.LogInUser(container.c_str(), nullptr, nullptr, false), 0);
    const keycentre::KeyPair key = keycentre::KeyPair::Open(container, "");
    const CNALCertContext cert(
        m_authority.root.Certify(keycentre::Name("CN=Standard"), key.GetPublicKey(), keycentre::ExchangeProfile()));
    ASSERT_TRUE(user.PutCertificate(cert, nullptr, nullptr));

    const std::string parameters = "3012 0607 2A850302022400 0607 2A850302021E01";
    const auto content = [](const char* iv, const char* bytes) {
        CNALEncryptedContentInfo info;
        info.contentEncryptionAlgorithm.m_algorithm = IdentObj("1.2.643.2.2.21", 14);
        info.contentEncryptionAlgorithm.m_parameters = FromHexText(std::string("3013 0408") + iv + "0607 2A850302021F01");
        info.contentFlags = c_NAL_ENCRYPTED_CONTENT;
        info.encryptedContent = FromHexText(bytes);
        info.encryptedLength = info.openTextSize = info.encryptedContent.GetSize();
        return info;
    };
    CNALEnvelopedData transport;
    transport.recipientInfos.emplace_back(cert);
    transport.recipientInfos.front().encryptedKey = FromHexText(
        "3081A4 3028 0420 6a2fa8210695689f9fe447aa9ecb61152b7e4160bc5d8dfbf53d281b189af975 0404 366d98b7"
        "A078 0607 2A850302021F01 A063 301C 0606 2A8503020213" + parameters +
        "0343 00 0440 4d2b2f3390e6dca3dd552acddfe0effb31f7737e4effbf78898a2bc3cd319404"
        "4b0e6048961fdbc75d126fdab2408a77b5bdeaf2ec34cb239f9b8bdd9e12c0f6 0408 9795e32c2bad2b0c");
    transport.encryptedContentInfo = content("bc108b1f0bff3429", "aa8e721dee4fb32ee30fa137");

    CNALEnvelopedData agreement;
    const std::string encryptedKey = "3028 0420 16a31ce7ce4ee90df1ec746904681ec79f3aedb83b1f1d4a7ef9a5d9cb19d5e8 0404 93fd867e";
    const CNALTransRecipientInfo identity(cert);
    agreement.otherRecipientInfos.push_back([&] {
        asnt::Writer writer;
        writer.Context(1, [&] {
            writer.Integer(3);
            writer.Raw(FromHexText("A065 A163 301C 0606 2A8503020213" + parameters +
                                   "0343 00 0440 b35539f46781972ba5c4d9841f27fb81ed0832e69ad4f20078b8ff8364ead21d"
                                   "b0783c7dfe03c1f406e43bcc16b9c5f6f619371c17b8a0aac7d1a194b3a53620"
                                   "A10A 0408 2ff0f6d1864b328a"
                                   "301E 0606 2A8503020260 3014 0607 2A850302020D00 3009 0607 2A850302021F01"));
            writer.Sequence([&] {
                writer.Sequence([&] {
                    writer.Sequence([&] {
                        writer.Raw(identity.issuer);
                        writer.IntegerOctets(identity.serialNumber);
                    });
                    writer.OctetString(FromHexText(encryptedKey));
                });
            });
        });
        return writer.Finish();
    }());
    agreement.encryptedContentInfo = content("b735e17a0735a21d", "39b18af4bfa9e26525b655c9");
    for (const CNALEnvelopedData* message : {&transport, &agreement}) {
        const IdentObj plain = Decrypt(message->WriteObject(nullptr), &user);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(plain.GetData()), plain.GetSize()), "sample text\n");
    }
}

}  // namespace

#include "host/provider/crypto/cipher.h"

#include <gtest/gtest.h>

#include "host/provider/crypto/error.h"
#include "host/provider/crypto/random.h"
#include "support/hex.h"

namespace nalhost::crypto {
namespace {

using nal_test::Bytes;
using nal_test::FromHex;
using nal_test::ToHex;

Bytes Pattern(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 13 + i / 256);
    return bytes;
}

Bytes ProcessChunks(Direction direction, const CipherParameters& set, KeyMeshing meshing, ByteView key, ByteView iv,
                    const Bytes& in, std::size_t chunk) {
    CfbCipher cipher(direction, set, meshing, key, iv);
    Bytes out(in.size());
    for (std::size_t offset = 0; offset < in.size(); offset += chunk) {
        const std::size_t size = std::min(chunk, in.size() - offset);
        cipher.Process(ByteView(in).subspan(offset, size), ByteSpan(out).subspan(offset, size));
    }
    return out;
}

// RFC 8891 appendix A gives one block of the cipher with set Z. It numbers bytes from the other end: key words and the
// block are reversed.
TEST(Ecb, OneBlockOfThePublishedExample) {
    const Bytes key = FromHex("ccddeeff8899aabb4455667700112233f3f2f1f0f7f6f5f4fbfaf9f8fffefdfc");
    Bytes block = FromHex("1032547698badcfe");
    const CipherParameters& set = *FindCipherParameters("1.2.643.7.1.2.5.1.1");
    ProcessEcb(Direction::kEncrypt, set, key, block);
    EXPECT_EQ("3dcad8c2e501e94e", ToHex(block));
    ProcessEcb(Direction::kDecrypt, set, key, block);
    EXPECT_EQ("1032547698badcfe", ToHex(block));
}

TEST(Ecb, TakesWholeBlocksOnly) {
    Bytes data(12);
    EXPECT_THROW(ProcessEcb(Direction::kEncrypt, AllCipherParameters()[1], Pattern(32), data), CryptoError);
}

// Every set encrypts differently, in chunks of any size, in place too, and decrypts what it encrypted.
TEST(Cfb, ChunksContinueTheStateInEverySet) {
    const Bytes key = Pattern(32);
    const Bytes iv = Pattern(8);
    const Bytes plain = Pattern(5000);
    std::vector<Bytes> results;
    for (const CipherParameters& set : AllCipherParameters()) {
        for (const KeyMeshing meshing : {KeyMeshing::kNone, KeyMeshing::kOfParameterSet}) {
            SCOPED_TRACE(set.oid);
            const Bytes encrypted = ProcessChunks(Direction::kEncrypt, set, meshing, key, iv, plain, plain.size());
            for (const std::size_t chunk : {1U, 7U, 8U, 1000U, 1024U, 1025U, 4096U}) {
                EXPECT_EQ(encrypted, ProcessChunks(Direction::kEncrypt, set, meshing, key, iv, plain, chunk)) << chunk;
                EXPECT_EQ(plain, ProcessChunks(Direction::kDecrypt, set, meshing, key, iv, encrypted, chunk)) << chunk;
            }
            Bytes inPlace = plain;
            CfbCipher(Direction::kEncrypt, set, meshing, key, iv).Process(inPlace, inPlace);
            EXPECT_EQ(encrypted, inPlace);
            if (meshing == KeyMeshing::kNone || set.meshes) results.push_back(encrypted);
        }
    }
    for (std::size_t i = 0; i < results.size(); ++i) {
        for (std::size_t j = i + 1; j < results.size(); ++j)
            EXPECT_NE(results[i], results[j]) << i << " " << j;
    }
}

// RFC 4357 section 2.3.2: after each 1024 bytes the key is the old one's decryption of a constant, and the running IV
// is encrypted under the new key. Computed here from the plain mode.
TEST(Cfb, MeshingFollowsItsDefinition) {
    const CipherParameters& set = *FindCipherParameters("1.2.643.2.2.31.1");
    const Bytes plain = Pattern(3000);
    Bytes key = Pattern(32);
    Bytes iv = Pattern(8);
    Bytes expected;
    for (std::size_t offset = 0; offset < plain.size(); offset += 1024) {
        if (offset != 0) {
            Bytes next = FromHex("6900722264c904238d3adb9646e92ac418feac9400ed0712c086dcc2ef4ca92b");
            ProcessEcb(Direction::kDecrypt, set, key, next);
            key = next;
            iv.assign(expected.end() - 8, expected.end());
            ProcessEcb(Direction::kEncrypt, set, key, iv);
        }
        const Bytes section(plain.begin() + static_cast<std::ptrdiff_t>(offset),
                            plain.begin() + static_cast<std::ptrdiff_t>(std::min(offset + 1024, plain.size())));
        const Bytes part = ProcessChunks(Direction::kEncrypt, set, KeyMeshing::kNone, key, iv, section, section.size());
        expected.insert(expected.end(), part.begin(), part.end());
    }
    EXPECT_EQ(expected, ProcessChunks(Direction::kEncrypt, set, KeyMeshing::kOfParameterSet, Pattern(32), Pattern(8),
                                      plain, plain.size()));
}

TEST(Cfb, RefusesWrongSizes) {
    const CipherParameters& set = AllCipherParameters()[1];
    EXPECT_THROW(CfbCipher(Direction::kEncrypt, set, KeyMeshing::kNone, Pattern(31), Pattern(8)), CryptoError);
    EXPECT_THROW(CfbCipher(Direction::kEncrypt, set, KeyMeshing::kNone, Pattern(32), Pattern(7)), CryptoError);
    CfbCipher cipher(Direction::kEncrypt, set, KeyMeshing::kNone, Pattern(32), Pattern(8));
    Bytes out(3);
    EXPECT_THROW(cipher.Process(Pattern(4), out), CryptoError);
}

TEST(MacCode, ChunksGiveOneCodeAndEveryInputCounts) {
    const CipherParameters& set = AllCipherParameters()[1];
    const Bytes message = Pattern(100);
    auto codeOf = [&](ByteView key, ByteView iv, std::size_t chunk) {
        MacCode code(set, key, iv);
        for (std::size_t offset = 0; offset < message.size(); offset += chunk) {
            code.Update(ByteView(message).subspan(offset, std::min(chunk, message.size() - offset)));
        }
        return code.Finish();
    };
    const Mac whole = codeOf(Pattern(32), Bytes(8), message.size());
    for (const std::size_t chunk : {1U, 7U, 8U, 9U})
        EXPECT_EQ(whole, codeOf(Pattern(32), Bytes(8), chunk)) << chunk;
    EXPECT_NE(whole, codeOf(Pattern(32), Pattern(8), message.size()));
    EXPECT_NE(whole, codeOf(RandomSecret(32), Bytes(8), message.size()));

    MacCode finished(set, Pattern(32), Bytes(8));
    finished.Update(message);
    EXPECT_EQ(whole, finished.Finish());
    EXPECT_EQ(whole, finished.Finish());
    EXPECT_THROW(finished.Update(message), CryptoError);
}

}  // namespace
}  // namespace nalhost::crypto

#include "host/provider/blob.h"

#include "asnt/writer.h"
#include "host/provider/crypto/key.h"
#include "host/provider/crypto/protection.h"
#include "host/provider/little_endian.h"
#include "ork/constants.h"

namespace nalhost::provider {

namespace {

constexpr std::uint32_t c_version = 0x10;
constexpr std::uint32_t c_magic = 0x3147414D;  // "MAG1"
constexpr std::size_t c_headerSize = 16;
constexpr std::size_t c_maxParameters = 1024;
constexpr std::uint32_t c_secretBits = 256;

constexpr asnt::View ViewOf(const std::uint8_t* data, std::size_t size) {
    asnt::View view;
    view.data = data;
    view.size = size;
    return view;
}

void WriteHeader(RecordWriter& writer, DWORD type, DWORD algId, std::uint32_t bits) {
    writer.U32(type | c_version << 8);
    writer.U32(algId);
    writer.U32(c_magic);
    writer.U32(bits);
}

struct Header {
    DWORD algId;
    std::uint32_t bits;
};

Header ReadHeader(RecordReader& reader, DWORD type) {
    const std::uint32_t first = reader.U32();
    Require((first & 0xFF) == type, ORK_E_BAD_DATA);
    Require(first >> 8 == c_version, ORK_E_BAD_VERSION);
    Header header{};
    header.algId = reader.U32();
    Require(reader.U32() == c_magic, ORK_E_BAD_DATA);
    header.bits = reader.U32();
    return header;
}

}  // namespace

DWORD BlobType(asnt::View blob) {
    Require(blob.size >= c_headerSize, ORK_E_BAD_DATA);
    return blob[0];
}

IdentObj WritePublicBlob(const KeyFormat& format, asnt::View key) {
    RecordWriter writer;
    WriteHeader(writer, ORK_BLOB_PUBLIC, format.algId, static_cast<std::uint32_t>(key.size * 8));
    writer.Bytes(format.EncodeParameters());
    writer.Bytes(key);
    return writer.Take();
}

PublicKeyInfo ParsePublicBlob(asnt::View blob) {
    RecordReader reader(blob, ORK_E_BAD_DATA);
    const Header header = ReadHeader(reader, ORK_BLOB_PUBLIC);
    Require(IsKeyPairAlgorithm(header.algId), ORK_E_BAD_ALGID);
    const std::size_t rest = blob.size - c_headerSize;
    const std::size_t keySize = header.bits / 8;
    Require(header.bits % 8 == 0 && keySize <= rest && rest - keySize <= c_maxParameters, ORK_E_BAD_DATA);
    PublicKeyInfo result;
    result.format = ParseKeyFormat(header.algId, reader.Bytes(rest - keySize));
    Require(keySize == result.format.PublicKeySize(), ORK_E_BAD_LENGTH);
    result.bytes = reader.Rest().Copy();
    return result;
}

IdentObj WriteSimpleBlob(const SimpleBlob& content) {
    asnt::Writer oid;
    oid.Oid(content.cipher->oid);
    RecordWriter writer;
    WriteHeader(writer, ORK_BLOB_SIMPLE, ORK_ALG_GOST28147, c_secretBits);
    writer.Bytes(ViewOf(content.ukm.data(), content.ukm.size()));
    writer.Bytes(ViewOf(content.key.encrypted.data(), content.key.encrypted.size()));
    writer.Bytes(ViewOf(content.key.mac.data(), content.key.mac.size()));
    writer.Bytes(oid.Finish());
    return writer.Take();
}

SimpleBlob ParseSimpleBlob(asnt::View blob) {
    RecordReader reader(blob, ORK_E_BAD_DATA);
    const Header header = ReadHeader(reader, ORK_BLOB_SIMPLE);
    Require(header.algId == ORK_ALG_GOST28147, ORK_E_BAD_ALGID);
    Require(header.bits == c_secretBits, ORK_E_BAD_LENGTH);
    SimpleBlob content{};
    reader.Fill(content.ukm);
    reader.Fill(content.key.encrypted);
    reader.Fill(content.key.mac);
    asnt::Reader parameters(reader.Rest(), "simple blob");
    content.cipher = crypto::FindCipherParameters(parameters.Oid().view());
    parameters.ExpectEnd();
    Require(content.cipher != nullptr, ORK_E_BAD_ALGID);
    return content;
}

IdentObj WritePrivateBlobHead(const KeyFormat& format, bool isOneTime, const Salt& salt) {
    RecordWriter writer;
    WriteHeader(writer, ORK_BLOB_PRIVATE, format.algId, c_secretBits);
    writer.U32(isOneTime ? 1 : 0);
    writer.Bytes(ViewOf(salt.data(), salt.size()));
    writer.Counted(format.EncodeParameters());
    return writer.Take();
}

PrivateBlob ParsePrivateBlob(asnt::View blob) {
    RecordReader reader(blob, ORK_E_BAD_DATA);
    const Header header = ReadHeader(reader, ORK_BLOB_PRIVATE);
    Require(IsContainerAlgorithm(header.algId), ORK_E_BAD_ALGID);
    Require(header.bits == c_secretBits, ORK_E_BAD_LENGTH);
    PrivateBlob content;
    const std::uint32_t protection = reader.U32();
    Require(protection <= 1, ORK_E_BAD_DATA);
    content.isOneTime = protection == 1;
    reader.Fill(content.salt);
    content.format = ParseKeyFormat(header.algId, reader.Counted(c_maxParameters));
    content.associated = blob.Sub(0, reader.Position());
    content.sealed = reader.Rest();
    Require(content.sealed.size == crypto::kPrivateKeySize + crypto::kSealOverhead, ORK_E_BAD_LENGTH);
    return content;
}

}  // namespace nalhost::provider

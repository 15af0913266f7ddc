#include "encryption/key_transport.h"

#include <algorithm>
#include <cstdint>

#include "asnt/writer.h"
#include "model/bit_string.h"
#include "model/encoding.h"
#include "ork/constants.h"
#include "too/status.h"

namespace nal {

namespace {

constexpr unsigned c_ukmSize = 8;
constexpr unsigned c_keySize = 32;
constexpr unsigned c_macSize = 4;
constexpr int c_unsupportedForm = 56;

// What stands before the UKM of every simple blob.
constexpr unsigned char c_blobHead[] = {ORK_BLOB_SIMPLE, 0x10, 0,   0,   ORK_ALG_GOST28147 & 0xFF, ORK_ALG_GOST28147 >> 8, 0, 0,
                                        'M',             'A',  'G', '1', 0,                        1,                      0, 0};

constexpr asnt::Tag c_parametersTag = asnt::tag::Context(0);
constexpr asnt::Tag c_ephemeralTag = asnt::tag::Context(0);

IdentObj Sized(asnt::Reader& reader, unsigned size) {
    const asnt::View octets = reader.Octets();
    if (octets.size != size) reader.Fail();
    return octets.Copy();
}

}  // namespace

WrappedKey ReadSimpleBlob(asnt::View blob, const char* context) {
    const auto take = [&](std::size_t size) {
        if (blob.size < size) asnt::ThrowBadStructure(context);
        const asnt::View taken = blob.Sub(0, size);
        blob = blob.Sub(size);
        return taken;
    };
    if (take(sizeof c_blobHead) != asnt::View(c_blobHead, sizeof c_blobHead)) asnt::ThrowBadStructure(context);
    WrappedKey key;
    key.ukm = take(c_ukmSize).Copy();
    key.encryptedKey = take(c_keySize).Copy();
    key.mac = take(c_macSize).Copy();
    asnt::Reader paramSet(blob, context);
    key.paramSet = paramSet.Oid();
    paramSet.ExpectEnd();
    return key;
}

IdentObj WriteSimpleBlob(const WrappedKey& key) {
    IdentObj blob(c_blobHead, sizeof c_blobHead);
    const IdentObj paramSet = Encoded([&](asnt::Writer& writer) { writer.Oid(key.paramSet); });
    for (const IdentObj* part : {&key.ukm, &key.encryptedKey, &key.mac, &paramSet}) blob.Append(part->GetData(), part->GetSize());
    return blob;
}

void ReadEncryptedKey(asnt::Reader& reader, WrappedKey& key) {
    asnt::Reader fields = reader.Enter(asnt::tag::Sequence);
    key.encryptedKey = Sized(fields, c_keySize);
    key.mac = Sized(fields, c_macSize);
    fields.ExpectEnd();
}

KeyTransport ReadKeyTransport(asnt::View der, const char* context) {
    asnt::Reader reader(der, context);
    asnt::Reader fields = reader.Enter(asnt::tag::Sequence);
    reader.ExpectEnd();
    KeyTransport transport;
    ReadEncryptedKey(fields, transport.key);
    asnt::Reader parameters;
    asnt::Reader ephemeral;
    const bool hasParameters = fields.OptionalEnter(c_parametersTag, parameters);
    fields.ExpectEnd();
    if (!hasParameters) throw XTOOStatus(c_unsupportedForm, context);
    transport.key.paramSet = parameters.Oid();
    if (!parameters.OptionalEnter(c_ephemeralTag, ephemeral)) throw XTOOStatus(c_unsupportedForm, context);
    transport.ephemeralKey.m_algorithm.ReadData(ephemeral);
    transport.ephemeralKey.m_publicKey = ToBitBlob(ephemeral.Bits());
    ephemeral.ExpectEnd();
    transport.key.ukm = Sized(parameters, c_ukmSize);
    parameters.ExpectEnd();
    return transport;
}

IdentObj WriteKeyTransport(const KeyTransport& transport) {
    return Encoded([&](asnt::Writer& writer) {
        writer.Sequence([&] {
            writer.Sequence([&] {
                writer.OctetString(transport.key.encryptedKey);
                writer.OctetString(transport.key.mac);
            });
            writer.Constructed(c_parametersTag, [&] {
                writer.Oid(transport.key.paramSet);
                writer.Constructed(c_ephemeralTag, [&] {
                    transport.ephemeralKey.m_algorithm.WriteData(writer);
                    writer.BitString(transport.ephemeralKey.m_publicKey.m_data);
                });
                writer.OctetString(transport.key.ukm);
            });
        });
    });
}

}  // namespace nal

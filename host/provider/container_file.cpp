// Layout of a container file; integers are little-endian. docs/container-format.md says more on each field.
//
//   offset  size  field
//        0     8  magic, "NAL-KEYS"
//        8     4  format version, 1
//       12     4  protection: 1 password, 2 PIN, 4 protection key; 0x100 set: there is a sealed part
//       16    16  identifier of the container
//       32     8  revision
//       40     4  scrypt N
//       44     4  scrypt p
//       48    16  scrypt salt
//       64    28  verifier: nothing, sealed with bytes 0 to 64; zeros without a sealed part
//       92     4  e, size of the entries
//       96     4  s, size of the sealed part
//      100     e  entries: u32 next number, u32 count, then each entry
//    100+e     s  private keys, 32 bytes each, sealed with bytes 0 to 100+e
//  100+e+s    32  GOST R 34.11-94 hash of everything before
//
//   an entry   4  number
//              4  key type
//              4  ALG_ID
//              8  time of its making, FILETIME
//          4 + n  parameters field, DER
//          4 + n  public key
//          4 + n  certificate, DER; n = 0: none
//
// The hash at the end finds damage before any password is asked for; the verifier finds a wrong password; only then the
// sealed part tells whether somebody changed the rest.
#include "host/provider/container_file.h"

#include <algorithm>
#include <new>

#include "host/provider/crypto/hash.h"
#include "host/provider/crypto/key.h"
#include "host/provider/crypto/random.h"
#include "host/provider/failure.h"
#include "host/provider/little_endian.h"
#include "ork/constants.h"

namespace nalhost::provider {

namespace {

constexpr char c_magic[8] = {'N', 'A', 'L', '-', 'K', 'E', 'Y', 'S'};
constexpr std::uint32_t c_version = 1;
constexpr std::uint32_t c_sealedBit = 0x100;
constexpr std::size_t c_verifierOffset = 64;
constexpr std::size_t c_headSize = 100;
constexpr std::size_t c_maxParameters = 1024;
constexpr DWORD c_protectionBits = ORK_PROTECTED_PASSWORD | ORK_PROTECTED_PIN | ORK_PROTECTED_KEY;
constexpr char c_keyPurpose[] = "nal container key";

crypto::ByteView Bytes(asnt::View view) {
    return {view.data, view.size};
}

template <class Container>
asnt::View ViewOf(const Container& bytes) {
    return {bytes.data(), bytes.size()};
}

void AppendCounted(crypto::SecureBytes& target, std::size_t& position, const crypto::SecureBytes& part) {
    for (unsigned i = 0; i < 4; ++i)
        target[position++] = static_cast<std::uint8_t>(part.size() >> 8 * i);
    std::copy(part.begin(), part.end(), target.begin() + position);
    position += part.size();
}

// A format that this version does not know cannot stand in a sound file.
KeyFormat ReadFormat(DWORD algId, asnt::View parameters) {
    try {
        return ParseKeyFormat(algId, parameters);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        Fail(ORK_E_DAMAGED);
    }
}

crypto::SecureBytes DeriveKey(const ContainerSecrets& secrets, DWORD protection, crypto::ByteView salt,
                              const crypto::ScryptCost& cost) {
    // Both parts with their lengths, so that no password and PIN make the same text as another pair. What the container
    // does not ask for stays out.
    const crypto::SecureBytes none;
    const crypto::SecureBytes& password = (protection & ORK_PROTECTED_PASSWORD) != 0 ? secrets.password : none;
    const crypto::SecureBytes& pin = (protection & ORK_PROTECTED_PIN) != 0 ? secrets.pin : none;
    crypto::SecureBytes text(8 + password.size() + pin.size());
    std::size_t position = 0;
    AppendCounted(text, position, password);
    AppendCounted(text, position, pin);
    crypto::SecureBytes key = crypto::DeriveProtectionKey(text, salt, cost);
    if ((protection & ORK_PROTECTED_KEY) == 0) return key;

    crypto::Hash hash;
    hash.Update({reinterpret_cast<const std::uint8_t*>(c_keyPurpose), sizeof c_keyPurpose});
    hash.Update(key);
    hash.Update(secrets.protectionKey);
    return hash.FinishSecret();
}

}  // namespace

DWORD ContainerSecrets::ProtectionBits() const {
    return (password.empty() ? 0 : ORK_PROTECTED_PASSWORD) | (pin.empty() ? 0 : ORK_PROTECTED_PIN) |
           (protectionKey.empty() ? 0 : ORK_PROTECTED_KEY);
}

crypto::ByteView PrivateKeys::At(std::size_t index) const {
    return m_bytes.View().subspan(index * crypto::kPrivateKeySize, crypto::kPrivateKeySize);
}

void PrivateKeys::Append(crypto::ByteView key) {
    crypto::SecureBytes longer(m_bytes.size() + key.size());
    std::copy(key.begin(), key.end(), std::copy(m_bytes.begin(), m_bytes.end(), longer.begin()));
    m_bytes = std::move(longer);
}

void PrivateKeys::Erase(std::size_t index) {
    const std::size_t from = index * crypto::kPrivateKeySize;
    crypto::SecureBytes shorter(m_bytes.size() - crypto::kPrivateKeySize);
    std::copy(m_bytes.begin() + from + crypto::kPrivateKeySize, m_bytes.end(),
              std::copy(m_bytes.begin(), m_bytes.begin() + from, shorter.begin()));
    m_bytes = std::move(shorter);
}

ContainerFile ContainerFile::Make() {
    ContainerFile file;
    crypto::FillRandom(file.m_id);
    return file;
}

bool ContainerFile::HasMagic(asnt::View head) {
    return head.size >= sizeof c_magic && std::equal(std::begin(c_magic), std::end(c_magic), head.begin());
}

ContainerFile ContainerFile::Parse(asnt::View bytes) {
    Require(bytes.size <= c_maxContainerSize && bytes.size >= c_headSize + crypto::kDigestSize && HasMagic(bytes),
            ORK_E_DAMAGED);
    const asnt::View body = bytes.Sub(0, bytes.size - crypto::kDigestSize);
    const crypto::Digest digest = crypto::Hash::Of(Bytes(body));
    Require(ViewOf(digest) == bytes.Sub(body.size), ORK_E_DAMAGED);

    ContainerFile file;
    RecordReader reader(body, ORK_E_DAMAGED);
    reader.Bytes(sizeof c_magic);
    Require(reader.U32() == c_version, ORK_E_BAD_VERSION);
    const std::uint32_t protection = reader.U32();
    Require((protection & ~(c_protectionBits | c_sealedBit)) == 0, ORK_E_DAMAGED);
    file.m_isProtected = (protection & c_sealedBit) != 0;
    file.m_protection = protection & c_protectionBits;
    reader.Fill(file.m_id);
    file.m_revision = reader.U64();
    file.m_cost.n = reader.U32();
    file.m_cost.p = reader.U32();
    Require(file.m_cost.IsAcceptable(), ORK_E_DAMAGED);
    reader.Fill(file.m_salt);
    const asnt::View verifier = reader.Bytes(crypto::kSealOverhead);
    const std::uint32_t entriesSize = reader.U32();
    const std::uint32_t sealedSize = reader.U32();
    file.ReadEntries(reader.Bytes(entriesSize));
    const std::size_t openSize = reader.Position();
    const asnt::View sealed = reader.Bytes(sealedSize);
    Require(reader.AtEnd(), ORK_E_DAMAGED);

    if (file.m_isProtected) {
        Require(sealed.size == file.m_entries.size() * crypto::kPrivateKeySize + crypto::kSealOverhead, ORK_E_DAMAGED);
        file.m_verifier.assign(verifier.begin(), verifier.end());
        file.m_sealed.assign(sealed.begin(), sealed.end());
        file.m_open = body.Sub(0, openSize).Copy();
    } else {
        Require(sealed.empty() && file.m_entries.empty() && file.m_protection == 0, ORK_E_DAMAGED);
    }
    return file;
}

void ContainerFile::ReadEntries(asnt::View bytes) {
    RecordReader reader(bytes, ORK_E_DAMAGED);
    m_nextNumber = reader.U32();
    Require(m_nextNumber != 0, ORK_E_DAMAGED);
    const std::uint32_t count = reader.U32();
    Require(count <= c_maxEntries, ORK_E_DAMAGED);
    std::uint32_t last = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        ContainerEntry entry;
        entry.number = reader.U32();
        Require(entry.number > last && entry.number < m_nextNumber, ORK_E_DAMAGED);
        last = entry.number;
        entry.keyType = reader.U32();
        const DWORD algId = reader.U32();
        Require(KeyTypeOf(algId) != 0 && KeyTypeOf(algId) == entry.keyType, ORK_E_DAMAGED);
        const std::uint64_t created = reader.U64();
        entry.created = {static_cast<DWORD>(created), static_cast<DWORD>(created >> 32)};
        entry.format = ReadFormat(algId, reader.Counted(c_maxParameters));
        entry.publicKey = reader.Counted(entry.format.PublicKeySize()).Copy();
        Require(entry.publicKey.GetSize() == entry.format.PublicKeySize(), ORK_E_DAMAGED);
        entry.certificate = reader.Counted(c_maxCertificateSize).Copy();
        m_entries.push_back(std::move(entry));
    }
    Require(reader.AtEnd(), ORK_E_DAMAGED);
}

std::size_t ContainerFile::IndexOf(std::uint32_t number) const {
    const ContainerEntry* entry = Find(number);
    Require(entry != nullptr, ORK_E_NO_KEY);
    return static_cast<std::size_t>(entry - m_entries.data());
}

const ContainerEntry* ContainerFile::Find(std::uint32_t number) const {
    const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                    [&](const ContainerEntry& entry) { return entry.number == number; });
    return found == m_entries.end() ? nullptr : &*found;
}

ContainerKey ContainerFile::Protect(const ContainerSecrets& secrets, DWORD protection) {
    m_cost = {};
    crypto::FillRandom(m_salt);
    m_protection = protection;
    m_isProtected = true;
    return {DeriveKey(secrets, m_protection, m_salt, m_cost), m_protection, m_salt, m_cost};
}

bool ContainerFile::Suits(const ContainerKey& key) const {
    return m_isProtected && key.protection == m_protection && key.salt == m_salt && key.cost.n == m_cost.n &&
           key.cost.p == m_cost.p;
}

ContainerKey ContainerFile::Unlock(const ContainerSecrets& secrets) const {
    Require(m_isProtected, ORK_E_NO_KEY);
    const DWORD given = secrets.ProtectionBits();
    Require((m_protection & ORK_PROTECTED_KEY & ~given) == 0, ORK_E_PERMISSION);
    Require((m_protection & ~given) == 0, ORK_E_INVALID_PASSWORD);
    ContainerKey key{DeriveKey(secrets, m_protection, m_salt, m_cost), m_protection, m_salt, m_cost};
    const auto verified = crypto::Unseal(key.key, Bytes(m_open).first(c_verifierOffset), m_verifier);
    Require(verified.has_value(), ORK_E_INVALID_PASSWORD);
    return key;
}

PrivateKeys ContainerFile::Open(const ContainerKey& key) const {
    Require(Suits(key), ORK_E_INVALID_PASSWORD);
    auto keys = crypto::Unseal(key.key, Bytes(m_open), m_sealed);
    Require(keys.has_value(), ORK_E_DAMAGED);
    return PrivateKeys(std::move(*keys));
}

std::uint32_t ContainerFile::AddEntry(ContainerEntry entry) {
    Require(m_entries.size() < c_maxEntries && m_nextNumber != 0xFFFFFFFF, ORK_E_BAD_LENGTH);
    entry.number = m_nextNumber++;
    m_entries.push_back(std::move(entry));
    return m_entries.back().number;
}

IdentObj ContainerFile::WriteHead() const {
    RecordWriter writer;
    writer.Bytes({c_magic, sizeof c_magic});
    writer.U32(c_version);
    writer.U32(m_protection | (m_isProtected ? c_sealedBit : 0));
    writer.Bytes(ViewOf(m_id));
    writer.U64(m_revision);
    writer.U32(m_cost.n);
    writer.U32(m_cost.p);
    writer.Bytes(ViewOf(m_salt));
    return writer.Take();
}

IdentObj ContainerFile::WriteEntries() const {
    RecordWriter writer;
    writer.U32(m_nextNumber);
    writer.U32(static_cast<std::uint32_t>(m_entries.size()));
    for (const ContainerEntry& entry : m_entries) {
        writer.U32(entry.number);
        writer.U32(entry.keyType);
        writer.U32(entry.format.algId);
        writer.U32(entry.created.dwLowDateTime);
        writer.U32(entry.created.dwHighDateTime);
        writer.Counted(entry.format.EncodeParameters());
        writer.Counted(entry.publicKey);
        writer.Counted(entry.certificate);
    }
    return writer.Take();
}

IdentObj ContainerFile::Write(const ContainerKey* key, const PrivateKeys& keys) {
    ++m_revision;
    const IdentObj head = WriteHead();
    const IdentObj entries = WriteEntries();
    m_verifier.assign(crypto::kSealOverhead, 0);
    if (m_isProtected) m_verifier = crypto::Seal(key->key, Bytes(head), {});
    RecordWriter writer;
    writer.Bytes(head);
    writer.Bytes(ViewOf(m_verifier));
    writer.U32(entries.GetSize());
    writer.U32(m_isProtected ? static_cast<std::uint32_t>(keys.All().size() + crypto::kSealOverhead) : 0);
    writer.Bytes(entries);
    m_open = writer.View().Copy();
    m_sealed.clear();
    if (m_isProtected) m_sealed = crypto::Seal(key->key, Bytes(m_open), keys.All());
    writer.Bytes(ViewOf(m_sealed));
    Require(writer.View().size + crypto::kDigestSize <= c_maxContainerSize, ORK_E_BAD_LENGTH);
    const crypto::Digest digest = crypto::Hash::Of(Bytes(writer.View()));
    writer.Bytes(ViewOf(digest));
    return writer.Take();
}

}  // namespace nalhost::provider

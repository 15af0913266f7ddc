#include "host/provider/context.h"

#include <algorithm>

#include "host/provider/failure.h"
#include "ork/constants.h"
#include "ork/container_info.h"
#include "too/time.h"

namespace nalhost::provider {

namespace {

// What a password or PIN may be long; more is a mistake, and locked memory is scarce.
constexpr std::size_t c_maxSecretSize = 1024;

constexpr char c_defaultSignSet[] = "1.2.643.2.2.35.1";
constexpr char c_defaultExchangeSet[] = "1.2.643.2.2.36.0";

const char* DefaultSet(DWORD keyType) {
    return keyType == ORK_KEY_EXCHANGE ? c_defaultExchangeSet : c_defaultSignSet;
}

crypto::SecureBytes SecretOf(std::string_view text) {
    Require(text.size() <= c_maxSecretSize, ORK_E_BAD_LENGTH);
    return crypto::SecureBytes(crypto::ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

bool IsKeyType(DWORD value) {
    return value == ORK_KEY_EXCHANGE || value == ORK_KEY_SIGNATURE;
}

bool IsAnyType(DWORD value) {
    return value == ORK_KEY_ANY || value == 0;
}

}  // namespace

Context::Context(std::optional<Container> container, std::string givenName, std::uint32_t entry)
    : m_container(std::move(container)),
      m_givenName(std::move(givenName)),
      m_current(entry),
      m_hash(&crypto::DefaultHashParameters()),
      m_cipher(crypto::FindCipherParameters(c_defaultCipherSet)) {}

Container& Context::Opened() {
    Require(m_container.has_value(), ORK_E_BAD_KEYSET);
    return *m_container;
}

const Container& Context::Opened() const {
    Require(m_container.has_value(), ORK_E_BAD_KEYSET);
    return *m_container;
}

ContainerSecrets Context::CopySecrets() const {
    return {m_secrets.password.Clone(), m_secrets.pin.Clone(), m_secrets.protectionKey.Clone()};
}

void Context::SetPassword(std::string_view text) {
    const std::lock_guard lock(m_mutex);
    Opened().ForgetKey();
    m_secrets.password = SecretOf(text);
}

void Context::SetPin(std::string_view text) {
    const std::lock_guard lock(m_mutex);
    Opened().ForgetKey();
    m_secrets.pin = SecretOf(text);
}

void Context::SetProtectionKey(crypto::SecureBytes key) {
    const std::lock_guard lock(m_mutex);
    Opened().ForgetKey();
    m_secrets.protectionKey = std::move(key);
}

void Context::ChangePassword(std::string_view text) {
    const std::lock_guard lock(m_mutex);
    ContainerSecrets changed = CopySecrets();
    changed.password = SecretOf(text);
    Opened().ChangeProtection(m_secrets, changed, ORK_PROTECTED_PASSWORD);
    m_secrets = std::move(changed);
}

void Context::ChangePin(std::string_view text) {
    const std::lock_guard lock(m_mutex);
    ContainerSecrets changed = CopySecrets();
    changed.pin = SecretOf(text);
    Opened().ChangeProtection(m_secrets, changed, ORK_PROTECTED_PIN);
    m_secrets = std::move(changed);
}

void Context::SetKeyParams(DWORD keyType, std::string_view oid) {
    // Whether it suits the key is known when the key is made: parameter 94 may be meant for an exchange key too.
    Require(AlgorithmForSet(oid, ORK_KEY_SIGNATURE) != 0 || AlgorithmForSet(oid, ORK_KEY_EXCHANGE) != 0,
            ORK_E_BAD_ALGID);
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_keyParams, [&](const KeyParams& params) { return params.keyType == keyType; });
    m_keyParams.push_back({keyType, std::string(oid)});
}

std::string Context::GetKeyParams(DWORD keyType) const {
    const std::lock_guard lock(m_mutex);
    for (const KeyParams& params : m_keyParams) {
        if (params.keyType == keyType) return params.oid;
    }
    return DefaultSet(keyType);
}

void Context::SetHashParams(std::string_view oid) {
    const crypto::HashParameters* hash = crypto::FindHashParameters(oid);
    Require(hash != nullptr, ORK_E_BAD_ALGID);
    const std::lock_guard lock(m_mutex);
    m_hash = hash;
}

const crypto::HashParameters& Context::HashParams() const {
    const std::lock_guard lock(m_mutex);
    return *m_hash;
}

void Context::SetCipherParams(std::string_view oid) {
    const crypto::CipherParameters* cipher = crypto::FindCipherParameters(oid);
    Require(cipher != nullptr, ORK_E_BAD_ALGID);
    const std::lock_guard lock(m_mutex);
    m_cipher = cipher;
}

const crypto::CipherParameters& Context::CipherParams() const {
    const std::lock_guard lock(m_mutex);
    return *m_cipher;
}

KeyFormat Context::FormatFor(DWORD algId) const {
    std::optional<KeyFormat> format;
    if (IsKeyType(algId)) {
        const std::string set = GetKeyParams(algId);
        format = FormatForSet(AlgorithmForSet(set, algId), set);
    } else if (algId == ORK_ALG_EPHEMERAL || algId == ORK_ALG_PRIVATE_SIGN) {
        format = DefaultFormat(algId);
    } else if (IsContainerAlgorithm(algId)) {
        // The latest set that was named for the key; what was named for a signature key serves an exchange key too,
        // since one may ask for it by its ALG_ID after setting parameter 94 alone.
        const DWORD keyType = KeyTypeOf(algId);
        bool isNamed = false;
        const std::lock_guard lock(m_mutex);
        for (auto params = m_keyParams.rbegin(); params != m_keyParams.rend() && !format; ++params) {
            if (params->keyType != keyType && keyType == ORK_KEY_SIGNATURE) continue;
            isNamed = true;
            format = FormatForSet(algId, params->oid);
        }
        if (!isNamed) format = DefaultFormat(algId);
    }
    Require(format.has_value(), ORK_E_BAD_ALGID);
    if (!format->isImplied) format->hash = &HashParams();
    return *format;
}

std::string Context::UniqueName() const {
    return Opened().UniqueName();
}

DWORD Context::Protection() {
    const std::lock_guard lock(m_mutex);
    return Opened().File().Protection();
}

std::size_t Context::NextAlgorithm(bool first, std::size_t count) {
    const std::lock_guard lock(m_mutex);
    if (first) m_algorithm = 0;
    Require(m_algorithm < count, ORK_E_NO_MORE_ITEMS);
    return m_algorithm++;
}

std::string Context::NextEntry(bool first) {
    const std::lock_guard lock(m_mutex);
    if (!m_container) {
        if (first) {
            m_containers = Container::List();
            m_nextContainer = 0;
        }
        Require(m_nextContainer < m_containers.size(), ORK_E_NO_MORE_ITEMS);
        return m_containers[m_nextContainer++];
    }
    // By number, so that entries that come or go meanwhile neither repeat nor hide others.
    const std::uint32_t after = first ? 0 : m_enumerated;
    const auto& entries = m_container->File().Entries();
    const auto next =
        std::find_if(entries.begin(), entries.end(), [&](const ContainerEntry& entry) { return entry.number > after; });
    Require(next != entries.end(), ORK_E_NO_MORE_ITEMS);
    m_enumerated = next->number;
    m_current = next->number;
    return EntryName(next->number);
}

const ContainerEntry& Context::CurrentEntry() {
    const ContainerFile& file = Opened().File();
    Require(!file.Entries().empty(), ORK_E_NOT_FOUND);
    const ContainerEntry* entry = PeekCurrent(file);
    Require(entry != nullptr, ORK_E_NOT_FOUND);
    return *entry;
}

IdentObj Context::EntryCertificate() {
    const std::lock_guard lock(m_mutex);
    const ContainerEntry& entry = CurrentEntry();
    Require(!entry.certificate.IsEmpty(), ORK_E_NOT_FOUND);
    return entry.certificate;
}

IdentObj Context::EntryInfo() {
    const std::lock_guard lock(m_mutex);
    const ContainerEntry& entry = CurrentEntry();
    ORKKeyInfo info;
    info.m_name = EntryName(entry.number);
    info.m_keyType = entry.keyType;
    info.m_algId = entry.format.algId;
    info.m_created = entry.created;
    info.m_publicKeyInfo = WriteSubjectPublicKeyInfo(entry.format, entry.publicKey);
    return ASNContainerInfo(CTOOString(m_container->UniqueName()), info).WriteData();
}

void Context::DeleteEntry() {
    const std::lock_guard lock(m_mutex);
    const std::uint32_t number = CurrentEntry().number;
    Opened().Change(m_secrets, [&](ContainerFile& file, PrivateKeys& keys) {
        const std::size_t index = file.IndexOf(number);
        file.EraseEntry(index);
        keys.Erase(index);
    });
    m_current = 0;
}

AsymmetricKeyRef Context::Open(std::uint32_t number) {
    const auto [entry, privateKey] = Opened().OpenEntry(number, m_secrets);
    m_current = number;
    return MakePair(entry.format, crypto::PrivateKey::Import(*entry.format.set, privateKey),
                    crypto::PublicKey::Import(*entry.format.set, Bytes(entry.publicKey)), entry.keyType, number);
}

const ContainerEntry* Context::PeekCurrent(const ContainerFile& file) const {
    Require(!file.Entries().empty(), ORK_E_NO_KEY);
    return m_current == 0 ? &file.Entries().front() : file.Find(m_current);
}

AsymmetricKeyRef Context::OpenKey(DWORD keyType) {
    Require(IsKeyType(keyType) || IsAnyType(keyType), ORK_E_INVALID_PARAMETER);
    const std::lock_guard lock(m_mutex);
    const ContainerFile& file = Opened().File();
    const ContainerEntry* current = PeekCurrent(file);
    if (current != nullptr && (IsAnyType(keyType) || current->keyType == keyType)) return Open(current->number);
    const auto& entries = file.Entries();
    const auto other = std::find_if(entries.begin(), entries.end(),
                                    [&](const ContainerEntry& entry) { return entry.keyType == keyType; });
    Require(other != entries.end(), ORK_E_NO_KEY);
    return Open(other->number);
}

AsymmetricKeyRef Context::SigningKey(DWORD keyType) {
    Require(IsKeyType(keyType) || IsAnyType(keyType), ORK_E_INVALID_PARAMETER);
    const std::lock_guard lock(m_mutex);
    const ContainerEntry* current = PeekCurrent(Opened().File());
    Require(current != nullptr, ORK_E_NO_KEY);
    // An entry holds one key: it is of the asked type, or it is the one that the entry has.
    return Open(current->number);
}

AsymmetricKeyRef Context::AddKey(const KeyFormat& format, DWORD keyType, crypto::PrivateKey key) {
    crypto::PublicKey publicKey = key.DerivePublicKey();
    ContainerEntry entry;
    entry.format = format;
    entry.keyType = keyType;
    GetSystemTimeAsFileTime(&entry.created);
    entry.publicKey = ViewOf(publicKey.Bytes()).Copy();
    std::uint32_t number = 0;

    const std::lock_guard lock(m_mutex);
    Opened().Change(m_secrets, [&](ContainerFile& file, PrivateKeys& keys) {
        for (const ContainerEntry& other : file.Entries())
            Require(other.publicKey != entry.publicKey, ORK_E_EXISTS);
        number = file.AddEntry(entry);
        keys.Append(key.Secret());
    });
    m_current = number;
    return MakePair(format, std::move(key), std::move(publicKey), keyType, number);
}

void Context::MakeCurrent(std::uint32_t entry) {
    const std::lock_guard lock(m_mutex);
    m_current = entry;
}

IdentObj Context::Certificate(std::uint32_t entry) {
    const std::lock_guard lock(m_mutex);
    const ContainerFile& file = Opened().File();
    const IdentObj& certificate = file.Entries()[file.IndexOf(entry)].certificate;
    Require(!certificate.IsEmpty(), ORK_E_NOT_FOUND);
    return certificate;
}

void Context::SetCertificate(std::uint32_t entry, asnt::View certificate) {
    Require(certificate.size <= c_maxCertificateSize, ORK_E_BAD_LENGTH);
    // One whole DER element, or nothing, which takes the certificate away.
    Require(certificate.empty() || asnt::IsWellFormed(certificate), ORK_E_BAD_DATA);
    const std::lock_guard lock(m_mutex);
    Opened().Change(m_secrets, [&](ContainerFile& file, PrivateKeys&) {
        file.At(file.IndexOf(entry)).certificate = certificate.Copy();
    });
}

std::string Context::EntryName(std::uint32_t entry) const {
    return Opened().UniqueName() + "#" + std::to_string(entry);
}

}  // namespace nalhost::provider
